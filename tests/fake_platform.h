#pragma once

// An in-memory platform for unit tests: a deterministic file system (entries are listed in the order of their
// creation), a clock that only sleep moves, volumes, and switches for everything that differs between systems or can go
// wrong. Constructing one puts it in force; destroying it puts the former one back.

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux_texts.h"
#include "platform/platform.h"
#include "platform/property_files.h"

/// Thrown by the fake's Exit in place of ending the process.
struct ExitCalled {
  int status;
};

class FakePlatform : public platform::Files, public platform::Volumes, public platform::Machine {
 public:
  /// One entry. Tests change the fields directly.
  struct Node {
    platform::EntryKind kind = platform::EntryKind::kRegular;
    std::string content;                   ///< regular: the bytes; symbolic link: its target
    std::optional<std::int64_t> fakeSize;  ///< the size told instead of the content's (big and sparse files)
    std::int64_t rsrcSize = 0;
    std::string resourceFork;                        ///< what reading the resource fork gives
    std::int64_t modTimeSec = 0, createTimeSec = 0;  ///< creation 0: not reported
    std::uint16_t finderFlags = 0;
    std::uint32_t linkCount = 1;
    unsigned mode = 0644, userId = 501, groupId = 20;
    bool isSigned = false, backupExcluded = false;
    int openErrno = 0;  ///< opening the file, or listing the directory
    int readErrno = 0;  ///< after readErrnoAfter bytes (files) or entries (directories)
    std::int64_t readErrnoAfter = 0;
    std::uint64_t inode = 0;
    std::vector<std::pair<std::string, std::shared_ptr<Node>>> children;  ///< directories, in creation order

    std::int64_t Size() const { return fakeSize.value_or(static_cast<std::int64_t>(content.size())); }
    platform::FileFacts Facts() const { return {kind, Size(), modTimeSec, linkCount}; }
  };
  struct FakeVolume {
    std::string path;  ///< without trailing "/" (but "/")
    bool isLocal = true, isBrowsable = true;
    std::optional<platform::VolumePropertyError> error;
    platform::VolumeAttributes attributes;
    int queryErrno = 0;
    platform::MediaWalk media;
    std::uint64_t mountId = 0;
  };

  FakePlatform();
  ~FakePlatform() override { platform::SetPlatform(former_); }
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;

  // --- building and looking at the file system (missing parents are made; times are the fake clock's) ---
  Node& MakeFolders(std::string_view path);
  Node& WriteFile(std::string_view path, std::string_view content) {
    return MakeSpecial(path, platform::EntryKind::kRegular, content);
  }
  Node& MakeLink(std::string_view path, std::string_view target) {
    return MakeSpecial(path, platform::EntryKind::kSymbolicLink, target);
  }
  Node& MakeSpecial(std::string_view path, platform::EntryKind kind, std::string_view content = "");
  /// Removes an entry with all below it; true when it was there.
  bool Remove(std::string_view path);
  /// Null when missing. Links are not followed in the last component.
  Node* Find(std::string_view path) { return Resolve(path, false).get(); }
  bool Has(std::string_view path) { return Find(path) != nullptr; }
  /// Content of a regular file; "<missing>" when there is none.
  std::string ReadFile(std::string_view path);
  /// Names in a folder, in listing order.
  std::vector<std::string> Names(std::string_view folder);

  // --- volumes: "/" is there from the start; adding one makes its folder ---
  FakeVolume& AddVolume(std::string_view path, std::uint64_t totalBytes = 1'000'000'000);
  /// Unmounts: its entries vanish, an empty folder stays behind when `leaveFolder`.
  void Unmount(std::string_view path, bool leaveFolder = true);
  std::deque<FakeVolume> volumes;  ///< a deque: references that AddVolume gave stay valid
  std::vector<platform::MountTableRow> skippedMounts;

  // --- clock, sleep, faults ---
  std::int64_t nowMillis = 1'700'000'000'000;  ///< 2023-11-14 22:13:20 GMT
  std::int64_t localOffsetSeconds = 0;
  std::vector<std::int64_t> sleepsMicros;            ///< every sleep so far
  std::function<void(std::int64_t micros)> onSleep;  ///< called after the clock moved
  /// Asked before every operation; a result other than 0 is its errno. Operations: "list", "query", "lstat", "finder",
  /// "exclusion", "stat", "mountid", "open", "read", "write", "close", "lock", "rename", "unlink", "mkdir", "chmod",
  /// "temp", "volume", "fork". For "rename" the path is "<from>\n<to>"; for "read" and "write" the file's.
  std::function<int(std::string_view operation, std::string_view path)> fault;
  /// Bytes that may still be written in all; a write beyond is cut short with ENOSPC. Negative: no limit.
  std::int64_t diskBytesLeft = -1;
  /// The errno of refusals by privacy protection; 0: this system has none.
  int privacyErrno = 0;
  /// The file system's clock runs this far ahead of nowMillis (file times).
  std::int64_t fileClockAheadSeconds = 0;

  // --- the machine ---
  std::vector<platform::LoginFacts> logins{{"bob", 501, {20, 80}, {"staff", "admin"}}};  ///< the first runs the process
  int sideEffectRestrictions = 0;                                                        ///< how often asked for
  platform::HardwareAddressStatus hardwareAddressStatus = platform::HardwareAddressStatus::kFound;
  std::string hardwareAddress = "a1-b2-c3-d4-e5-f6";
  std::vector<std::uint32_t> randoms;   ///< handed out in turn (modulo the bound), then a counter from 0
  std::vector<std::string> shellLines;  ///< every line run
  /// Runs a shell line of the fake: gets the line, may write files, gives the raw wait status.
  std::function<int(const std::string& line)> shell;
  int childPollsUntilEnd = 0, killErrno = 0;  ///< polls after which a started child has ended; the errno of kills
  std::vector<int> killedChildren;

  // --- platform::Files ---
  platform::ListResult ListDirectory(const char* path, platform::EntryVisitor& visitor) override;
  bool IsPrivacyDenial(int error) override { return error != 0 && error == privacyErrno; }
  int QueryEntry(const char* path, platform::EntryAttributes& attributes) override;
  int Lstat(const char* path, platform::StatFacts& facts) override {
    return Look("lstat", path, false, [&](Node& n) { facts = {n.kind, n.Size(), n.modTimeSec, n.linkCount}; });
  }
  int QueryFinderFlags(const char* path, std::uint16_t& finderFlags) override {
    return Look("finder", path, false, [&](Node& node) { finderFlags = node.finderFlags; });
  }
  int QueryBackupExclusion(const char* path, bool& excluded) override {
    return Look("exclusion", path, false, [&](Node& node) { excluded = node.backupExcluded; });
  }
  int StatThroughLinks(const char* path, platform::FileFacts& facts) override {
    return Look("stat", path, true, [&](Node& node) { facts = node.Facts(); });
  }
  int ReadResourceFork(const char* path, std::string& bytes) override {
    return Look("fork", path, true, [&](Node& node) { bytes = node.resourceFork; });
  }
  bool HasValidCodeSignature(const char* path) override { return Has(path) && Find(path)->isSigned; }
  int QueryAccess(const char* path, platform::AccessFacts& facts) override {
    return Look("stat", path, true, [&](Node& node) { facts = {node.userId, node.groupId, node.mode}; });
  }
  int QueryMountIdentity(const char* path, platform::MountIdentity& identity) override;
  int Open(const char* path, platform::OpenMode openMode, unsigned mode, int& descriptor) override;
  int Close(int descriptor) override {
    const std::string path = FileAt(descriptor).path;
    open_.erase(descriptor);
    return Fault("close", path);
  }
  int Read(int descriptor, void* buffer, std::size_t bytes, std::size_t& got) override;
  int Write(int descriptor, const void* buffer, std::size_t bytes, std::size_t& written) override;
  int Seek(int descriptor, std::int64_t offset) override {
    FileAt(descriptor).offset = offset;
    return 0;
  }
  int Empty(int descriptor) override;
  int StatDescriptor(int descriptor, platform::FileFacts& facts) override {
    facts = FileAt(descriptor).node->Facts();
    return 0;
  }
  int ChangeDescriptorMode(int descriptor, unsigned mode) override;
  int TryLockExclusive(int descriptor) override { return Fault("lock", FileAt(descriptor).path); }
  int Rename(const char* from, const char* to) override;
  int Unlink(const char* path) override;
  int MakeDirectory(const char* path, unsigned mode) override;
  int MakeHiddenDirectory(const char* path, unsigned mode) override { return MakeDirectory(path, mode); }
  int ChangeMode(const char* path, unsigned mode) override {
    return Look("chmod", path, false, [&](Node& node) { node.mode = mode; });
  }
  int MakeTemporaryFile(std::string_view directory, std::string_view prefix, std::string_view suffix,
                        std::string& path) override;

  // --- platform::Volumes ---
  int ListMountedVolumes(std::vector<platform::MountedVolume>& mounted) override {
    mounted.clear();
    for (const auto& volume : volumes)
      mounted.emplace_back(volume.path, volume.isLocal, volume.isBrowsable, volume.error);
    return 0;
  }
  int QueryVolume(const char* mountPoint, platform::VolumeAttributes& attributes) override;
  platform::MediaWalk WalkMedia(const char* mountPoint, const std::string& deviceName) override {
    const FakeVolume* volume = VolumeAt(mountPoint);
    return volume != nullptr && !deviceName.empty() ? volume->media : platform::MediaWalk{};
  }
  int ReadSkippedMounts(std::vector<platform::MountTableRow>& rows) override {
    rows = skippedMounts;
    return 0;
  }
  platform::PropertyListStatus ReadBackupDestinations(const char* path,
                                                      std::vector<platform::DestinationValue>& values) override {
    platform::PropertyValue list;
    const platform::PropertyListStatus status = platform::ReadPropertyDictionary(path, list);
    values.clear();
    platform::CollectDestinationValues(list, values);
    return status;
  }

  // --- platform::Machine ---
  std::int64_t NowMillis() override { return nowMillis; }
  void SleepMicros(std::int64_t micros) override {
    sleepsMicros.push_back(micros);
    nowMillis += micros / 1000;
    if (onSleep) onSleep(micros);
  }
  std::int64_t LocalOffsetSeconds(std::int64_t) override { return localOffsetSeconds; }
  std::string TimeZoneName(std::int64_t) override { return "UTC"; }
  platform::LocaleTexts DescribeLocale() override { return {"en_US", "de_DE", "date and time", "time", "date"}; }
  std::string GroupedNumber(std::int64_t number) override { return platform::GroupedInThrees(number); }
  int ProcessId() override { return 12345; }
  unsigned EffectiveUserId() override { return logins[0].userId; }
  void RestrictSideEffects() override { ++sideEffectRestrictions; }
  bool FindLogin(const std::string& name, platform::LoginFacts& login) override {
    const auto known = std::ranges::find(logins, name, &platform::LoginFacts::name);
    if (known == logins.end()) return false;
    login = *known;
    return true;
  }
  bool CurrentLogin(platform::LoginFacts& login) override {
    login = logins[0];
    return true;
  }
  [[noreturn]] void Exit(int status) override { throw ExitCalled{status}; }
  platform::MemoryFigures ProcessMemory() override { return {1'048'576'000, 104'857'600}; }
  std::uint64_t HardwareMemoryBytes() override { return 17'179'869'184; }
  std::string MachineName() override { return "arm64"; }
  bool IsTranslatedProcess() override { return false; }
  bool Query64BitHardware(bool& is64Bit) override {
    is64Bit = true;
    return true;
  }
  bool HostName(std::string& name) override {
    name = "TestHost.local";
    return true;
  }
  platform::HardwareAddressStatus HardwareAddress(std::string& address) override {
    address = hardwareAddress;
    return hardwareAddressStatus;
  }
  std::uint32_t RandomBelow(std::uint32_t bound) override {
    const std::uint32_t index = randomIndex_++;
    return (index < randoms.size() ? randoms[index] : index) % std::max(bound, 1U);
  }
  platform::PropertyListStatus ReadProductVersion(const char* path, std::string& version) override {
    platform::PropertyValue list;
    const platform::PropertyListStatus status = platform::ReadPropertyDictionary(path, list);
    version = platform::ProductVersionIn(list);
    return status;
  }
  int RunShellAndWait(const char* line, int& error) override {
    shellLines.emplace_back(line);
    error = 0;
    return shell ? shell(line) : 0;
  }
  int StartShell(const char* line, int& error) override {
    childPolls_ = 0;
    RunShellAndWait(line, error);
    return 777;
  }
  platform::ChildStatus PollChild(int child) override {
    if (!killedChildren.empty() || childPolls_++ >= childPollsUntilEnd) return {true, child, 0};
    return {false, 0, 0};
  }
  int KillChildGroup(int child) override {
    if (killErrno == 0) killedChildren.push_back(child);
    return killErrno;
  }

 private:
  struct OpenFile {
    std::shared_ptr<Node> node;
    std::string path;
    std::int64_t offset = 0;
  };
  int Fault(std::string_view operation, std::string_view path) const { return fault ? fault(operation, path) : 0; }
  std::shared_ptr<Node> Resolve(std::string_view path, bool followLast, int depth = 0) const;
  /// Calls `take` with the entry that a query is about; gives the query's errno.
  int Look(std::string_view operation, std::string_view path, bool followLast,
           const std::function<void(Node&)>& take) const;
  std::shared_ptr<Node> ParentOf(std::string_view path, std::string& name) const;
  std::shared_ptr<Node> NewNode(platform::EntryKind kind);
  FakeVolume* VolumeAt(std::string_view mountPoint);
  OpenFile& FileAt(int descriptor) { return open_.at(descriptor); }  ///< one that is not open ends the test

  std::shared_ptr<Node> root_;
  std::map<int, OpenFile> open_;
  int nextDescriptor_ = 1000, childPolls_ = 0;
  std::uint64_t nextInode_ = 2, nextMountId_ = 1;
  std::uint32_t randomIndex_ = 0, temporaryIndex_ = 0;
  platform::Platform former_;
};
