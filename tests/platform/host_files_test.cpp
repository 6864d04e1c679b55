// The host's own file operations, in a temporary folder.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <tuple>

#include "platform/platform.h"
#include "platform/whole_file.h"

using namespace platform;

/// Keeps what is listed; up to `most` entries.
struct Collector : EntryVisitor {
  explicit Collector(std::size_t number = SIZE_MAX) : most(number) {}
  bool OnEntry(std::string_view name, int queryErrno, const EntryAttributes& attributes) override {
    EXPECT_EQ(queryErrno, 0) << name;
    entries[std::string(name)] = attributes;
    return entries.size() < most;
  }
  std::map<std::string, EntryAttributes> entries;
  std::size_t most;
};

class HostFilesTest : public ::testing::Test {
 protected:
  HostFilesTest() {
    std::string name = "/tmp/tqplatformXXXXXX";
    root = mkdtemp(name.data());
  }
  ~HostFilesTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
  std::string At(const std::string& name) const { return root + "/" + name; }
  void Put(const std::string& name, const std::string& content) const { std::ofstream(At(name)) << content; }
  void MakeLink(const std::string& name, const char* target) { ASSERT_EQ(symlink(target, At(name).c_str()), 0); }
  void MakeFifo() { ASSERT_EQ(mkfifo(At("fifo").c_str(), 0600), 0); }
  std::string Content(const std::string& name) const {
    std::string content;
    return ReadWholeFile(At(name).c_str(), 1 << 30, content) == 0 ? content : "<unreadable>";
  }
  unsigned ModeOf(const std::string& name) const {
    struct stat facts {};
    lstat(At(name).c_str(), &facts);
    return facts.st_mode & 07777U;
  }
  int Open(const std::string& name, OpenMode mode) {
    Reset();
    return files.Open(At(name).c_str(), mode, 0666, descriptor);
  }
  void Reset() {
    if (descriptor >= 0) files.Close(descriptor);
    descriptor = -1;
  }

  Files& files = *HostPlatform().files;
  std::string root;
  int descriptor = -1;
};

TEST_F(HostFilesTest, ListsEveryKindOfEntryWithoutFollowingOrOpeningIt) {
  Put("file", "12345");
  timeval times[2] = {{1'000'000'000, 0}, {1'234'567'890, 999'999}};
  ASSERT_EQ(utimes(At("file").c_str(), times), 0);
  Put("sparse", "");
  ASSERT_EQ(truncate(At("sparse").c_str(), std::int64_t{5} << 30), 0);
  ASSERT_EQ(link(At("sparse").c_str(), At("hard").c_str()), 0);
  ASSERT_EQ(mkdir(At("folder").c_str(), 0755), 0);
  MakeLink("link", "folder");
  MakeLink("..dangling", "nowhere");
  MakeFifo();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  At("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(socketDescriptor);
  const std::string hostile = " \xFF\xFEn\\\n\r\t\"";
  const std::string longest(255, 'n');
  for (const std::string& name : {hostile, longest}) Put(name, "x");

  Collector seen;
  const ListResult result = files.ListDirectory(root.c_str(), seen);
  EXPECT_EQ(std::tuple(result.openErrno, result.readErrno), std::tuple(0, 0));
  EXPECT_EQ(seen.entries.size(), 10U);
  for (const std::string& name : {std::string("file"), std::string("sparse"), std::string("hard"), hostile, longest}) {
    EXPECT_TRUE(seen.entries.contains(name) && seen.entries[name].kind == EntryKind::kRegular) << name;
  }
  for (const auto& [name, kind] : {std::pair{"folder", EntryKind::kDirectory},
                                   {"link", EntryKind::kSymbolicLink},
                                   {"..dangling", EntryKind::kSymbolicLink},
                                   {"fifo", EntryKind::kFifo},
                                   {"socket", EntryKind::kSocket}}) {
    EXPECT_EQ(seen.entries[name].kind, kind) << name;
  }
  const EntryAttributes& file = seen.entries["file"];
  EXPECT_EQ(std::tuple(file.dataSize, file.modTimeSec), std::tuple(5, 1'234'567'890));
  EXPECT_NE(file.createTimeSec, 1'234'567'890);
  EXPECT_EQ(seen.entries["sparse"].dataSize, std::int64_t{5} << 30);
  EXPECT_EQ(seen.entries["hard"].linkCount, 2U);

  EntryAttributes device;
  EXPECT_TRUE(files.QueryEntry("/dev/null", device) == 0 && device.kind == EntryKind::kCharacterDevice);
  FileFacts through;
  StatFacts plain;
  EXPECT_TRUE(files.StatThroughLinks(At("link").c_str(), through) == 0 && through.kind == EntryKind::kDirectory);
  EXPECT_TRUE(files.Lstat(At("link").c_str(), plain) == 0 && plain.kind == EntryKind::kSymbolicLink);
  EXPECT_EQ(files.QueryEntry(At("missing").c_str(), device), ENOENT);
  EXPECT_EQ(files.QueryEntry(At("file/below").c_str(), device), ENOTDIR);
}

TEST_F(HostFilesTest, ListsBeyondOneBufferStopsOnRequestAndNests) {
  constexpr int kCount = 2000;
  const std::string tail(200, 'n');  // 2000 such names need more than one buffer
  for (int i = 0; i < kCount; ++i) Put(std::to_string(i) + tail, "");
  struct Nesting : Collector {
    bool OnEntry(std::string_view name, int queryErrno, const EntryAttributes& attributes) override {
      Collector inner(10);
      HostPlatform().files->ListDirectory("/usr/bin", inner);
      return Collector::OnEntry(name, queryErrno, attributes);
    }
  } nesting;
  Collector all, few(3);
  for (Collector* collector : {&all, static_cast<Collector*>(&nesting)}) {
    files.ListDirectory(root.c_str(), *collector);
    EXPECT_EQ(collector->entries.size(), static_cast<std::size_t>(kCount));
    for (int i = 0; i < kCount; ++i) EXPECT_TRUE(collector->entries.contains(std::to_string(i) + tail)) << i;
  }
  EXPECT_TRUE(files.ListDirectory(root.c_str(), few).readErrno == 0 && few.entries.size() == 3);
}

TEST_F(HostFilesTest, TellsWhyADirectoryCannotBeListed) {
  Put("file", "x");
  MakeFifo();
  ASSERT_TRUE(mkdir(At("closed").c_str(), 0) == 0 && chmod(root.c_str(), 0755) == 0);
  Collector none;
  for (const auto& [name, error] : {std::pair{std::string("missing"), ENOENT},
                                    {"file", ENOTDIR},
                                    {"fifo", ENOTDIR},
                                    {std::string(5000, 'x'), ENAMETOOLONG}}) {
    EXPECT_EQ(files.ListDirectory(At(name).c_str(), none).openErrno, error) << name;
  }
  const uid_t former = geteuid();
  if (former != 0 || seteuid(65'534) == 0) {  // root may list anything
    EXPECT_EQ(files.ListDirectory(At("closed").c_str(), none).openErrno, EACCES);
    EntryAttributes closed;
    EXPECT_EQ(files.QueryEntry(At("closed").c_str(), closed), 0);
    ASSERT_EQ(seteuid(former), 0);
  }
  EXPECT_TRUE(none.entries.empty());
}

TEST_F(HostFilesTest, ADirectoryRemovedMeanwhileJustEndsOneThatIsThereDoesNot) {
  class Removing : public EntryVisitor {
   public:
    bool OnEntry(std::string_view, int, const EntryAttributes&) override {
      std::filesystem::remove_all(folder);
      if (isMadeAgain) std::filesystem::create_directory(folder);
      return true;
    }
    std::string folder;
    bool isMadeAgain = false;
  } visitor;
  visitor.folder = At("folder");
  for (const bool isMadeAgain : {false, true}) {
    std::filesystem::create_directory(visitor.folder);
    Put("folder/file", "x");
    visitor.isMadeAgain = isMadeAgain;
    EXPECT_EQ(files.ListDirectory(visitor.folder.c_str(), visitor).readErrno, isMadeAgain ? ENOENT : 0);
  }
}

TEST_F(HostFilesTest, OpensInEveryModeWithoutHangingOrFollowing) {
  std::size_t written = 0;
  ASSERT_EQ(Open("new", OpenMode::kCreateExclusive), 0);
  EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(files.Write(descriptor, "hello world", 11, written), 0);
  EXPECT_EQ(written, 11U);
  char text[6] = "";
  std::size_t got = 0;
  EXPECT_EQ(files.Seek(descriptor, 6), 0);
  EXPECT_EQ(files.Read(descriptor, text, 5, got), 0);
  EXPECT_STREQ(text, "world");
  EXPECT_EQ(files.Read(descriptor, text, 5, got), 0);
  EXPECT_EQ(got, 0U);
  EXPECT_EQ(Open("new", OpenMode::kCreateExclusive), EEXIST);
  MakeLink("link", "elsewhere");
  EXPECT_EQ(Open("link", OpenMode::kCreateExclusive), EEXIST);
  for (const OpenMode mode : {OpenMode::kWrite, OpenMode::kAppend}) {
    EXPECT_EQ(Open("link", mode), ELOOP);
    EXPECT_TRUE(Open("new", mode) == 0 && files.Write(descriptor, "J!", 2, written) == 0);
  }
  EXPECT_FALSE(std::filesystem::exists(At("elsewhere")));
  EXPECT_EQ(Content("new"), "J!llo worldJ!");
  EXPECT_EQ(files.Empty(descriptor), 0);
  EXPECT_EQ(Content("new"), "<unreadable>");  // empty
  EXPECT_EQ(Open("missing", OpenMode::kRead), ENOENT);

  MakeFifo();
  EXPECT_EQ(Open("fifo", OpenMode::kRead), 0);
  Reset();
  for (const OpenMode mode : {OpenMode::kAppend, OpenMode::kWrite}) EXPECT_EQ(Open("fifo", mode), ENXIO);
}

TEST_F(HostFilesTest, TellsOfAFullDiskAndLocksExclusively) {
  std::size_t written = 99;
  ASSERT_EQ(files.Open("/dev/full", OpenMode::kAppend, 0666, descriptor), 0);
  EXPECT_EQ(files.Write(descriptor, "x", 1, written), ENOSPC);
  EXPECT_EQ(written, 0U);
  EXPECT_EQ(Open(".", OpenMode::kRead), 0);
  std::size_t got = 0;
  char byte = 0;
  EXPECT_EQ(files.Read(descriptor, &byte, 1, got), EISDIR);

  ASSERT_EQ(Open("lock", OpenMode::kAppend), 0);
  int other = -1;
  ASSERT_EQ(files.Open(At("lock").c_str(), OpenMode::kRead, 0, other), 0);
  EXPECT_EQ(files.TryLockExclusive(descriptor), 0);
  EXPECT_EQ(files.TryLockExclusive(other), EWOULDBLOCK);
  Reset();
  EXPECT_EQ(files.TryLockExclusive(other), 0);
  files.Close(other);
}

TEST_F(HostFilesTest, GivesExactModesWhateverTheUmask) {
  const mode_t former = umask(077);
  EXPECT_EQ(files.MakeDirectory(At("folder").c_str(), 0777), 0);
  EXPECT_EQ(files.MakeHiddenDirectory(At(".hidden").c_str(), 0777), 0);
  EXPECT_EQ(Open("file", OpenMode::kAppend), 0);
  EXPECT_EQ(umask(former), static_cast<mode_t>(077));  // given back
  EXPECT_EQ(std::tuple(ModeOf("folder"), ModeOf(".hidden"), ModeOf("file")), std::tuple(0777U, 0777U, 0600U));
  EXPECT_EQ(files.ChangeDescriptorMode(descriptor, 0666), 0);
  EXPECT_EQ(ModeOf("file"), 0666U);
  EXPECT_EQ(files.MakeDirectory(At("folder").c_str(), 0700), EEXIST);
  EXPECT_EQ(files.MakeDirectory(At("no/folder").c_str(), 0700), ENOENT);
  EXPECT_EQ(files.ChangeMode(At("folder").c_str(), 0750), 0);
  MakeLink("to folder", "folder");
  files.ChangeMode(At("to folder").c_str(), 0777);  // refused, or the link's own mode: by system
  EXPECT_EQ(ModeOf("folder"), 0750U);
  AccessFacts access;
  EXPECT_EQ(files.QueryAccess(At("folder").c_str(), access), 0);
  EXPECT_EQ(std::tuple(access.mode, access.userId), std::tuple(0750U, geteuid()));
}

TEST_F(HostFilesTest, RenamesReplacesUnlinksAndNamesTemporaries) {
  Put("from", "new");
  Put("to", "old");
  const std::string from = At("from"), to = At("to");
  EXPECT_EQ(files.Rename(from.c_str(), to.c_str()), 0);
  EXPECT_EQ(Content("to"), "new");
  EXPECT_EQ(files.Rename(from.c_str(), to.c_str()), ENOENT);
  for (const int error : {0, ENOENT}) EXPECT_EQ(files.Unlink(to.c_str()), error);

  std::string made[2];
  for (std::string& path : made) {
    ASSERT_EQ(files.MakeTemporaryFile(root, "tqr", ".txt", path), 0);
    EXPECT_TRUE(path.starts_with(root + "/tqr") && path.ends_with(".txt") && path.size() == At("tqrXXXXXX.txt").size());
    EXPECT_EQ(ModeOf(path.substr(root.size() + 1)), 0600U);
  }
  EXPECT_NE(made[0], made[1]);
}

TEST_F(HostFilesTest, ReadsWholeRegularFilesWithinTheLimit) {
  Put("empty", "");
  const std::string big = std::string(200'000, 'b') + std::string(1, '\0') + "end";
  Put("big", big);
  std::string content = "before";
  const auto size = static_cast<std::int64_t>(big.size());
  EXPECT_TRUE(ReadWholeFile(At("big").c_str(), size, content) == 0 && content == big);
  EXPECT_EQ(ReadWholeFile(At("big").c_str(), size - 1, content), EFBIG);
  MakeFifo();
  for (const auto& [name, error] : {std::pair{"empty", ENODATA}, {"missing", ENOENT}, {"", EINVAL}, {"fifo", EINVAL}}) {
    EXPECT_EQ(ReadWholeFile(At(name).c_str(), size, content), error) << name;
  }
}
