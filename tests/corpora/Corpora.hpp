#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Hostile and conformance documents of other projects, which are not part of this one: they are read from the
// folder that MOLVANE_CORPORA names, and the tests say that they are skipped without it. A part of the folder
// has a `manifest.json`, which gives each file's verdict.

namespace molvane::corpora {

/// The folder; empty when the variable is not set.
[[nodiscard]] std::string folder();

enum class Verdict { accept, refuse, either };

/// Throws std::invalid_argument for another text.
[[nodiscard]] Verdict verdictNamed(std::string_view name);

/// Counts how a reader did and notes where it was wrong.
class Tally {
 public:
  /// `either` can only be wrong by a crash.
  void note(const std::string& name, Verdict expected, bool accepted);
  /// Fails the running test for every wrong answer, and when there were none of a verdict that can be wrong.
  void report() const;

 private:
  std::size_t expectedToAccept_ = 0;
  std::size_t expectedToRefuse_ = 0;
  std::vector<std::string> wrong_;
};

/// What a program prints. Throws std::runtime_error when it takes longer than a minute or ends with another
/// status than 0, std::system_error when it cannot be started.
[[nodiscard]] std::string outputOf(const std::string& executable, const std::vector<std::string>& arguments);

/// The bytes of a file. Throws std::runtime_error when it cannot be read.
[[nodiscard]] std::string contentOf(const std::string& path);

}  // namespace molvane::corpora

/// First thing in a test that needs the folder.
#define MOLVANE_NEEDS_CORPORA() \
  if (molvane::corpora::folder().empty()) GTEST_SKIP() << "MOLVANE_CORPORA does not name the corpora"
