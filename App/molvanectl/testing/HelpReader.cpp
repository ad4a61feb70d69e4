#include "molvanectl/testing/HelpReader.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <utility>

namespace molvane::ctl {

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> all;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) all.push_back(line);
  return all;
}

std::vector<HelpEntry> readAllHelp(InProcess& program, const Words& name) {
  Words words = name;
  words.emplace_back("--help");
  EXPECT_EQ(program.run(words), ExitStatus::done) << ::testing::PrintToString(name);

  HelpEntry entry{name, program.out.written, {}};
  std::vector<HelpEntry> below;
  std::string section;
  for (const std::string& line : lines(entry.help)) {
    if (!line.starts_with("  ")) section = line;
    const std::string row = line.substr(0, line.find("  ", line.find_first_not_of(' ')));
    if (section == "Commands:" && line.starts_with("  ") && line[2] != ' ') {
      Words longer = name;
      longer.push_back(row.substr(2));
      for (HelpEntry& found : readAllHelp(program, longer)) below.push_back(std::move(found));
    } else if (section == "Options:" && row.find("--") < 8) {
      std::istringstream option(row.substr(row.find("--")));
      option >> entry.options.emplace_back();
    }
  }
  below.insert(below.begin(), std::move(entry));
  return below;
}

}  // namespace molvane::ctl
