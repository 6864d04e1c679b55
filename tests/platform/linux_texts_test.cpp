#include "platform/linux_texts.h"

#include <gtest/gtest.h>

using namespace platform;

using Bytes = std::vector<std::uint8_t>;

const Bytes kAddress{0xA1, 0, 3, 4, 5, 0xFE};

static InterfaceFacts Interface(const char* name, std::uint32_t index, bool hasDevice, bool isRandom = false) {
  return {name, index, kAddress, true, hasDevice, isRandom};
}

static const char* ChosenOf(const std::vector<InterfaceFacts>& interfaces) {
  const InterfaceFacts* chosen = ChooseInterface(interfaces);
  return chosen == nullptr ? "none" : chosen->name.c_str();
}

TEST(LinuxTextsTest, GroupsDigits) {
  for (const auto& [number, text] : {std::pair<std::int64_t, const char*>{0, "0"},
                                     {999, "999"},
                                     {-999, "-999"},
                                     {1'000, "1,000"},
                                     {-123'456, "-123,456"},
                                     {INT64_MIN, "-9,223,372,036,854,775,808"}}) {
    EXPECT_EQ(GroupedInThrees(number), text);
  }
}

TEST(LinuxTextsTest, ReadsPagesAndNumbers) {
  const MemoryFigures figures = ParseStatm("2000 100 90 1 0 50 0\n", 4096);
  EXPECT_TRUE(figures.virtualBytes == 8'192'000 && figures.residentBytes == 409'600);
  for (const char* bad : {"", "x", "2000", "2000 ", " 2000 100", "2000\n100", "-1 5"}) {
    EXPECT_EQ(ParseStatm(bad, 4096).virtualBytes, 0U) << bad;
  }
  EXPECT_TRUE(ParseKernelNumber("1\n") == 1U && ParseKernelNumber("0") == 0U);
  for (const char* bad : {"", "\n", "1 2", "x", "99999999999999999999"})
    EXPECT_EQ(ParseKernelNumber(bad), std::nullopt) << bad;
}

TEST(LinuxTextsTest, NamesArchitecturesInTheTablesWords) {
  for (const char* name : {"i386", "i486", "i586", "i686"}) EXPECT_EQ(ArchitectureWord(name), "x86_32");
  EXPECT_EQ(ArchitectureWord("aarch64") + ArchitectureWord("x86_64") + ArchitectureWord("i786"), "arm64x86_64i786");
}

TEST(LinuxTextsTest, ChoosesTheInterfaceThatStaysTheSame) {
  InterfaceFacts loopback = Interface("lo", 1, false);
  loopback.isEthernet = false;
  InterfaceFacts zero = Interface("zero", 2, true);
  zero.address.assign(6, 0);
  InterfaceFacts longer = Interface("infiniband", 3, true);
  longer.address.assign(20, 1);
  const InterfaceFacts madeUp = Interface("veth", 4, false, true), bridge = Interface("bridge", 5, false),
                       wireless = Interface("wlan", 7, true), wired = Interface("eth", 6, true, true),
                       en0 = Interface("en0", 9, false, true);

  EXPECT_STREQ(ChosenOf({bridge, wireless, wired, en0}), "en0");
  EXPECT_STREQ(ChosenOf({bridge, wireless, wired}), "eth");
  EXPECT_STREQ(ChosenOf({madeUp, Interface("later", 8, false), bridge}), "bridge");
  EXPECT_STREQ(ChosenOf({loopback, zero, longer, madeUp}), "none");
}
