#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "Base/PathText.hpp"
#include "Base/Utf8.hpp"
#include "Corpora.hpp"
#include "Platform/StandardPath.hpp"

namespace molvane::corpora {
namespace {

/// Reads the four digits behind "\u" at `at`.
std::optional<char32_t> escapedUnit(std::string_view text, std::size_t at) {
  if (text.substr(at, 2) != "\\u") return std::nullopt;
  return static_cast<char32_t>(std::stoul(std::string(text.substr(at + 2, 4)), nullptr, 16));
}

/// A line is a JSON string in ASCII, in which U+DC80 to U+DCFF without a lead stand for the bytes 80 to FF.
std::string pathOfLine(std::string_view line) {
  line = line.substr(1, line.size() - 2);
  std::string path;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] != '\\') {
      path += line[at];
    } else if (std::optional<char32_t> unit = escapedUnit(line, at)) {
      at += 5;
      if (*unit >= 0xD800 && *unit < 0xDC00) {
        unit = 0x10000 + ((*unit - 0xD800) << 10U) + (escapedUnit(line, at + 1).value() - 0xDC00);
        at += 6;
      }
      if (*unit >= 0xDC80 && *unit <= 0xDCFF) {
        path += static_cast<char>(*unit & 0xFFU);
      } else {
        appendUtf8(path, *unit);
      }
    } else {
      constexpr std::string_view kNames = "bfnrt\"\\/";
      constexpr std::string_view kMeanings = "\b\f\n\r\t\"\\/";
      path += kMeanings.at(kNames.find(line.at(++at)));
    }
  }
  return path;
}

bool hasEmptyDotOrParentComponent(const std::string& path) {
  const std::string walled = path + "/";
  return walled.find("//") != std::string::npos || walled.find("/./") != std::string::npos ||
         walled.find("/../") != std::string::npos;
}

TEST(Corpora, Paths) {
  MOLVANE_NEEDS_CORPORA();
  std::ifstream lines(folder() + "/paths.txt");
  std::size_t absolute = 0;
  std::size_t relative = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::string path = pathOfLine(line);
    const std::string standard = standardizingPath(path);
    EXPECT_EQ(standardizingPath(standard), standard) << line;
    if (isAbsolutePath(path)) {
      ++absolute;
      EXPECT_TRUE(isAbsolutePath(standard)) << line;
      EXPECT_TRUE(standard == "/" || !hasEmptyDotOrParentComponent(standard)) << line;
    } else if (path.substr(0, 1) != "~") {
      ++relative;
      EXPECT_FALSE(isAbsolutePath(standard)) << line;
    }
    if (standard.find('/') != std::string::npos && standard != "/") {
      EXPECT_EQ(appendingPathComponent(deletingLastPathComponent(standard), lastPathComponent(standard)),
                standard);
    }
  }
  EXPECT_GT(absolute, 0U);
  EXPECT_GT(relative, 0U);
}

}  // namespace
}  // namespace molvane::corpora
