#pragma once

#include <string_view>
#include <system_error>

namespace molvane::ctl {

/// Output could not be written.
class OutputError : public std::system_error {
 public:
  using std::system_error::system_error;
};

/// Where text goes.
class TextSink {
 public:
  virtual ~TextSink() = default;

  /// Writes all of `text`; throws OutputError when that cannot be done, and then part of it may be written.
  virtual void write(std::string_view text) = 0;
};

/// A descriptor of the process, unbuffered. Does not own it.
class DescriptorSink : public TextSink {
 public:
  explicit DescriptorSink(int descriptor) : descriptor_(descriptor) {}

  void write(std::string_view text) override;

 private:
  int descriptor_;
};

}  // namespace molvane::ctl
