#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "molvanectl/testing/HelpReader.hpp"
#include "molvanectl/testing/InProcess.hpp"
#include "molvanectl/testing/Shell.hpp"

namespace molvane::ctl {
namespace {

using ::testing::HasSubstr;

// The page is written by hand, so it can lag behind.
TEST(ManualPage, NamesEveryCommandAndOption) {
  const std::string page = outputOf("cat $SOURCE/docs/man/molvanectl.1");
  InProcess program;
  for (const HelpEntry& entry : readAllHelp(program)) {
    std::string item = ".It Cm";
    for (const std::string& word : entry.name) item += " " + word;
    // A word that only leads to commands has no item of its own.
    const bool leads = entry.help.find("\nCommands:\n") != std::string::npos;
    if (!leads) {
      EXPECT_THAT(page, HasSubstr(item));
    }
    for (const std::string& option : entry.options) {
      EXPECT_THAT(page, HasSubstr(" " + option.substr(1)));
    }
  }
}

TEST(ManualPage, IsWellFormed) {
  if (shell("command -v groff >/dev/null").status != 0) GTEST_SKIP() << "groff is not installed";
  EXPECT_EQ(outputOf("groff -mdoc -ww -Tutf8 -z $SOURCE/docs/man/molvanectl.1 2>&1"), "");
}

}  // namespace
}  // namespace molvane::ctl
