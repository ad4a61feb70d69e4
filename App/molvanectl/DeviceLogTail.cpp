#include "molvanectl/DeviceLogTail.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace molvane::ctl {
namespace {

// Long enough to be found in no other place than its own.
constexpr std::size_t kLongestMark = 1024;

}  // namespace

std::string DeviceLogTail::take(const std::string& log) {
  if (taken_.starts_with(log)) return {};
  std::size_t known = 0;
  if (log.starts_with(taken_)) {
    known = taken_.size();
  } else {
    const std::string_view mark =
        std::string_view(taken_).substr(taken_.size() - std::min(taken_.size(), kLongestMark));
    const std::size_t found = log.rfind(mark);
    if (found != std::string::npos) known = found + mark.size();
  }
  taken_ = log;
  return log.substr(known);
}

}  // namespace molvane::ctl
