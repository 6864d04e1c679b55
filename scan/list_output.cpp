#include "scan/list_output.h"

#include "base/file_info.h"
#include "base/file_io.h"
#include "base/log.h"
#include "platform/platform.h"

// --- lines ---

void TqListOutput::FlushListBuffer(std::string_view listPath) {
  AppendDirectly(listPath, buffer_);
  buffer_.Clear();
}

void TqListOutput::FlushIfLarge(std::string_view listPath) {
  if (buffer_.Length() > kFlushAbove) FlushListBuffer(listPath);
  FlushIfUnbuffered(listPath);
}

TqListOutput::WrittenList& TqListOutput::RecordOf(std::string_view listPath) {
  for (WrittenList& list : written_) {
    if (list.path == listPath) return list;
  }
  return written_.emplace_back(WrittenList{listPath, TqFile::FileSize(listPath)});
}

void TqListOutput::AppendDirectly(std::string_view listPath, std::string_view text) {
  if (brokenLists_.Find(listPath) >= 0) return;
  WrittenList& list = RecordOf(listPath);
  if (TqFile::FileSize(listPath) != list.bytes || !TqFile::AppendStringToFile(listPath, text)) {
    NoteBroken(listPath);
    return;
  }
  list.bytes += static_cast<std::int64_t>(text.size());
}

bool TqListOutput::IsWhole(std::string_view listPath) const {
  if (brokenLists_.Find(listPath) >= 0) return false;
  for (const WrittenList& list : written_) {
    if (list.path == listPath) return TqFile::FileSize(listPath) == list.bytes;
  }
  return true;
}

void TqListOutput::NoteBroken(std::string_view listPath) {
  if (brokenLists_.Find(listPath) >= 0) return;
  brokenLists_.Add(listPath);
  Log("ERROR: could not append to filelist: ", listPath);
}

// --- volumes ---

const TqListOutput::NotedMount* TqListOutput::FindMount(std::string_view volumePath) const {
  for (const NotedMount& mount : mounts_) {
    if (mount.volumePath == volumePath) return &mount;
  }
  return nullptr;
}

void TqListOutput::NoteMount(std::string_view volumePath) {
  if (FindMount(volumePath) != nullptr) return;
  NotedMount mount;
  mount.volumePath = volumePath;
  const int error = platform::TheFiles().QueryMountIdentity(mount.volumePath.c_str(), mount.identity);
  mount.isKnown = error == 0;
  if (!mount.isKnown) {
    Log("ERROR: could not note which volume is mounted, so its list will not be replaced: ", volumePath, ", errno ",
        error);
  }
  mounts_.push_back(std::move(mount));
}

void TqListOutput::RecheckMount(std::string_view volumePath) {
  for (NotedMount& mount : mounts_) {
    if (mount.volumePath != volumePath || mount.interrupted) continue;
    platform::MountIdentity now;
    const bool answers = platform::TheFiles().QueryMountIdentity(mount.volumePath.c_str(), now) == 0;
    // A volume that did not answer when it was noted cannot be told from another one later.
    mount.interrupted = !answers || !mount.isKnown || now != mount.identity;
  }
}

void TqListOutput::NoteFailedListing(std::string_view volumePath, int error) {
  for (NotedMount& mount : mounts_) {
    if (mount.volumePath == volumePath && !TqFile::IsOfFolderAlone(error)) mount.mayBeGoing = true;
  }
  RecheckMount(volumePath);
}

bool TqListOutput::MayBeGoing(std::string_view volumePath) const {
  const NotedMount* mount = FindMount(volumePath);
  return mount != nullptr && mount->mayBeGoing;
}

void TqListOutput::NoteUnmountWait() {
  for (NotedMount& mount : mounts_) mount.mayBeGoing = false;
}

bool TqListOutput::IsInterrupted(std::string_view volumePath) const {
  const NotedMount* mount = FindMount(volumePath);
  return mount != nullptr && mount->interrupted;
}
