#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "Platform/FileDescriptor.hpp"

namespace molvane::ctl {

/// A program in a session of its own, with a person at its terminal. One that still runs when the object goes
/// is killed.
class OnTerminal {
 public:
  /// `words` begins with the program's path.
  explicit OnTerminal(std::vector<std::string> words, unsigned short columns = 80);
  ~OnTerminal();
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;

  /// Reads on until `text` has been shown, after what was waited for before. Fails the test when it never is.
  void waitFor(const std::string& text);

  void type(const std::string& keys);

  /// Sends a signal to all that run on the terminal.
  void signal(int number);

  [[nodiscard]] bool echoes() const;

  /// Reads to the program's end; its wait status.
  int end();

  std::string shown;

 private:
  bool readSome();

  pid_t process_ = -1;
  FileDescriptor terminal_;
  std::size_t seen_ = 0;
};

}  // namespace molvane::ctl
