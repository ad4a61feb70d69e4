#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Base/PropertyList.hpp"
#include "Corpora.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::corpora {
namespace {

// The corpus refuses text behind the root element. The platform's own reader ignores it, and a tool's warning
// can stand there.
bool goesOnBehindItsRoot(const std::string& name) {
  return name == "crafted/trailing-text.plist" || name == "crafted/two-documents.plist";
}

TEST(Corpora, PropertyLists) {
  MOLVANE_NEEDS_CORPORA();
  const TemporaryFolder files;
  (void)outputOf("/usr/bin/tar", {"-xJf", folder() + "/plist/plists.tar.xz", "-C", files.path()});
  Tally tally;
  for (const auto& entry : nlohmann::json::parse(contentOf(folder() + "/plist/manifest.json"))) {
    const std::string name = entry.at("file").get<std::string>();
    const bool accepted = parsePropertyList(contentOf(files.path() + "/" + name)).has_value();
    const Verdict verdict = verdictNamed(entry.at("verdict").get<std::string>());
    tally.note(name, goesOnBehindItsRoot(name) ? Verdict::accept : verdict, accepted);
  }
  tally.report();
}

}  // namespace
}  // namespace molvane::corpora
