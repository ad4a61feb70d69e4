#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "Platform/CodeRequirement.hpp"
#include "Platform/linux/SignedCode.hpp"

namespace {

using namespace molvane;

void require(bool holds) {
  if (!holds) std::abort();
}

// Nothing that reads as a requirement is satisfied by code that nobody signed and whose identifier no text
// can hold.
void readRequirement(std::string_view text) {
  const CodeFacts unsignedCode{std::string("\0", 1), {}};
  try {
    const std::string clause = CodeRequirement(text).unsatisfiedClause(unsignedCode);
    require(!clause.empty() && text.find(clause) != std::string_view::npos);
    require(CodeRequirement(clause).unsatisfiedClause(unsignedCode) == clause);
  } catch (const CodeRequirementError&) {
  }
}

// What reads as content says the same when it is written out again.
void readContent(std::string_view text) {
  try {
    const SignedCode code = parseSignedCode(text);
    const nlohmann::json again = {{"identifier", code.identifier}, {"sha256", code.sha256}};
    require(parseSignedCode(again.dump()) == code);
  } catch (const CmsError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  readRequirement(text);
  readContent(text);
  return 0;
}
