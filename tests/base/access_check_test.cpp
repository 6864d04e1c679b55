#include "base/access_check.h"

#include <cerrno>
#include <tuple>

#include "tests/platform_fixture.h"

class AccessCheckTest : public PlatformTest {
 protected:
  AccessCheckTest() { fake.logins.push_back({"root", 0, {0}, {"wheel"}}); }
  /// The detail, in front of it whether the login can read "/a/b/file".
  std::string Answer(const char* login) {
    TqString detail;
    const bool can = TqSystem::LoginCanRead(login, "/a/b/file", detail);
    return (can ? "yes " : "no ") + std::string(detail.View());
  }
  void SetMode(const char* path, unsigned mode, unsigned userId, unsigned groupId) {
    std::tie(fake.Find(path)->mode, fake.Find(path)->userId, fake.Find(path)->groupId) =
        std::tie(mode, userId, groupId);
  }
};

TEST_F(AccessCheckTest, CurrentLoginOpensTheFile) {
  TqString detail;
  fake.WriteFile("/a/file", "x");
  EXPECT_TRUE(TqSystem::CurrentLoginCanRead("/a/file", detail));
  EXPECT_EQ(detail, "open_succeeded");
  fake.Find("/a/file")->openErrno = EACCES;
  EXPECT_FALSE(TqSystem::CurrentLoginCanRead("/a/file", detail));
  EXPECT_EQ(detail, "errno=13 (Permission denied)");
  fake.MakeSpecial("/a/fifo", platform::EntryKind::kFifo);
  fake.fault = [](std::string_view operation, std::string_view) { return operation == "open" ? EIO : 0; };
  EXPECT_FALSE(TqSystem::CurrentLoginCanRead("/a/fifo", detail));
  EXPECT_EQ(detail, "not_a_regular_file") << "and was never opened";
}

TEST_F(AccessCheckTest, ModeBitsOfEveryComponent) {
  fake.WriteFile("/a/b/file", "x");
  EXPECT_EQ(Answer("bob"), "yes mode_bits_allow");
  EXPECT_EQ(Answer("nobody"), "no unknown_login");
  SetMode("/a/b/file", 0077, 501, 20);
  EXPECT_EQ(Answer("bob"), "no mode_bits_deny_at=/a/b/file") << "the owner's bits alone count for the owner";
  SetMode("/a/b/file", 0707, 0, 80);
  EXPECT_EQ(Answer("bob"), "no mode_bits_deny_at=/a/b/file") << "the group's bits alone count for a member";
  SetMode("/a/b/file", 0004, 0, 0);
  EXPECT_EQ(Answer("bob"), "yes mode_bits_allow");
  SetMode("/a/b", 0766, 0, 0);
  EXPECT_EQ(Answer("bob"), "no mode_bits_deny_at=/a/b") << "a folder must be searchable";
  SetMode("/a/b", 0711, 0, 0);
  EXPECT_EQ(Answer("bob"), "yes mode_bits_allow");
  SetMode("/a", 0000, 501, 20);
  EXPECT_EQ(Answer("root"), "yes mode_bits_allow");
  fake.Remove("/a/b/file");
  EXPECT_EQ(Answer("root"), "no mode_bits_deny_at=/a/b/file");
}
