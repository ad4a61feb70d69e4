#include "Platform/CodeRequirement.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace molvane {
namespace {

constexpr std::string_view kIdentifier = R"(identifier "com.molvane.app")";
constexpr std::string_view kIntermediateMarker = "certificate 1[field.1.2.840.113635.100.6.2.6]";
constexpr std::string_view kLeafMarker = "certificate leaf[field.1.2.840.113635.100.6.1.13]";
constexpr std::string_view kTeam = R"(certificate leaf[subject.OU] = "TEAM123456")";

std::string joined(const std::vector<std::string_view>& clauses) {
  std::string text;
  for (const std::string_view clause : clauses) text.append(text.empty() ? "" : " and ").append(clause);
  return text;
}

const std::string kApp =
    joined({"anchor apple generic", kIdentifier, kIntermediateMarker, kLeafMarker, kTeam});

CodeFacts app() {
  CodeFacts facts{"com.molvane.app", std::vector<CertificateFacts>(3)};
  facts.chain[0] = {{"Developer ID Application: Ann (TEAM123456)"},
                    {"Ann"},
                    {"TEAM123456"},
                    {"2.5.29.15", "1.2.840.113635.100.6.1.13"}};
  facts.chain[1] = {{"Developer ID Certification Authority"}, {}, {}, {"1.2.840.113635.100.6.2.6"}};
  facts.chain[2] = {{"Root"}, {}, {}, {}};
  return facts;
}

std::string missing(std::string_view requirement, const CodeFacts& facts) {
  return CodeRequirement(requirement).unsatisfiedClause(facts);
}

TEST(CodeRequirementTest, EveryClauseOfTheAppsRequirementCounts) {
  EXPECT_EQ(missing(kApp, app()), "");

  CodeFacts unsigned_ = app();
  unsigned_.chain.clear();
  EXPECT_EQ(missing(kApp, unsigned_), "anchor apple generic");

  CodeFacts other = app();
  other.identifier = "com.molvane.app2";
  EXPECT_EQ(missing(kApp, other), kIdentifier);

  other = app();
  std::swap(other.chain[1].extensions, other.chain[2].extensions);
  EXPECT_EQ(missing(kApp, other), kIntermediateMarker);

  other = app();
  std::swap(other.chain[0].extensions, other.chain[1].extensions);
  other.chain[1].extensions.emplace_back("1.2.840.113635.100.6.2.6");
  EXPECT_EQ(missing(kApp, other), kLeafMarker);

  for (const std::vector<std::string>& units : std::vector<std::vector<std::string>>{
           {}, {"TEAM"}, {"team123456"}, {"TEAM123456", "OTHER"}, {"OTHER"}}) {
    other = app();
    other.chain[0].organizationalUnits = units;
    EXPECT_EQ(missing(kApp, other), kTeam) << ::testing::PrintToString(units);
  }

  other = app();
  other.chain.resize(1);
  EXPECT_EQ(missing(kApp, other), kIntermediateMarker);
}

TEST(CodeRequirementTest, TheVendorsOwnCodeIsToldByTheNamesOfItsCertificates) {
  CodeFacts vendor = app();
  vendor.chain[0].commonNames = {"Software Signing"};
  vendor.chain[1].commonNames = {"Apple Code Signing Certification Authority"};
  EXPECT_EQ(missing("anchor apple", vendor), "");
  EXPECT_EQ(missing("anchor apple and anchor apple generic", vendor), "");
  EXPECT_EQ(missing("anchor apple", app()), "anchor apple");

  CodeFacts deeper = vendor;
  deeper.chain.insert(deeper.chain.begin() + 2, CertificateFacts{});
  EXPECT_EQ(missing("anchor apple", deeper), "anchor apple");
  for (const int position : {0, 1}) {
    CodeFacts renamed = vendor;
    renamed.chain[static_cast<std::size_t>(position)].commonNames = {"Someone"};
    EXPECT_EQ(missing("anchor apple", renamed), "anchor apple");
  }
}

TEST(CodeRequirementTest, PositionsKeysAndTextsAreReadAsTheLanguageHasThem) {
  CodeFacts facts = app();
  facts.identifier = R"(say "hi" \ bye)";
  for (const std::string_view satisfied :
       {R"(identifier "say \"hi\" \\ bye")", R"(identifier "\say \"hi\" \\ by\e")",
        "certificate root[subject.CN] = Root", "certificate 2[subject.CN]=\"Root\"",
        "\t certificate\n1 [ field.1.2.840.113635.100.6.2.6 ]\r\n", "certificate 0[subject.O] = Ann",
        "certificate leaf[subject.OU] = TEAM123456"}) {
    EXPECT_EQ(missing(satisfied, facts), "") << satisfied;
  }
  for (const std::string_view unsatisfied :
       {R"(identifier "say hi")", R"(identifier "")", R"(certificate root[subject.CN] = "root")",
        "certificate 3[field.2.5]", "certificate root[subject.OU] = TEAM123456",
        "certificate 1[subject.O] = Ann", "certificate leaf[field.1.2.840.113635.100.6.1.1]",
        "certificate 15[subject.CN] = Root"}) {
    EXPECT_EQ(missing(unsatisfied, facts), std::string(unsatisfied));
  }
}

TEST(CodeRequirementTest, WhatIsNotUnderstoodIsNoRequirement) {
  std::vector<std::string> texts = {"",
                                    " ",
                                    "and",
                                    "anchor",
                                    "anchor apple generic and",
                                    "and anchor apple generic",
                                    "anchor apple generic and and",
                                    "anchor apple generic anchor apple",
                                    "anchor apple generic or anchor apple",
                                    "!anchor apple",
                                    "(anchor apple)",
                                    "anchor trusted",
                                    "anchor = H\"00\"",
                                    "anchor apple generic /* all of it */",
                                    "anchor \"apple\" generic",
                                    "Anchor apple",
                                    "always",
                                    "true",
                                    "cdhash H\"00\"",
                                    "entitlement[\"x\"]",
                                    "info[CFBundleVersion] = \"1\"",
                                    "identifier",
                                    "identifier and",
                                    "identifier apple",
                                    "identifier 1abc",
                                    "identifier com.molvane-app",
                                    "identifier com/molvane",
                                    "identifier \"com.molvane.app",
                                    "identifier \"com.molvane.app\\\"",
                                    "identifier = \"com.molvane.app\"",
                                    "identifier \"a\" \"b\"",
                                    "identifier \"a\" and",
                                    "certificate",
                                    "certificate leaf",
                                    "certificate leaf[",
                                    "certificate leaf[]",
                                    "certificate leaf[field.1.2",
                                    "certificate leaf[field.]",
                                    "certificate leaf[field.1]",
                                    "certificate leaf[field.1..2]",
                                    "certificate leaf[field.1.2.]",
                                    "certificate leaf[field.1.02]",
                                    "certificate leaf[field.1.2a]",
                                    "certificate leaf[\"field.1.2\"]",
                                    "certificate leaf[field.1.2] = \"x\"",
                                    "certificate leaf[field.1.2] exists",
                                    "certificate leaf[subject.OU]",
                                    "certificate leaf[subject.OU] \"x\"",
                                    "certificate leaf[subject.OU] = ",
                                    "certificate leaf[subject.OU] = and",
                                    "certificate leaf[subject.OU] == \"x\"",
                                    "certificate leaf[subject.OU] > \"x\"",
                                    "certificate leaf[subject.ou] = \"x\"",
                                    "certificate leaf[subject.UID] = \"x\"",
                                    "certificate leaf[issuer.CN] = \"x\"",
                                    "certificate leaf = H\"00\"",
                                    "certificate -1[field.1.2]",
                                    "certificate 16[field.1.2]",
                                    "certificate 999999999999[field.1.2]",
                                    "certificate 1.0[field.1.2]",
                                    "certificate middle[field.1.2]",
                                    "cert leaf[field.1.2]"};
  texts.emplace_back("anchor apple\0", 13);
  texts.emplace_back("identifier \"a\0b\"", 16);
  texts.emplace_back("identifier \"a\\\0b\"", 17);
  for (const std::string& text : texts) {
    EXPECT_THROW(CodeRequirement{text}, CodeRequirementError) << text;
    // Nor does a good clause before or behind it help.
    EXPECT_THROW(CodeRequirement{"anchor apple generic and " + text}, CodeRequirementError) << text;
    if (!text.empty() && text != " ") {
      EXPECT_THROW(CodeRequirement{text + " and anchor apple generic"}, CodeRequirementError) << text;
    }
  }
}

TEST(CodeRequirementTest, TheLengthIsBounded) {
  const std::string room(CodeRequirement::kMaxLength - std::string("identifier \"\"").size(), 'x');
  EXPECT_NO_THROW(CodeRequirement("identifier \"" + room + "\""));
  EXPECT_THROW(CodeRequirement("identifier \"" + room + "x\""), CodeRequirementError);
}

}  // namespace
}  // namespace molvane
