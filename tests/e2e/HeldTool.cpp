#include "HeldTool.hpp"

#include <fcntl.h>

#include <cctype>
#include <csignal>
#include <stdexcept>

namespace molvane::e2e {

namespace fs = std::filesystem;

namespace {

/// Fails until a tool has its end open.
bool releases() {
  return FileDescriptor(open("/run/macroot/hold", O_WRONLY | O_NONBLOCK | O_CLOEXEC)).get() >= 0;
}

}  // namespace

HeldTool::HeldTool(const std::string& tool, const std::string& directives)
    : name_(tool.substr(0, tool.find('@'))), log_(kToolLog), behaviour_(std::in_place, tool, directives) {}

void HeldTool::waitUntilHeld() { log_.waitFor("holding " + name_); }

void HeldTool::letGo() {
  if (!eventually(releases)) throw std::runtime_error("no tool holds");
}

void HeldTool::letFinish() {
  // It may hold several times; the tool of a helper that was killed may lose its terminal, and end by itself.
  const auto ended = [this] {
    releases();
    return processes().empty();
  };
  if (!eventually(ended)) throw std::runtime_error("a tool does not end");
}

void HeldTool::killTool() {
  for (const pid_t process : processes()) ::kill(process, SIGKILL);
  if (!eventually([this] { return processes().empty(); })) throw std::runtime_error("a tool does not end");
}

std::vector<pid_t> HeldTool::processes() const {
  std::vector<pid_t> result;
  for (const auto& process : fs::directory_iterator("/proc")) {
    const std::string id = process.path().filename();
    if (std::isdigit(static_cast<unsigned char>(id[0])) == 0) continue;
    try {
      // Its interpreter, then its path; or script(1) around it.
      if (readFile(process.path() / "cmdline").find("/" + name_ + '\0') != std::string::npos) {
        result.push_back(std::stoi(id));
      }
    } catch (const std::runtime_error&) {
      // It has ended.
    }
  }
  return result;
}

}  // namespace molvane::e2e
