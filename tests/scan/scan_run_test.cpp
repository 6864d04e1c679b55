#include "tests/scan/scan_run_fixture.h"

TEST_F(ScanRunTest, Try) {
  EXPECT_EQ(Run(), 0);
  for (auto& n : Folder()) printf("%s\n", n.c_str());
  printf("%s\n", List(kRootList).c_str());
  printf("%s\n", List(kDriveList).c_str());
  printf("%s\n", List("topdirs.xml").c_str());
  printf("%s\n", LogText().c_str());
}
