#pragma once

#include <string>
#include <string_view>

#include "molvanectl/TextSink.hpp"

namespace molvane::ctl {

/// Keeps what is written, or fails with an errno when told to.
class StringSink : public TextSink {
 public:
  void write(std::string_view text) override {
    if (failure != 0) throw OutputError(failure, std::generic_category(), "write");
    written += text;
  }

  std::string written;
  int failure = 0;
};

}  // namespace molvane::ctl
