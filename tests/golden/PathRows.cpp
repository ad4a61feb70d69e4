#include <gtest/gtest.h>

#include <filesystem>

#include "Base/PathText.hpp"
#include "GoldenRows.hpp"
#include "Platform/StandardPath.hpp"

namespace molvane::golden {
namespace {

TEST(Golden, PathParts) {
  checkRows("paths.jsonl", [](Row& row) {
    const std::string path = row.bytes("path");
    row.expectBytes("last", lastPathComponent(path));
    row.expectBytes("parent", deletingLastPathComponent(path));
    row.expectBytes("ext", pathExtension(path));
  });
}

TEST(Golden, StandardPaths) {
  for (const char* folder : {"/tmp", "/var", "/var/tmp", "/etc"}) {
    if (!std::filesystem::is_directory(std::filesystem::symlink_status(folder))) {
      GTEST_SKIP() << "the answers take " << folder << " for a folder that is no link; here it is none";
    }
  }
  checkRows(
      "paths.jsonl", [](Row& row) { row.expectBytes("standardized", standardizingPath(row.bytes("path"))); },
      [](const Row& row) { return row.has("standardized"); });
}

}  // namespace
}  // namespace molvane::golden
