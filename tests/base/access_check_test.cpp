#include "base/access_check.h"

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
  Fail("open", "/a/fifo");
  EXPECT_FALSE(TqSystem::CurrentLoginCanRead("/a/fifo", detail));
  EXPECT_EQ(detail, "not_a_regular_file") << "and was never opened";
}

TEST_F(AccessCheckTest, ModeBitsOfEveryComponent) {
  fake.WriteFile("/a/b/file", "x");
  EXPECT_EQ(Answer("nobody"), "no unknown_login");
  const auto with = [&](const char* path, unsigned mode, unsigned userId, unsigned groupId) {
    auto& node = *fake.Find(path);
    std::tie(node.mode, node.userId, node.groupId) = std::tuple(mode, userId, groupId);
    return Answer("bob");
  };
  EXPECT_EQ(with("/a/b/file", 0600, 501, 20), "yes mode_bits_allow");
  EXPECT_EQ(with("/a/b/file", 0077, 501, 20), "no mode_bits_deny_at=/a/b/file") << "the owner's bits alone count";
  EXPECT_EQ(with("/a/b/file", 0707, 0, 80), "no mode_bits_deny_at=/a/b/file") << "a member's: the group's alone";
  EXPECT_EQ(with("/a/b/file", 0004, 0, 0), "yes mode_bits_allow");
  EXPECT_EQ(with("/a/b", 0766, 0, 0), "no mode_bits_deny_at=/a/b") << "a folder must be searchable";
  EXPECT_EQ(with("/a/b", 0711, 0, 0), "yes mode_bits_allow");
  fake.Find("/a")->mode = 0;
  EXPECT_EQ(Answer("root"), "yes mode_bits_allow");
  fake.Remove("/a/b/file");
  EXPECT_EQ(Answer("root"), "no mode_bits_deny_at=/a/b/file");
}
