#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace molvane::bench {

/// One row of the benchmark table: what our code costs beside what its peer costs for the same work. Both
/// figures are medians of several rounds in `unit`, and less is better.
struct Comparison {
  std::string name;   ///< what was done, and what the peer is
  double ours = 0;    ///< our cost
  double peer = 0;    ///< the peer's cost, above 0
  std::string unit;   ///< of both figures, such as "ms" or "MiB"
  double atMost = 1;  ///< the target: the largest ratio ours / peer that is good enough; infinite without one

  [[nodiscard]] double ratio() const { return ours / peer; }
  [[nodiscard]] bool met() const { return ratio() <= atMost; }
};

/// The middle value; the mean of the two middle values when their number is even. `values` must not be empty.
[[nodiscard]] double median(std::vector<double> values);

/// Prints the rows as one Markdown table, in the order given.
void printTable(std::ostream& out, const std::vector<Comparison>& rows);

}  // namespace molvane::bench
