#include "HelperProtocol/HelperIdentity.hpp"

#include <gtest/gtest.h>

namespace molvane {
namespace {

TEST(HelperIdentityTest, TrimsTheTeamAndTakesAnUnexpandedVariableForNone) {
  EXPECT_EQ(HelperIdentity::teamID(" \t TEAM123456\n"), "TEAM123456");
  EXPECT_EQ(HelperIdentity::teamID("\u2003TEAM 12\u2028"), "TEAM 12");
  EXPECT_EQ(HelperIdentity::teamID("\n$(DEVELOPMENT_TEAM)"), "");
  EXPECT_EQ(HelperIdentity::teamID("$TEAM("), "$TEAM(");
  EXPECT_EQ(HelperIdentity::teamID(" \n"), "");
  EXPECT_EQ(HelperIdentity::teamID(std::nullopt), "");
}

TEST(HelperIdentityTest, AsksForTheAppOfTheTeam) {
  EXPECT_EQ(
      HelperIdentity::peerRequirement("TEAM\"1"),
      "anchor apple generic and identifier \"com.molvane.app\" and "
      "certificate 1[field.1.2.840.113635.100.6.2.6] and "
      "certificate leaf[field.1.2.840.113635.100.6.1.13] and certificate leaf[subject.OU] = \"TEAM\"1\"");
  EXPECT_EQ(HelperIdentity::peerRequirement(""), "identifier \"com.molvane.app\"");
}

}  // namespace
}  // namespace molvane
