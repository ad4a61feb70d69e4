#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "Harness.hpp"

namespace molvane::e2e {

/// A machine that lends no loop devices has a root without disks.
bool hasDisks();

/// A disk that is plugged in while this object lives; see macroot/lib/disk for the options.
class AttachedDisk {
 public:
  /// Throws std::runtime_error when it cannot be made.
  AttachedDisk(std::string name, std::uint64_t bytes, const std::vector<std::string>& options = {});
  ~AttachedDisk();
  AttachedDisk(const AttachedDisk&) = delete;
  AttachedDisk& operator=(const AttachedDisk&) = delete;

  /// What it does from now on, for one made with --faulty; see macroot/lib/faulty-disk.py for the directives.
  void tell(std::string_view directives) const;

  /// Somebody pulls it out.
  void pull();

  /// All that is on it, past every fault.
  [[nodiscard]] std::string content() const;
  void setContent(std::string_view content) const;

 private:
  std::string name_;
  bool isIn_ = true;
};

/// False where this machine cannot make disks fail; then it has been said.
bool canFail();

/// An image of pseudo-random bytes, always the same for one seed.
std::string noise(std::size_t bytes, unsigned seed = 1);

/// A file of Ann's, mode 0644; its path.
std::string annsFile(const std::string& name, std::string_view content);

std::string sha256(std::string_view bytes);

/// `molvanectl device ...` to its end.
Outcome device(std::vector<std::string> arguments, Person who = kAnn);

/// Starts a job that outlives its client; its identifier. Throws std::runtime_error when it is refused.
std::string startJob(std::vector<std::string> arguments);

/// What `molvanectl --json device status` says.
nlohmann::json statusOf(const std::string& job);

/// Follows the job to its end and returns its last status.
nlohmann::json endOf(const std::string& job);

}  // namespace molvane::e2e
