#include "Corpora.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Platform/ChildProcess.hpp"

namespace molvane::corpora {

std::string folder() {
  const char* chosen = std::getenv("MOLVANE_CORPORA");
  return chosen != nullptr ? chosen : "";
}

Verdict verdictNamed(std::string_view name) {
  if (name == "accept") return Verdict::accept;
  if (name == "refuse") return Verdict::refuse;
  if (name == "either") return Verdict::either;
  throw std::invalid_argument("no verdict: " + std::string(name));
}

void Tally::note(const std::string& name, Verdict expected, bool accepted) {
  if (expected == Verdict::either) return;
  const bool shouldAccept = expected == Verdict::accept;
  ++(shouldAccept ? expectedToAccept_ : expectedToRefuse_);
  if (accepted != shouldAccept) wrong_.push_back(name + (accepted ? " was accepted" : " was refused"));
}

void Tally::report() const {
  for (const std::string& wrong : wrong_) ADD_FAILURE() << wrong;
  EXPECT_GT(expectedToAccept_, 0U);
  EXPECT_GT(expectedToRefuse_, 0U);
}

std::string outputOf(const std::string& executable, const std::vector<std::string>& arguments) {
  ChildProcess process({executable, arguments, ChildProcess::StandardInput::null});
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  std::string output;
  const auto collect = [&](std::string_view piece) { output += piece; };
  if (!process.pump(deadline, collect) || !process.drain(deadline, collect)) {
    throw std::runtime_error(executable + " does not end");
  }
  if (process.terminationStatus() != 0) throw std::runtime_error(executable + ": " + output.substr(0, 1000));
  return output;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  if (!file) throw std::runtime_error("cannot read " + path);
  return content.str();
}

}  // namespace molvane::corpora
