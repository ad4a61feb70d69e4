#include "Base/JsonCoding.hpp"

#include <gtest/gtest.h>
#include <array>

#include <variant>

#include "Base/JsonMembers.hpp"

namespace molvane {
namespace {

struct Proof {
  std::string name;
  bool operator==(const Proof&) const = default;
};

struct Note {
  std::optional<std::string> text;
  static constexpr auto members() { return std::tuple(JsonMember{"text", &Note::text}); }
};

struct Account {
  std::int64_t uid = 0;
  std::uint32_t owner = 0;
  bool admin = false;
  double share = 0;
  Date since;
  Iso8601Date rotated;
  std::vector<Proof> proofs;
  std::optional<Proof> proof;
  bool operator==(const Account&) const = default;
};

void fromJson(const JsonValue& json, Proof& proof) { JsonObjectReader(json).read("name", proof.name); }

JsonValue toJson(const Proof& proof) { return JsonObjectWriter().add("name", proof.name).take(); }

void fromJson(const JsonValue& json, Account& account) {
  const JsonObjectReader object(json);
  object.read("uid", account.uid);
  object.read("owner", account.owner);
  object.read("admin", account.admin);
  object.read("share", account.share);
  object.read("since", account.since);
  object.read("rotated", account.rotated);
  object.read("proofs", account.proofs);
  object.read("proof", account.proof);
}

JsonValue toJson(const Account& account) {
  return JsonObjectWriter()
      .add("uid", account.uid)
      .add("owner", account.owner)
      .add("admin", account.admin)
      .add("share", account.share)
      .add("since", account.since)
      .add("rotated", account.rotated)
      .add("proofs", account.proofs)
      .add("proof", account.proof)
      .take();
}

struct Remove {
  std::string name;
};
using Operation = std::variant<Proof, Remove>;

void fromJson(const JsonValue& json, Remove& remove) { JsonObjectReader(json).read("name", remove.name); }

void fromJson(const JsonValue& json, Operation& operation) {
  const JsonObjectReader object(json);
  const std::string_view name = object.onlyCase(std::array<std::string_view, 2>{"prove", "remove"});
  if (name == "prove") object.read(name, operation.emplace<Proof>());
  if (name == "remove") object.read(name, operation.emplace<Remove>());
}

template <typename T>
DecodingError errorOf(std::string_view document) {
  try {
    (void)decodedJson<T>(document);
  } catch (const DecodingError& error) {
    return error;
  }
  ADD_FAILURE() << "accepted: " << document;
  return {DecodingFailure::dataCorrupted, {}};
}

TEST(JsonCoding, ARecordIsReadAsItWasWritten) {
  const Account account{.uid = -5,
                        .owner = 4294967295,
                        .admin = true,
                        .share = 0.25,
                        .since = {785534400.25},
                        .rotated = {dateFromIso8601("2026-11-22T10:00:00Z").value()},
                        .proofs = {{"a"}, {"b"}},
                        .proof = Proof{"c"}};
  const std::string document = encodedJson(account);
  EXPECT_EQ(document,
            R"({"uid":-5,"owner":4294967295,"admin":true,"share":0.25,"since":785534400.25,)"
            R"("rotated":"2026-11-22T10:00:00Z","proofs":[{"name":"a"},{"name":"b"}],"proof":{"name":"c"}})");
  EXPECT_EQ(decodedJson<Account>(document), account);
}

TEST(JsonCoding, AnAbsentOptionalIsLeftOutAndNullIsAbsent) {
  const std::string document = encodedJson(Account());
  EXPECT_EQ(document.find("proof\""), std::string::npos) << document;
  EXPECT_EQ(decodedJson<Account>(document).proof, std::nullopt);
  const std::string withNull = document.substr(0, document.size() - 1) + R"(,"proof":null,"unknown":[]})";
  EXPECT_EQ(decodedJson<Account>(withNull).proof, std::nullopt);
}

TEST(JsonCoding, NumbersMustFitTheirType) {
  EXPECT_EQ(decodedJson<std::uint32_t>("4.294967295e9"), 4294967295U);
  EXPECT_EQ(decodedJson<double>("18446744073709551615"), 18446744073709551615.0);
  for (const char* bad : {"-1", "4294967296", "1.5", "1e19"}) {
    EXPECT_EQ(errorOf<std::uint32_t>(bad).which(), DecodingFailure::dataCorrupted) << bad;
  }
  for (const char* bad : {"9223372036854775808", "-9223372036854775809", "1.5", "1e300"}) {
    EXPECT_EQ(errorOf<std::int64_t>(bad).which(), DecodingFailure::dataCorrupted) << bad;
  }
  EXPECT_EQ(encodedJson(5.0), "5");
  EXPECT_EQ(encodedJson(1e300), "1e+300");
}

TEST(JsonCoding, TypesAreNotTakenForOneAnother) {
  for (const char* bad : {"0", "\"true\"", "[]", "{}"}) {
    EXPECT_EQ(errorOf<bool>(bad).which(), DecodingFailure::typeMismatch) << bad;
  }
  for (const char* bad : {"\"1\"", "true", "[1]"}) {
    EXPECT_EQ(errorOf<std::int64_t>(bad).which(), DecodingFailure::typeMismatch) << bad;
    EXPECT_EQ(errorOf<double>(bad).which(), DecodingFailure::typeMismatch) << bad;
  }
  EXPECT_EQ(errorOf<std::string>("1").payload().debugDescription,
            "Expected to decode String but found number instead.");
  EXPECT_EQ(errorOf<std::string>("null").which(), DecodingFailure::valueNotFound);
  EXPECT_EQ(errorOf<Iso8601Date>("\"2026-11-22\"").which(), DecodingFailure::dataCorrupted);
  EXPECT_EQ(errorOf<Iso8601Date>("0").which(), DecodingFailure::typeMismatch);
}

TEST(JsonCoding, AnErrorTellsWhereItIs) {
  EXPECT_EQ(errorOf<Proof>("{}").which(), DecodingFailure::keyNotFound);
  const DecodingError error = errorOf<std::vector<Account>>(
      R"([{"uid":1,"owner":0,"admin":true,"share":1,"since":0,"rotated":"2026-11-22T10:00:00Z",)"
      R"("proofs":[{"name":"a"},{"name":null}]}])");
  EXPECT_EQ(error.which(), DecodingFailure::valueNotFound);
  EXPECT_EQ(error.payload().codingPath, "0.proofs.1.name");
  EXPECT_EQ(error.errorDescription(),
            "0.proofs.1.name: Cannot get value of type String -- found null value instead");
}

TEST(JsonCoding, AUnionHasExactlyOneCase) {
  EXPECT_TRUE(std::holds_alternative<Remove>(decodedJson<Operation>(R"({"remove":{"name":"x"},"other":1})")));
  for (const char* bad :
       {"{}", R"({"Remove":{"name":"x"}})", R"({"remove":{"name":"x"},"prove":{"name":"x"}})"}) {
    const DecodingError error = errorOf<Operation>(bad);
    EXPECT_EQ(error.which(), DecodingFailure::typeMismatch);
    EXPECT_EQ(error.payload().debugDescription, "Invalid number of keys found, expected one.");
  }
  EXPECT_EQ(errorOf<Operation>(R"({"remove":{}})").payload().codingPath, "remove");
  EXPECT_EQ(errorOf<Operation>(R"({"remove":null})").which(), DecodingFailure::valueNotFound);
  EXPECT_EQ(errorOf<Operation>("[]").which(), DecodingFailure::typeMismatch);
}

TEST(JsonCoding, MembersThatAreTheSameCharactersAreEqualAndHashedSo) {
  const Note composed{"\u00e9"};
  const Note decomposed{"e\u0301"};
  EXPECT_TRUE(composed == decomposed);
  EXPECT_EQ(hashOfMembers(composed), hashOfMembers(decomposed));
  EXPECT_NE(hashOfMembers(Note{""}), hashOfMembers(Note{}));
}

}  // namespace
}  // namespace molvane
