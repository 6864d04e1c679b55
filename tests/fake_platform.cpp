#include "tests/fake_platform.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/property_files.h"

namespace {

using platform::EntryKind;
using platform::OpenMode;

constexpr int kMaxLinks = 16;

/// The components of an absolute path; empty ones are dropped.
std::vector<std::string> Components(std::string_view path) {
  std::vector<std::string> parts;
  std::size_t at = 0;
  while (at < path.size()) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    if (end > at) parts.emplace_back(path.substr(at, end - at));
    at = end + 1;
  }
  return parts;
}

std::string WithoutTrailingSlash(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return std::string(path);
}

std::shared_ptr<FakePlatform::Node> ChildOf(const FakePlatform::Node& folder, std::string_view name) {
  for (const auto& [childName, child] : folder.children) {
    if (childName == name) return child;
  }
  return nullptr;
}

void RemoveChild(FakePlatform::Node& folder, std::string_view name) {
  std::erase_if(folder.children, [&](const auto& child) { return child.first == name; });
}

std::int64_t SizeOf(const FakePlatform::Node& node) {
  return node.fakeSize.value_or(static_cast<std::int64_t>(node.content.size()));
}

}  // namespace

FakePlatform::FakePlatform() : root_(NewNode(EntryKind::kDirectory)) {
  AddVolume("/", 500'000'000'000);
  former_ = platform::SetPlatform({this, this, this});
}

FakePlatform::~FakePlatform() {
  platform::SetPlatform(former_);
}

// --- the file system ---

std::shared_ptr<FakePlatform::Node> FakePlatform::NewNode(EntryKind kind) {
  auto node = std::make_shared<Node>();
  node->kind = kind;
  node->mode = kind == EntryKind::kDirectory ? 0755 : 0644;
  node->inode = nextInode_++;
  node->modTimeSec = nowMillis / 1000 + fileClockAheadSeconds;
  return node;
}

std::shared_ptr<FakePlatform::Node> FakePlatform::Resolve(std::string_view path, bool followLast, int depth) const {
  if (depth > kMaxLinks || path.empty() || path[0] != '/') return nullptr;
  std::shared_ptr<Node> node = root_;
  std::string walked;
  const std::vector<std::string> parts = Components(path);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (node->kind != EntryKind::kDirectory) return nullptr;
    node = ChildOf(*node, parts[i]);
    if (node == nullptr) return nullptr;
    const bool isLast = i + 1 == parts.size();
    if (node->kind == EntryKind::kSymbolicLink && (!isLast || followLast)) {
      const bool isAbsolute = node->content.starts_with('/');
      node = Resolve(isAbsolute ? node->content : walked + "/" + node->content, true, depth + 1);
      if (node == nullptr) return nullptr;
    }
    walked += "/" + parts[i];
  }
  return node;
}

std::shared_ptr<FakePlatform::Node> FakePlatform::ParentOf(std::string_view path, std::string& name) const {
  std::vector<std::string> parts = Components(path);
  if (parts.empty()) return nullptr;
  name = parts.back();
  std::string parent = "/";
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) parent += parts[i] + "/";
  std::shared_ptr<Node> node = Resolve(parent, true);
  return node != nullptr && node->kind == EntryKind::kDirectory ? node : nullptr;
}

FakePlatform::Node& FakePlatform::MakeFolders(std::string_view path) {
  std::shared_ptr<Node> node = root_;
  for (const std::string& part : Components(path)) {
    std::shared_ptr<Node> child = ChildOf(*node, part);
    if (child == nullptr) {
      child = NewNode(EntryKind::kDirectory);
      node->children.emplace_back(part, child);
    }
    node = child;
  }
  return *node;
}

FakePlatform::Node& FakePlatform::Place(std::string_view path, std::shared_ptr<Node> node) {
  std::vector<std::string> parts = Components(path);
  const std::string name = parts.back();
  std::string parent = "/";
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) parent += parts[i] + "/";
  Node& folder = MakeFolders(parent);
  for (auto& [childName, child] : folder.children) {
    if (childName == name) return *(child = std::move(node));
  }
  folder.children.emplace_back(name, node);
  return *node;
}

FakePlatform::Node& FakePlatform::WriteFile(std::string_view path, std::string_view content) {
  std::shared_ptr<Node> node = NewNode(EntryKind::kRegular);
  node->content = content;
  return Place(path, std::move(node));
}

FakePlatform::Node& FakePlatform::MakeLink(std::string_view path, std::string_view target) {
  std::shared_ptr<Node> node = NewNode(EntryKind::kSymbolicLink);
  node->content = target;
  return Place(path, std::move(node));
}

FakePlatform::Node& FakePlatform::MakeSpecial(std::string_view path, EntryKind kind) {
  return Place(path, NewNode(kind));
}

bool FakePlatform::Remove(std::string_view path) {
  std::string name;
  const std::shared_ptr<Node> parent = ParentOf(path, name);
  if (parent == nullptr || ChildOf(*parent, name) == nullptr) return false;
  RemoveChild(*parent, name);
  return true;
}

FakePlatform::Node* FakePlatform::Find(std::string_view path) {
  return Resolve(path, false).get();
}

std::string FakePlatform::ReadFile(std::string_view path) {
  const Node* node = Find(path);
  return node != nullptr && node->kind == EntryKind::kRegular ? node->content : "<missing>";
}

std::vector<std::string> FakePlatform::Names(std::string_view folder) {
  std::vector<std::string> names;
  const Node* node = Find(folder);
  if (node == nullptr) return names;
  for (const auto& child : node->children) names.push_back(child.first);
  return names;
}

// --- volumes ---

FakePlatform::FakeVolume& FakePlatform::AddVolume(std::string_view path, std::uint64_t totalBytes) {
  FakeVolume volume;
  volume.path = WithoutTrailingSlash(path);
  volume.mountId = nextMountId_++;
  volume.attributes.totalBytes = totalBytes;
  volume.attributes.freeBytes = totalBytes / 2;
  volume.attributes.availableBytes = totalBytes / 4;
  volume.attributes.isLocal = true;
  volume.attributes.isCasePreserving = true;
  volume.attributes.deviceName = "/dev/disk" + std::to_string(volume.mountId) + "s1";
  volume.media.foundByDeviceName = true;
  volume.media.objects = {{true, false, true, true}};
  if (volume.path != "/") MakeFolders(volume.path);
  volumes.push_back(std::move(volume));
  return volumes.back();
}

void FakePlatform::Unmount(std::string_view path, bool leaveFolder) {
  const std::string plain = WithoutTrailingSlash(path);
  std::erase_if(volumes, [&](const FakeVolume& volume) { return volume.path == plain; });
  Remove(plain);
  if (leaveFolder) MakeFolders(plain);
}

FakePlatform::FakeVolume* FakePlatform::VolumeAt(std::string_view mountPoint) {
  const std::string plain = WithoutTrailingSlash(mountPoint);
  for (FakeVolume& volume : volumes) {
    if (volume.path == plain) return &volume;
  }
  return nullptr;
}

int FakePlatform::ListMountedVolumes(std::vector<platform::MountedVolume>& mounted) {
  mounted.clear();
  for (const FakeVolume& volume : volumes) {
    mounted.push_back({volume.path, volume.isLocal, volume.isBrowsable, volume.error});
  }
  return listVolumesErrno;
}

int FakePlatform::QueryVolume(const char* mountPoint, platform::VolumeAttributes& attributes) {
  if (const int error = Fault("volume", mountPoint); error != 0) return error;
  const FakeVolume* volume = VolumeAt(mountPoint);
  if (volume == nullptr) return Has(mountPoint) ? EINVAL : ENOENT;
  attributes = volume->attributes;
  return volume->queryErrno;
}

platform::MediaWalk FakePlatform::WalkMedia(const char* mountPoint, const std::string& deviceName) {
  const FakeVolume* volume = VolumeAt(mountPoint);
  return volume != nullptr && !deviceName.empty() ? volume->media : platform::MediaWalk{};
}

int FakePlatform::ReadSkippedMounts(std::vector<platform::MountTableRow>& rows) {
  rows = skippedMounts;
  return 0;
}

platform::PropertyListStatus FakePlatform::ReadBackupDestinations(const char* path,
                                                                  std::vector<platform::DestinationValue>& values) {
  values.clear();
  platform::PropertyValue dictionary;
  const platform::PropertyListStatus status = platform::ReadPropertyDictionary(path, dictionary);
  if (status == platform::PropertyListStatus::kOk) platform::CollectDestinationValues(dictionary, values);
  return status;
}

// --- queries ---

platform::ListResult FakePlatform::ListDirectory(const char* path, platform::EntryVisitor& visitor) {
  if (const int error = Fault("list", path); error != 0) return {error, 0};
  const std::shared_ptr<Node> folder = Resolve(path, true);
  if (folder == nullptr) return {ENOENT, 0};
  if (folder->kind != EntryKind::kDirectory) return {ENOTDIR, 0};
  if (folder->openErrno != 0) return {folder->openErrno, 0};
  const auto entries = folder->children;
  std::int64_t visited = 0;
  for (const auto& [name, node] : entries) {
    if (folder->readErrno != 0 && visited >= folder->readErrnoAfter) return {0, folder->readErrno};
    ++visited;
    platform::EntryAttributes attributes;
    const std::string full = WithoutTrailingSlash(path) + (std::string_view(path) == "/" ? "" : "/") + name;
    const int error = QueryEntry(full.c_str(), attributes);
    if (!visitor.OnEntry(name, error, attributes)) break;
  }
  return {0, folder->readErrno};
}

int FakePlatform::QueryEntry(const char* path, platform::EntryAttributes& attributes) {
  if (const int error = Fault("query", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, false);
  if (node == nullptr) return ENOENT;
  if (node->queryErrno != 0) return node->queryErrno;
  attributes = platform::EntryAttributes{};
  attributes.kind = node->kind;
  attributes.dataSize = SizeOf(*node);
  attributes.rsrcSize = node->rsrcSize;
  attributes.modTimeSec = node->modTimeSec;
  attributes.createTimeSec = node->createTimeSec;
  attributes.finderFlags = node->finderFlags;
  attributes.linkCount = node->linkCount;
  return 0;
}

int FakePlatform::Lstat(const char* path, platform::StatFacts& facts) {
  if (const int error = Fault("lstat", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, false);
  if (node == nullptr) return ENOENT;
  if (node->statErrno != 0) return node->statErrno;
  facts = {node->kind, SizeOf(*node), node->modTimeSec, node->linkCount};
  return 0;
}

int FakePlatform::QueryFinderFlags(const char* path, std::uint16_t& finderFlags) {
  if (const int error = Fault("finder", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, false);
  if (node == nullptr) return ENOENT;
  finderFlags = node->finderFlags;
  return node->finderErrno;
}

int FakePlatform::QueryBackupExclusion(const char* path, bool& excluded) {
  if (const int error = Fault("exclusion", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, false);
  if (node == nullptr) return ENOENT;
  excluded = node->backupExcluded;
  return 0;
}

int FakePlatform::StatThroughLinks(const char* path, platform::FileFacts& facts) {
  if (const int error = Fault("stat", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, true);
  if (node == nullptr) return ENOENT;
  if (node->statErrno != 0) return node->statErrno;
  facts = {node->kind, SizeOf(*node), node->modTimeSec, node->linkCount};
  return 0;
}

int FakePlatform::ReadResourceFork(const char* path, std::string& bytes) {
  const std::shared_ptr<Node> node = Resolve(path, true);
  if (node == nullptr) return ENOENT;
  bytes = node->resourceFork;
  return node->readErrno;
}

bool FakePlatform::HasValidCodeSignature(const char* path) {
  const std::shared_ptr<Node> node = Resolve(path, true);
  return node != nullptr && node->isSigned;
}

int FakePlatform::QueryAccess(const char* path, platform::AccessFacts& facts) {
  if (const int error = Fault("stat", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, true);
  if (node == nullptr) return ENOENT;
  facts = {node->userId, node->groupId, node->mode};
  return 0;
}

int FakePlatform::QueryMountIdentity(const char* path, platform::MountIdentity& identity) {
  if (const int error = Fault("mountid", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, true);
  if (node == nullptr) return ENOENT;
  const std::string plain = WithoutTrailingSlash(path);
  const FakeVolume* best = nullptr;
  for (const FakeVolume& volume : volumes) {
    const std::string prefix = volume.path == "/" ? "/" : volume.path + "/";
    const bool holds = plain == volume.path || plain.starts_with(prefix);
    if (holds && (best == nullptr || volume.path.size() > best->path.size())) best = &volume;
  }
  identity = {best != nullptr ? best->mountId : 0, node->inode, best != nullptr ? best->mountId : 0};
  return 0;
}

// --- descriptors ---

FakePlatform::OpenFile* FakePlatform::FileAt(int descriptor) {
  const auto found = open_.find(descriptor);
  return found != open_.end() ? &found->second : nullptr;
}

int FakePlatform::Open(const char* path, OpenMode openMode, unsigned mode, int& descriptor) {
  if (const int error = Fault("open", path); error != 0) return error;
  const bool creates = openMode != OpenMode::kRead;
  const bool follows = openMode != OpenMode::kAppendNoFollow && openMode != OpenMode::kCreateExclusive;
  std::shared_ptr<Node> node = Resolve(path, follows);
  if (node == nullptr && !creates) return ENOENT;
  if (node != nullptr && openMode == OpenMode::kCreateExclusive) return EEXIST;
  if (node != nullptr && node->kind == EntryKind::kSymbolicLink) return ELOOP;
  if (node != nullptr && creates && node->kind == EntryKind::kDirectory) return EISDIR;
  if (node != nullptr && node->openErrno != 0) return node->openErrno;
  if (node == nullptr) {
    std::string name;
    const std::shared_ptr<Node> parent = ParentOf(path, name);
    if (parent == nullptr) return ENOENT;
    if (diskBytesLeft == 0) return ENOSPC;
    node = NewNode(EntryKind::kRegular);
    node->mode = mode & ~022U;
    parent->children.emplace_back(name, node);
  } else if (openMode == OpenMode::kWriteTruncate) {
    node->content.clear();
    node->modTimeSec = nowMillis / 1000 + fileClockAheadSeconds;
  }
  descriptor = nextDescriptor_++;
  open_[descriptor] = {node, path, openMode, 0};
  return 0;
}

int FakePlatform::Close(int descriptor) {
  const OpenFile* file = FileAt(descriptor);
  const int error = file == nullptr ? EBADF : Fault("close", file->path);
  open_.erase(descriptor);
  return error;
}

int FakePlatform::Read(int descriptor, void* buffer, std::size_t bytes, std::size_t& got) {
  OpenFile* file = FileAt(descriptor);
  if (file == nullptr) return EBADF;
  if (const int error = Fault("read", file->path); error != 0) return error;
  const Node& node = *file->node;
  if (node.kind == EntryKind::kDirectory) return EISDIR;
  const auto end = static_cast<std::int64_t>(node.content.size());
  const bool fails = node.readErrno != 0;
  if (fails && file->offset >= node.readErrnoAfter) return node.readErrno;
  const std::int64_t limit = fails ? std::min(end, node.readErrnoAfter) : end;
  const std::int64_t left = std::max<std::int64_t>(limit - file->offset, 0);
  got = std::min(bytes, static_cast<std::size_t>(left));
  std::memcpy(buffer, node.content.data() + file->offset, got);
  file->offset += static_cast<std::int64_t>(got);
  return 0;
}

int FakePlatform::Write(int descriptor, const void* buffer, std::size_t bytes, std::size_t& written) {
  written = 0;
  OpenFile* file = FileAt(descriptor);
  if (file == nullptr) return EBADF;
  if (const int error = Fault("write", file->path); error != 0) return error;
  const bool isShort = diskBytesLeft >= 0 && static_cast<std::int64_t>(bytes) > diskBytesLeft;
  written = isShort ? static_cast<std::size_t>(diskBytesLeft) : bytes;
  if (diskBytesLeft >= 0) diskBytesLeft -= static_cast<std::int64_t>(written);
  file->node->content.append(static_cast<const char*>(buffer), written);
  file->node->modTimeSec = nowMillis / 1000 + fileClockAheadSeconds;
  return isShort ? ENOSPC : 0;
}

int FakePlatform::Seek(int descriptor, std::int64_t offset) {
  OpenFile* file = FileAt(descriptor);
  if (file == nullptr) return EBADF;
  file->offset = offset;
  return 0;
}

int FakePlatform::StatDescriptor(int descriptor, platform::FileFacts& facts) {
  const OpenFile* file = FileAt(descriptor);
  if (file == nullptr) return EBADF;
  const Node& node = *file->node;
  facts = {node.kind, SizeOf(node), node.modTimeSec, node.linkCount};
  return 0;
}

int FakePlatform::ChangeDescriptorMode(int descriptor, unsigned mode) {
  const OpenFile* file = FileAt(descriptor);
  if (file == nullptr) return EBADF;
  if (const int error = Fault("chmod", file->path); error != 0) return error;
  file->node->mode = mode;
  return 0;
}

int FakePlatform::TryLockExclusive(int descriptor) {
  const OpenFile* file = FileAt(descriptor);
  return file == nullptr ? EBADF : Fault("lock", file->path);
}

// --- changing names ---

int FakePlatform::Rename(const char* from, const char* to) {
  if (const int error = Fault("rename", std::string(from) + "\n" + to); error != 0) return error;
  std::string fromName;
  std::string toName;
  const std::shared_ptr<Node> fromFolder = ParentOf(from, fromName);
  const std::shared_ptr<Node> toFolder = ParentOf(to, toName);
  if (fromFolder == nullptr || toFolder == nullptr) return ENOENT;
  const std::shared_ptr<Node> node = ChildOf(*fromFolder, fromName);
  if (node == nullptr) return ENOENT;
  const std::shared_ptr<Node> target = ChildOf(*toFolder, toName);
  if (target != nullptr && target->kind == EntryKind::kDirectory && node->kind != EntryKind::kDirectory) return EISDIR;
  RemoveChild(*fromFolder, fromName);
  RemoveChild(*toFolder, toName);
  toFolder->children.emplace_back(toName, node);
  return 0;
}

int FakePlatform::Unlink(const char* path) {
  if (const int error = Fault("unlink", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, false);
  if (node == nullptr) return ENOENT;
  if (node->kind == EntryKind::kDirectory) return EISDIR;
  Remove(path);
  return 0;
}

int FakePlatform::MakeDirectory(const char* path, unsigned mode) {
  if (const int error = Fault("mkdir", path); error != 0) return error;
  std::string name;
  const std::shared_ptr<Node> parent = ParentOf(path, name);
  if (parent == nullptr) return name.empty() ? EEXIST : ENOENT;
  if (ChildOf(*parent, name) != nullptr) return EEXIST;
  std::shared_ptr<Node> node = NewNode(EntryKind::kDirectory);
  node->mode = mode;
  parent->children.emplace_back(name, std::move(node));
  return 0;
}

int FakePlatform::MakeHiddenDirectory(const char* path, unsigned mode) {
  return MakeDirectory(path, mode);
}

int FakePlatform::ChangeMode(const char* path, unsigned mode) {
  if (const int error = Fault("chmod", path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, false);
  if (node == nullptr) return ENOENT;
  node->mode = mode;
  return 0;
}

int FakePlatform::MakeTemporaryFile(std::string_view directory, std::string_view prefix, std::string_view suffix,
                                    std::string& path) {
  const std::string number = std::to_string(100'000 + temporaryIndex_++);
  path = std::string(directory) + "/" + std::string(prefix) + number + std::string(suffix);
  if (const int error = Fault("temp", path); error != 0) return error;
  WriteFile(path, "").mode = 0600;
  return 0;
}

// --- the machine ---

void FakePlatform::SleepMicros(std::int64_t micros) {
  sleepsMicros.push_back(micros);
  nowMillis += micros / 1000;
  if (onSleep) onSleep(micros);
}

bool FakePlatform::FindLogin(const std::string& name, platform::LoginFacts& login) {
  const auto found = std::find_if(logins.begin(), logins.end(), [&](const auto& known) { return known.name == name; });
  if (found == logins.end()) return false;
  login = *found;
  return true;
}

bool FakePlatform::CurrentLogin(platform::LoginFacts& login) {
  const auto found =
      std::find_if(logins.begin(), logins.end(), [&](const auto& known) { return known.userId == euid; });
  if (found == logins.end()) return false;
  login = *found;
  return true;
}

bool FakePlatform::Query64BitHardware(bool& is64Bit) {
  is64Bit = hardware64.value_or(false);
  return hardware64.has_value();
}

bool FakePlatform::HostName(std::string& name) {
  name = hostName.value_or("");
  return hostName.has_value();
}

platform::HardwareAddressStatus FakePlatform::HardwareAddress(std::string& address) {
  address = hardwareAddress;
  return hardwareAddressStatus;
}

std::uint32_t FakePlatform::RandomBelow(std::uint32_t bound) {
  const std::uint32_t index = randomIndex_++;
  const std::uint32_t drawn = index < randoms.size() ? randoms[index] : index;
  return bound == 0 ? 0 : drawn % bound;
}

platform::PropertyListStatus FakePlatform::ReadProductVersion(const char* path, std::string& version) {
  version.clear();
  platform::PropertyValue dictionary;
  const platform::PropertyListStatus status = platform::ReadPropertyDictionary(path, dictionary);
  if (status == platform::PropertyListStatus::kOk) version = platform::ProductVersionIn(dictionary);
  return status;
}

int FakePlatform::RunShellAndWait(const char* line, int& error) {
  shellLines.emplace_back(line);
  error = 0;
  return shell ? shell(line) : 0;
}

int FakePlatform::StartShell(const char* line, int& error) {
  childPolls_ = 0;
  RunShellAndWait(line, error);
  return 777;
}

platform::ChildStatus FakePlatform::PollChild(int child) {
  if (!killedChildren.empty() || childPolls_++ >= childPollsUntilEnd) return {true, child, 0};
  return {false, 0, 0};
}

int FakePlatform::KillChildGroup(int child) {
  if (killErrno == 0) killedChildren.push_back(child);
  return killErrno;
}
