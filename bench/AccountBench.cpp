#include <malloc.h>
#include <plist/plist.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks.hpp"
#include "Core/AccountDirectory.hpp"
#include "Measuring.hpp"

namespace molvane::bench {

namespace {

constexpr int kRecords = 10'000;
constexpr int kRounds = 15;

constexpr const char* kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

std::string attribute(const std::string& name, const std::vector<std::string>& values) {
  std::string text = "\t\t<key>dsAttrTypeStandard:" + name + "</key>\n\t\t<array>\n";
  for (const std::string& value : values) text += "\t\t\t<string>" + value + "</string>\n";
  return text + "\t\t</array>\n";
}

/// What the directory prints for that many users, a third of them with names beyond ASCII.
std::string users() {
  const std::string digest = "0123456789ABCDEF0123456789ABCDEF01234567";
  std::string text = std::string(kHead) + "<array>\n";
  for (int i = 0; i < kRecords; ++i) {
    const std::string name = "user" + std::to_string(i);
    text += "\t<dict>\n";
    text += attribute(
        "AuthenticationAuthority",
        {";ShadowHash;HASHLIST:&lt;SALTED-SHA512-PBKDF2,SRP-RFC5054-4096-SHA512-PBKDF2&gt;",
         ";Kerberosv5;;" + name + "@LKDC:SHA1." + digest + ";LKDC:SHA1." + digest + ";", ";SecureToken;"});
    if (i % 10 == 0) text += attribute("IsHidden", {"1"});
    text += attribute("RealName", {i % 3 == 0 ? "José Müller " + std::to_string(i) : "A Person"});
    text += attribute("RecordName", {name, name + "@example.com"});
    text += attribute("UniqueID", {std::to_string(501 + (i * 7919) % kRecords)});
    text += "\t</dict>\n";
  }
  return text + "</array>\n</plist>\n";
}

std::string admins() {
  std::vector<std::string> names = {"root"};
  for (int i = 0; i < kRecords; i += 100) names.push_back("user" + std::to_string(i));
  return std::string(kHead) + "<dict>\n" + attribute("GroupMembership", names) + "</dict>\n</plist>\n";
}

}  // namespace

std::vector<Comparison> benchAccounts() {
  const std::string listing = users();
  const std::string group = admins();
  const auto ours = [&] {
    if (AccountDirectory::accounts(listing, group).size() != kRecords) {
      throw std::runtime_error("not every account was read");
    }
  };
  const auto peer = [&] {
    plist_t list = nullptr;
    plist_from_xml(listing.data(), static_cast<std::uint32_t>(listing.size()), &list);
    const bool complete = list != nullptr && plist_array_get_size(list) == kRecords;
    plist_free(list);
    if (!complete) throw std::runtime_error("libplist did not read every record");
  };
  // Each starts with a heap as a fresh process has it, not with what the other left behind.
  const auto trim = [] { malloc_trim(0); };
  return {compareInTurns(
      {.name = "list 10,000 accounts / libplist's parse of the same", .unit = "ms", .atMost = 1.3},
      {.counted = kRounds, .warmUps = 1}, {ours, trim}, {peer, trim})};
}

}  // namespace molvane::bench
