#include "Report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <ostream>
#include <stdexcept>

namespace molvane::bench {

double median(std::vector<double> values) {
  if (values.empty()) throw std::invalid_argument("median of nothing");
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void printTable(std::ostream& out, const std::vector<Comparison>& rows) {
  out << "| benchmark | ours | peer | unit | ratio | at most | met |\n"
         "|---|---:|---:|---|---:|---:|---|\n";
  for (const Comparison& row : rows) {
    const bool hasTarget = std::isfinite(row.atMost);
    out << fmt::format("| {} | {:.2f} | {:.2f} | {} | {:.2f} | {} | {} |\n", row.name, row.ours, row.peer,
                       row.unit, row.ratio(), hasTarget ? fmt::format("{:.2f}", row.atMost) : "-",
                       hasTarget ? (row.met() ? "yes" : "**no**") : "-");
  }
}

}  // namespace molvane::bench
