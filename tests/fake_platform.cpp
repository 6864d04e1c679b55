#include "tests/fake_platform.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

namespace {

using platform::EntryKind;
using platform::OpenMode;

constexpr int kMaxLinks = 16;

/// The components of an absolute path; empty ones are dropped.
std::vector<std::string> Components(std::string_view path) {
  std::vector<std::string> parts;
  std::istringstream in{std::string(path)};
  for (std::string part; std::getline(in, part, '/');) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

std::string WithoutTrailingSlash(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return std::string(path);
}

std::shared_ptr<FakePlatform::Node> ChildOf(const FakePlatform::Node& folder, std::string_view name) {
  const auto found = std::ranges::find(folder.children, name, [](const auto& child) { return child.first; });
  return found != folder.children.end() ? found->second : nullptr;
}

/// Where the child of that name is or will be.
std::shared_ptr<FakePlatform::Node>& PlaceOf(FakePlatform::Node& folder, const std::string& name) {
  for (auto& [childName, child] : folder.children) {
    if (childName == name) return child;
  }
  return folder.children.emplace_back(name, nullptr).second;
}

bool RemoveChild(FakePlatform::Node& folder, std::string_view name) {
  return std::erase_if(folder.children, [&](const auto& child) { return child.first == name; }) > 0;
}

}  // namespace

FakePlatform::FakePlatform() : root_(NewNode(EntryKind::kDirectory)) {
  AddVolume("/", 500'000'000'000);
  former_ = platform::SetPlatform({this, this, this});
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
    if (node == nullptr || node->kind != EntryKind::kDirectory) return nullptr;
    node = ChildOf(*node, parts[i]);
    const bool isFollowed = followLast || i + 1 < parts.size();
    if (isFollowed && node != nullptr && node->kind == EntryKind::kSymbolicLink) {
      const bool isAbsolute = node->content.starts_with('/');
      node = Resolve(isAbsolute ? node->content : walked + "/" + node->content, true, depth + 1);
    }
    walked += "/" + parts[i];
  }
  return node;
}

std::shared_ptr<FakePlatform::Node> FakePlatform::ParentOf(std::string_view path, std::string& name) const {
  const std::string plain = WithoutTrailingSlash(path);
  const std::size_t nameStart = plain.rfind('/') + 1;
  name = plain.substr(nameStart);
  std::shared_ptr<Node> node = name.empty() ? nullptr : Resolve(plain.substr(0, nameStart), true);
  return node != nullptr && node->kind == EntryKind::kDirectory ? node : nullptr;
}

FakePlatform::Node& FakePlatform::MakeFolders(std::string_view path) {
  std::shared_ptr<Node> node = root_;
  for (const std::string& part : Components(path)) {
    std::shared_ptr<Node>& child = PlaceOf(*node, part);
    if (child == nullptr) child = NewNode(EntryKind::kDirectory);
    node = child;
  }
  return *node;
}

FakePlatform::Node& FakePlatform::MakeSpecial(std::string_view path, EntryKind kind, std::string_view content) {
  const std::string plain = WithoutTrailingSlash(path);
  const std::size_t nameStart = plain.rfind('/') + 1;
  std::shared_ptr<Node>& place = PlaceOf(MakeFolders(plain.substr(0, nameStart)), plain.substr(nameStart));
  place = NewNode(kind);
  place->content = content;
  return *place;
}

bool FakePlatform::Remove(std::string_view path) {
  std::string name;
  const std::shared_ptr<Node> parent = ParentOf(path, name);
  return parent != nullptr && RemoveChild(*parent, name);
}

std::string FakePlatform::ReadFile(std::string_view path) {
  const Node* node = Find(path);
  return node != nullptr && node->kind == EntryKind::kRegular ? node->content : "<missing>";
}

int FakePlatform::Look(std::string_view operation, std::string_view path, bool followLast,
                       const std::function<void(Node&)>& take) const {
  if (const int error = Fault(operation, path); error != 0) return error;
  const std::shared_ptr<Node> node = Resolve(path, followLast);
  if (node != nullptr) take(*node);
  return node == nullptr ? ENOENT : 0;
}

std::vector<std::string> FakePlatform::Names(std::string_view folder) {
  std::vector<std::string> names;
  const Node* node = Find(folder);
  for (const auto& child : node != nullptr ? node->children : decltype(node->children)()) names.push_back(child.first);
  return names;
}

// --- volumes ---

FakePlatform::FakeVolume& FakePlatform::AddVolume(std::string_view path, std::uint64_t totalBytes) {
  FakeVolume& volume = volumes.emplace_back();
  volume.path = WithoutTrailingSlash(path);
  volume.mountId = nextMountId_++;
  volume.attributes.totalBytes = totalBytes;
  volume.attributes.freeBytes = totalBytes / 2;
  volume.attributes.availableBytes = totalBytes / 4;
  volume.attributes.isLocal = volume.attributes.isCasePreserving = true;
  volume.attributes.deviceName = "/dev/disk" + std::to_string(volume.mountId) + "s1";
  volume.media.foundByDeviceName = true;
  volume.media.objects = {{true, false, true, true}};
  MakeFolders(volume.path);
  return volume;
}

void FakePlatform::Unmount(std::string_view path, bool leaveFolder) {
  const std::string plain = WithoutTrailingSlash(path);
  std::erase_if(volumes, [&](const FakeVolume& volume) { return volume.path == plain; });
  Remove(plain);
  if (leaveFolder) MakeFolders(plain);
}

FakePlatform::FakeVolume* FakePlatform::VolumeAt(std::string_view mountPoint) {
  const auto found = std::ranges::find(volumes, WithoutTrailingSlash(mountPoint), &FakeVolume::path);
  return found != volumes.end() ? &*found : nullptr;
}

int FakePlatform::QueryVolume(const char* mountPoint, platform::VolumeAttributes& attributes) {
  if (const int error = Fault("volume", mountPoint); error != 0) return error;
  const FakeVolume* volume = VolumeAt(mountPoint);
  if (volume == nullptr) return Has(mountPoint) ? EINVAL : ENOENT;
  attributes = volume->attributes;
  return volume->queryErrno;
}

// --- queries ---

platform::ListResult FakePlatform::ListDirectory(const char* path, platform::EntryVisitor& visitor) {
  Node folder;  // a copy: the visitor may change the tree
  if (const int error = Look("list", path, true, [&](Node& node) { folder = node; }); error != 0) return {error, 0};
  if (folder.kind != EntryKind::kDirectory) return {ENOTDIR, 0};
  if (folder.openErrno != 0) return {folder.openErrno, 0};
  std::int64_t visited = 0;
  for (const auto& [name, node] : folder.children) {
    if (folder.readErrno != 0 && visited++ >= folder.readErrnoAfter) break;
    platform::EntryAttributes attributes;
    const std::string full = WithoutTrailingSlash(path) + (std::string_view(path) == "/" ? "" : "/") + name;
    const int error = QueryEntry(full.c_str(), attributes);
    if (!visitor.OnEntry(name, error, attributes)) break;
  }
  return {0, folder.readErrno};
}

int FakePlatform::QueryEntry(const char* path, platform::EntryAttributes& attributes) {
  return Look("query", path, false, [&](const Node& node) {
    attributes = {node.kind,          node.Size(), node.rsrcSize,    node.modTimeSec,
                  node.createTimeSec, 0,           node.finderFlags, node.linkCount};
  });
}

int FakePlatform::QueryMountIdentity(const char* path, platform::MountIdentity& identity) {
  return Look("mountid", path, true, [&](const Node& node) {
    const FakeVolume* holder = nullptr;
    for (std::string at = WithoutTrailingSlash(path); holder == nullptr && !at.empty(); at.resize(at.rfind('/'))) {
      holder = VolumeAt(at);
    }
    if (holder == nullptr) holder = VolumeAt("/");
    const std::uint64_t id = holder != nullptr ? holder->mountId : 0;
    identity = {id, node.inode, id};
  });
}

// --- descriptors ---

int FakePlatform::Open(const char* path, OpenMode openMode, unsigned mode, int& descriptor) {
  if (const int error = Fault("open", path); error != 0) return error;
  const bool creates = openMode != OpenMode::kRead;
  std::shared_ptr<Node> node = Resolve(path, !creates);
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
    PlaceOf(*parent, name) = node;
  }
  descriptor = nextDescriptor_++;
  open_[descriptor] = {node, path};
  return 0;
}

int FakePlatform::Empty(int descriptor) {
  Node& node = *FileAt(descriptor).node;
  node.content.clear();
  node.modTimeSec = nowMillis / 1000 + fileClockAheadSeconds;
  return 0;
}

int FakePlatform::Read(int descriptor, void* buffer, std::size_t bytes, std::size_t& got) {
  OpenFile& file = FileAt(descriptor);
  if (const int error = Fault("read", file.path); error != 0) return error;
  const Node& node = *file.node;
  if (node.kind == EntryKind::kDirectory) return EISDIR;
  const auto end = static_cast<std::int64_t>(node.content.size());
  const bool fails = node.readErrno != 0;
  if (fails && file.offset >= node.readErrnoAfter) return node.readErrno;
  const std::int64_t limit = fails ? std::min(end, node.readErrnoAfter) : end;
  const std::int64_t left = std::max<std::int64_t>(limit - file.offset, 0);
  got = std::min(bytes, static_cast<std::size_t>(left));
  std::memcpy(buffer, node.content.data() + file.offset, got);
  file.offset += static_cast<std::int64_t>(got);
  return 0;
}

int FakePlatform::Write(int descriptor, const void* buffer, std::size_t bytes, std::size_t& written) {
  written = 0;
  OpenFile& file = FileAt(descriptor);
  if (const int error = Fault("write", file.path); error != 0) return error;
  const bool isShort = diskBytesLeft >= 0 && static_cast<std::int64_t>(bytes) > diskBytesLeft;
  written = isShort ? static_cast<std::size_t>(diskBytesLeft) : bytes;
  if (diskBytesLeft >= 0) diskBytesLeft -= static_cast<std::int64_t>(written);
  file.node->content.append(static_cast<const char*>(buffer), written);
  file.node->modTimeSec = nowMillis / 1000 + fileClockAheadSeconds;
  return isShort ? ENOSPC : 0;
}

int FakePlatform::ChangeDescriptorMode(int descriptor, unsigned mode) {
  const OpenFile& file = FileAt(descriptor);
  const int error = Fault("chmod", file.path);
  if (error == 0) file.node->mode = mode;
  return error;
}

// --- changing names ---

int FakePlatform::Rename(const char* from, const char* to) {
  if (const int error = Fault("rename", std::string(from) + "\n" + to); error != 0) return error;
  std::string fromName, toName;
  const std::shared_ptr<Node> fromFolder = ParentOf(from, fromName);
  const std::shared_ptr<Node> toFolder = ParentOf(to, toName);
  if (fromFolder == nullptr || toFolder == nullptr) return ENOENT;
  const std::shared_ptr<Node> node = ChildOf(*fromFolder, fromName);
  if (node == nullptr) return ENOENT;
  const std::shared_ptr<Node> target = ChildOf(*toFolder, toName);
  if (target != nullptr && target->kind == EntryKind::kDirectory && node->kind != EntryKind::kDirectory) return EISDIR;
  RemoveChild(*fromFolder, fromName);
  RemoveChild(*toFolder, toName);
  PlaceOf(*toFolder, toName) = node;
  return 0;
}

int FakePlatform::Unlink(const char* path) {
  bool isFolder = false;
  const int error = Look("unlink", path, false, [&](Node& node) { isFolder = node.kind == EntryKind::kDirectory; });
  if (error == 0 && !isFolder) Remove(path);
  return isFolder ? EISDIR : error;
}

int FakePlatform::MakeDirectory(const char* path, unsigned mode) {
  if (const int error = Fault("mkdir", path); error != 0) return error;
  std::string name;
  const std::shared_ptr<Node> parent = ParentOf(path, name);
  if (parent == nullptr) return name.empty() ? EEXIST : ENOENT;
  if (ChildOf(*parent, name) != nullptr) return EEXIST;
  std::shared_ptr<Node>& place = PlaceOf(*parent, name);
  place = NewNode(EntryKind::kDirectory);
  place->mode = mode;
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
