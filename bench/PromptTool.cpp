// A tool that asks for passwords on its terminal, as the Mac's do: molvane-bench-prompts COUNT. It ends with
// 0 when every answer was the secret.

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string_view>

namespace {

constexpr std::string_view kPrompt = "New password:";
constexpr std::string_view kAnswer = "bench-s3cret\n";

bool ask(int terminal) {
  termios before{};
  if (tcgetattr(terminal, &before) != 0) return false;
  termios silent = before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  tcsetattr(terminal, TCSAFLUSH, &silent);
  if (write(terminal, kPrompt.data(), kPrompt.size()) < 0) return false;
  std::array<char, 256> line{};
  const ssize_t length = read(terminal, line.data(), line.size());
  tcsetattr(terminal, TCSAFLUSH, &before);
  if (write(terminal, "\n", 1) < 0) return false;
  return length > 0 && std::string_view(line.data(), static_cast<std::size_t>(length)) == kAnswer;
}

}  // namespace

int main(int argc, char** argv) {
  const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
  if (terminal < 0 || argc != 2) return 2;
  for (int left = std::atoi(argv[1]); left > 0; --left) {
    if (!ask(terminal)) return 1;
  }
  return write(STDOUT_FILENO, "done\n", 5) == 5 ? 0 : 1;
}
