#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "Harness.hpp"

namespace molvane::e2e {

/// A program on a terminal of its own, with a person at it. One that still runs when its object goes is
/// killed.
class Terminal {
 public:
  /// Starts `arguments[0]`, an absolute path, as `who`. One that cannot be started ends with status 127.
  explicit Terminal(const std::vector<std::string>& arguments, Person who = kRoot);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Waits until `text` has appeared on the screen, after where the last one was found. Throws
  /// std::runtime_error when it does not within kPatience, or the program ends before.
  void waitFor(std::string_view text);

  /// Types the text and the return key.
  void type(std::string_view text);

  /// Waits for the prompt, then types the answer.
  void answer(std::string_view prompt, std::string_view text);

  /// Waits for the end: its status, and the whole screen, without carriage returns, as `out`. Throws
  /// std::runtime_error when the end does not come within kPatience.
  Outcome wait();

 private:
  /// Reads what has come; false when the other end of the terminal is closed.
  bool readMore();

  pid_t pid_ = -1;
  FileDescriptor terminal_;
  std::string screen_;
  std::size_t seen_ = 0;
};

}  // namespace molvane::e2e
