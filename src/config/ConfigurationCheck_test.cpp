// Each thing that configuration may not hold, at the edge of what it may, and the words in which it is said.
#include "config/ConfigurationCheck.h"

#include <gtest/gtest.h>

namespace Zeb {
namespace {

std::string nameText(std::string const& name) {
  auto const finding = nameFinding("probe", name);
  return finding ? finding->text() : "";
}

std::string numberText(std::string const& text, WholeNumbers allowed) {
  CheckedNumber const checked = checkedNumber("number", text, allowed);
  return checked.finding ? checked.finding->text() : std::to_string(checked.value);
}

TEST(ConfigurationCheck, ANameIsNotEmptyAndHasNoColon) {
  EXPECT_EQ(nameText("p1"), "");
  EXPECT_EQ(nameText(std::string(64, 'a')), "");
  EXPECT_EQ(nameText("with blanks, and \xc3\xa4"), "");
  EXPECT_EQ(nameText(""), "probe \"\"; expected a name of 1 to 64 characters without \":\"");
  EXPECT_EQ(nameText("p1:leaves"), "probe \"p1:leaves\"; expected a name of 1 to 64 characters without \":\"");
  EXPECT_EQ(nameText(std::string(65, 'a')),
            "probe \"" + std::string(60, 'a') + "...\"; expected a name of 1 to 64 characters without \":\"");
}

TEST(ConfigurationCheck, ARateIsAtLeastOne) {
  EXPECT_EQ(numberText("1", probeRates), "1");
  EXPECT_EQ(numberText("65535", probeRates), "65535");
  EXPECT_EQ(numberText("0", probeRates), "number \"0\"; expected a whole number from 1 to 65535");
  EXPECT_EQ(numberText("65536", probeRates), "number \"65536\"; expected a whole number from 1 to 65535");
}

TEST(ConfigurationCheck, ADistanceEndsBefore255) {
  EXPECT_EQ(numberText("1", probeDistances), "1");
  EXPECT_EQ(numberText("254", probeDistances), "254");
  EXPECT_EQ(numberText("0", probeDistances), "number \"0\"; expected a whole number from 1 to 254");
  EXPECT_EQ(numberText("255", probeDistances), "number \"255\"; expected a whole number from 1 to 254");
}

TEST(ConfigurationCheck, APortIsOneThatPacketsCanHave) {
  EXPECT_EQ(numberText("1", probePorts), "1");
  EXPECT_EQ(numberText("65535", probePorts), "65535");
  EXPECT_EQ(numberText("0", probePorts), "number \"0\"; expected a whole number from 1 to 65535");
  EXPECT_EQ(numberText("65536", probePorts), "number \"65536\"; expected a whole number from 1 to 65535");
}

TEST(ConfigurationCheck, ANumberIsDigitsAndNothingElse) {
  for (std::string const text : {"", "-1", "+1", " 1", "1 ", "1.5", "0x10", "ten", "99999999999999999999999"}) {
    EXPECT_EQ(numberText(text, probePorts), "number \"" + text + "\"; expected a whole number from 1 to 65535");
  }
}

TEST(ConfigurationCheck, AListHoldsEachOnce) {
  std::vector<U16> const ports = {20000, 20001};
  EXPECT_FALSE(repetitionFinding<U16>("port", "20002", 20002, ports));
  auto const finding = repetitionFinding<U16>("port", "20001", 20001, ports);
  ASSERT_TRUE(finding);
  EXPECT_EQ(finding->text(), "port 20001 a second time; expected each port once");
}

TEST(ConfigurationCheck, AnAddressStaysWithTheInterfaceThatHadItFirst) {
  AddressUse use;
  EXPECT_FALSE(use.addressIs("leaf1", "lo", 0x0a000001, "10.0.0.1"));
  EXPECT_FALSE(use.addressIs("leaf1", "eth1", 0x0a000002, "10.0.0.2"));
  EXPECT_FALSE(use.addressIs("leaf1", "lo", 0x0a000003, "10.0.0.3"));
  EXPECT_FALSE(use.addressIs("leaf1", "lo", 0x0a000001, "10.0.0.1")) << "back to what it had";
  auto const onAnother = use.addressIs("leaf2", "lo", 0x0a000003, "10.0.0.3");
  ASSERT_TRUE(onAnother);
  EXPECT_EQ(onAnother->text(),
            "address \"10.0.0.3\" of \"leaf2:lo\"; expected one that no other interface has or had; \"leaf1:lo\" has "
            "it or had it");
  EXPECT_TRUE(use.addressIs("leaf1", "eth1", 0x0a000001, "10.0.0.1")) << "another interface of the same member";
}

TEST(ConfigurationCheck, AMessageShowsNoControlCharacters) {
  EXPECT_EQ(inQuotes("a\nb\x7f"), "\"a?b?\"");
  EXPECT_EQ(inQuotes(std::string(61, 'x')), "\"" + std::string(60, 'x') + "...\"");
}

}  // namespace
}  // namespace Zeb
