#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Base/PropertyList.hpp"
#include "Corpora.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::corpora {
namespace {

TEST(Corpora, PropertyLists) {
  MOLVANE_NEEDS_CORPORA();
  const TemporaryFolder files;
  (void)outputOf("/usr/bin/tar", {"-xJf", folder() + "/plist/plists.tar.xz", "-C", files.path()});
  Tally tally;
  for (const auto& entry : nlohmann::json::parse(contentOf(folder() + "/plist/manifest.json"))) {
    const std::string name = entry.at("file").get<std::string>();
    const bool accepted = parsePropertyList(contentOf(files.path() + "/" + name)).has_value();
    tally.note(name, verdictNamed(entry.at("verdict").get<std::string>()), accepted);
  }
  tally.report();
}

}  // namespace
}  // namespace molvane::corpora
