#include "base/log.h"

#include "tests/platform_fixture.h"

constexpr std::int64_t kDay = TqSystem::kMillisPerDay;
constexpr const char* kLine = "2023-11-14 22:13:20 0000012345 - ";  // the fake clock's start

class LogTest : public PlatformTest {
 protected:
  static std::string Daily(const char* day, const char* extension = ".log") {
    return Data("tqlogs/tqfilelist/tqfilelist") + day + extension;
  }
};

TEST_F(LogTest, LinesCarryTimeAndProcessAndEndOnce) {
  Log("INFO: x=", 7, ", ok=", true);
  for (const char* text : {"ends itself\n", ""}) TqLog::LogLine(text);
  TqLog::LogFormatted("%s %d%%", std::string(3'000, 'y').c_str(), 5);
  EXPECT_EQ(fake.ReadFile(Daily("14")), std::string(kLine) + "INFO: x=7, ok=true\n" + kLine + "ends itself\n" + kLine +
                                            "\n" + kLine + std::string(3'000, 'y') + " 5%\n");
  EXPECT_EQ(fake.Find(Daily("14"))->mode, 0666u);

  fake.nowMillis += 20 * kDay + 999;
  Log("later");
  EXPECT_EQ(fake.ReadFile(Daily("04")), "2023-12-04 22:13:20 0000012345 - later\n");
}

TEST_F(LogTest, LocationForms) {
  const char* const signature = "static bool TqClientVersionManager::IsEndOfLife(const char *)";
  TqLog::LogWithLocation(0, "/src/scan/a.cpp", 12, signature, "m%d", 1);
  for (const int kind : {-1, -2, -3}) TqLog::LogWithLocation(kind, "a.cpp", 12, "int main(int, char **)", "text");
  const std::string main = std::string(kLine) + "a.cpp:12 [main()] ";
  EXPECT_EQ(LogText(), std::string(kLine) + "a.cpp:12 [TqClientVersionManager::IsEndOfLife()]:\tm1\n" + main +
                           "NOTE:\ttext\n" + main + "WARNING:\ttext\n" + main + "ERROR:\ttext\n");
}

TEST_F(LogTest, OpensOnlyBesideOrInAnExistingDataFolder) {
  TqLog::OpenLog("/nodata/tqlogs/x", "/nodata/");
  Log("dropped");
  EXPECT_FALSE(TqLog::IsOpen() || fake.Has("/nodata"));
  TqLog::OpenLog("/nodatabase/deep/mylog/", "/nodata/");  // the prefix counts with its separator
  Log("kept");
  EXPECT_EQ(fake.ReadFile("/nodatabase/deep/mylog/mylog14.log"), std::string(kLine) + "kept\n");
  EXPECT_EQ(fake.Find("/nodatabase/deep")->mode, 0777u);
  Fail("mkdir", "");
  TqLog::OpenLog("/refused/log", "");
  Log("dropped");
  fake.MakeFolders("/refused/log");
  Log("written once the folder is there");
  EXPECT_EQ(fake.ReadFile("/refused/log/log14.log"), std::string(kLine) + "written once the folder is there\n");
}

TEST_F(LogTest, WritesIntoPlainFilesOnly) {
  fake.WriteFile("/etc/passwd", "root");
  fake.MakeLink(Daily("14"), "/etc/passwd");
  Log("through a link");
  EXPECT_EQ(fake.ReadFile("/etc/passwd"), "root");
  FakePlatform::Node& hard = fake.WriteFile(Daily("14"), "");
  hard.linkCount = 2;
  Log("into a file with a second name");
  hard.linkCount = 1;
  Log("kept");
  EXPECT_EQ(hard.content, std::string(kLine) + "kept\n");
}

TEST_F(LogTest, CleanUpDeletesTheDaysAheadOncePerTenMinutes) {
  const auto fillMonth = [this] {
    for (int day = 0; day <= 32; ++day) fake.WriteFile(TqLog::DailyFileName(day), "old");
    fake.WriteFile(Daily("17", ".zip"), "old");
  };
  const auto remaining = [this] { return fake.Names(Data("tqlogs/tqfilelist")).size(); };
  fillMonth();
  Log("first");
  for (const char* day : {"16", "17", "18", "19", "20"}) EXPECT_FALSE(fake.Has(Daily(day))) << day;
  EXPECT_EQ(remaining(), 28u);  // 00 to 32 less five, and less the archive
  fillMonth();
  fake.nowMillis += 600'000;
  Log("too early");
  EXPECT_EQ(remaining(), 34u);
  fake.nowMillis += 1;
  Log("due");
  EXPECT_EQ(remaining(), 28u);
  fillMonth();
  fake.nowMillis += 14 * kDay;  // the 28th: the days wrap
  Log("now");
  for (const char* day : {"00", "01", "02", "03", "04", "05", "30", "31"}) EXPECT_FALSE(fake.Has(Daily(day))) << day;
  EXPECT_TRUE(fake.Has(Daily("06")) && fake.Has(Daily("29")));
}

TEST_F(LogTest, ClockTexts) {
  EXPECT_EQ(TqSystem::GmtDateTimeText(-1), "19691231235959");
  EXPECT_EQ(TqSystem::GmtDateTimeText(0, "%Y/%m"), "1970/01");
  EXPECT_EQ(TqSystem::GmtDateTimeText(0, std::string(100, 'x').c_str()), std::string(100, 'x'));
  EXPECT_EQ(TqSystem::GmtDateTimeText(0, std::string(101, 'x').c_str()), "");
  fake.localOffsetSeconds = -5 * 3600;
  EXPECT_EQ(Joined(TqSystem::NowAsGmtText(), TqSystem::NowAsLocalText()), "2023111422132020231114171320");
  EXPECT_TRUE(TqSystem::DaysBetween(kDay - 1, 0) == 0 && TqSystem::DaysBetween(0, 2 * kDay) == 2);
  EXPECT_TRUE(TqSystem::DaysBetween(777'772'800'000, 0) == 9001 && TqSystem::DaysBetween(INT64_MAX, INT64_MIN) == 9001);
}
