#include "Devices.hpp"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>

namespace molvane::e2e {
namespace {

const std::filesystem::path kDisks = "/run/macroot/disks";

std::string diskTool() { return std::string(std::getenv("MACROOT")) + "/lib/disk"; }

std::filesystem::path behaviourOf(const std::string& disk) { return "/etc/macroot/disks/" + disk; }

}  // namespace

bool hasDisks() { return std::filesystem::exists("/dev/disk4"); }

bool canFail() {
  static const int status = [] {
    const int made = run({diskTool(), "attach", "--faulty", "disk98", "1M"}).status;
    if (made == 0) run({diskTool(), "detach", "disk98"});
    return made;
  }();
  return status == 0;
}

AttachedDisk::AttachedDisk(std::string name, std::uint64_t bytes, const std::vector<std::string>& options)
    : name_(std::move(name)) {
  std::vector<std::string> command = {diskTool(), "attach"};
  command.insert(command.end(), options.begin(), options.end());
  command.insert(command.end(), {name_, std::to_string(bytes)});
  const Outcome outcome = run(command);
  if (outcome.status != 0) throw std::runtime_error("no " + name_ + ": " + outcome.err);
}

AttachedDisk::~AttachedDisk() {
  if (isIn_) pull();
  std::error_code ignored;
  std::filesystem::remove(behaviourOf(name_), ignored);
}

void AttachedDisk::tell(std::string_view directives) const {
  // In one go: it is looked at between any two requests.
  const std::filesystem::path fresh = behaviourOf(name_ + ".new");
  writeFile(fresh, std::string(directives) + "\n");
  std::filesystem::rename(fresh, behaviourOf(name_));
}

void AttachedDisk::pull() {
  isIn_ = false;
  const Outcome outcome = run({diskTool(), "detach", name_});
  if (outcome.status != 0) std::fprintf(stderr, "%s is stuck: %s\n", name_.c_str(), outcome.err.c_str());
}

std::string AttachedDisk::content() const { return readFile(kDisks / name_ / "content"); }

void AttachedDisk::setContent(std::string_view content) const {
  // The same file, which the loop device has open.
  const FileDescriptor file(::open((kDisks / name_ / "content").c_str(), O_WRONLY | O_CLOEXEC));
  while (!content.empty()) {
    const ssize_t count = ::write(file.get(), content.data(), content.size());
    if (count <= 0) throw std::runtime_error("cannot fill " + name_);
    content.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::string noise(std::size_t bytes, unsigned seed) {
  std::mt19937_64 random(seed);
  std::string text;
  text.reserve(bytes + sizeof(std::uint64_t));
  while (text.size() < bytes) {
    const std::uint64_t word = random();
    text.append(reinterpret_cast<const char*>(&word), sizeof word);
  }
  text.resize(bytes);
  return text;
}

std::string annsFile(const std::string& name, std::string_view content) {
  const std::string path = "/Users/ann/" + name;
  writeFile(path, content);
  if (::chown(path.c_str(), kAnn.uid, kAnn.gid) != 0) throw std::runtime_error("cannot give " + path);
  std::filesystem::permissions(path, std::filesystem::perms(0644));
  return path;
}

std::string sha256(std::string_view bytes) {
  std::array<unsigned char, 32> digest{};
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
  std::string text;
  for (const unsigned char byte : digest) {
    constexpr const char* kDigits = "0123456789abcdef";
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

Outcome device(std::vector<std::string> arguments, Person who) {
  arguments.insert(arguments.begin(), "device");
  return molvanectl(std::move(arguments), who);
}

std::string startJob(std::vector<std::string> arguments) {
  arguments.emplace_back("--detach");
  const Outcome outcome = device(std::move(arguments));
  if (outcome.status != 0) throw std::runtime_error("not started: " + outcome.err);
  return outcome.out.substr(0, outcome.out.find('\n'));
}

nlohmann::json statusOf(const std::string& job) {
  const Outcome outcome = device({"status", "--json", job});
  if (outcome.status != 0) throw std::runtime_error("no status: " + outcome.err);
  return nlohmann::json::parse(outcome.out);
}

nlohmann::json endOf(const std::string& job) {
  device({"watch", job});
  return statusOf(job);
}

}  // namespace molvane::e2e
