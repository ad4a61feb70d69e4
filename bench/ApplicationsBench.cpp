#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks.hpp"
#include "HelperKit/Applications/AppRemovalRunner.hpp"
#include "HelperKit/Applications/PackageInstallPolicy.hpp"
#include "Platform/ChildProcess.hpp"
#include "Report.hpp"

namespace molvane::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kPackageMebibytes = 1024;
constexpr int kStagingRounds = 3;
constexpr int kFolders = 200;
constexpr int kFilesEach = 100;
constexpr int kRemovalRounds = 7;

// A home folder on the disk, gone at the end.
class Home {
 public:
  Home() : path_("/var/tmp/molvane-bench-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no scratch folder");
  }
  ~Home() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

  [[nodiscard]] std::string makePackage() const {
    const std::string folder = companyInbox(path_);
    fs::create_directories(folder);
    std::string path = folder + "/large.pkg";
    std::ofstream file(path, std::ios::binary);
    std::string piece(std::size_t{1} << 20U, 'x');
    piece.replace(0, 4, "xar!");
    for (std::size_t i = 0; i < kPackageMebibytes; ++i) file << piece;
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
    return path;
  }

  [[nodiscard]] std::string makeBundle(const std::string& name) const {
    std::string bundle = path_ + "/Applications/" + name;
    for (int i = 0; i < kFolders; ++i) {
      const std::string folder = bundle + "/Contents/Resources/" + std::to_string(i);
      fs::create_directories(folder);
      for (int k = 0; k < kFilesEach; ++k) std::ofstream(folder + "/file" + std::to_string(k)) << name;
    }
    return bundle;
  }

 private:
  std::string path_;
};

double millisecondsOf(const std::function<void()>& work) {
  const Clock::time_point start = Clock::now();
  work();
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void runTool(const std::string& executable, const std::vector<std::string>& arguments) {
  ChildProcess process({executable, arguments, ChildProcess::StandardInput::null});
  const bool ended = process.pump(Clock::now() + std::chrono::minutes(5), [](std::string_view) {});
  if (!ended || process.terminationStatus() != 0) throw std::runtime_error(executable + " failed");
}

// Runs both sides in turns, after `prepare`, with nothing left to be written out.
Comparison compare(const std::string& name, double atMost, int rounds, const std::function<void()>& prepare,
                   const std::function<void()>& ours, const std::function<void()>& peer) {
  std::vector<double> ourSpans;
  std::vector<double> peerSpans;
  for (int round = 0; round < rounds; ++round) {
    prepare();
    sync();
    const bool oursFirst = round % 2 == 0;
    if (oursFirst) ourSpans.push_back(millisecondsOf(ours));
    if (oursFirst) sync();
    peerSpans.push_back(millisecondsOf(peer));
    if (!oursFirst) sync();
    if (!oursFirst) ourSpans.push_back(millisecondsOf(ours));
  }
  return {.name = name, .ours = median(ourSpans), .peer = median(peerSpans), .unit = "ms", .atMost = atMost};
}

// What the person waits for until the copy stands: every check and the copying. The copies are taken away
// outside the measured time.
Comparison compareStaging(const Home& home) {
  const std::string package = home.makePackage();
  const StagingFolder staging(home.path() + "/Staging");
  const std::string copy = home.path() + "/copy";
  std::vector<StagedItem> staged;
  return compare(
      "stage a package of 1 GiB / cp", 1.1, kStagingRounds,
      [&] {
        staged.clear();
        fs::remove(copy);
      },
      [&] {
        const ReceivedItem received = PackageInstallPolicy::validate(package, home.path(), geteuid());
        staged.push_back(PackageInstallPolicy::stage(received, geteuid(), staging));
      },
      [&] {
        runTool("/bin/cp", {package, copy});
      });
}

Comparison compareRemoval(const Home& home) {
  std::string first;
  std::string second;
  return compare(
      "remove a bundle of 20,000 files / rm -rf", 1.0, kRemovalRounds,
      [&] {
        first = home.makeBundle("A.app");
        second = home.makeBundle("B.app");
      },
      [&] { AppRemovalRunner::remove(first, home.path()); },
      [&] {
        runTool("/bin/rm", {"-rf", second});
      });
}

}  // namespace

std::vector<Comparison> benchApplications() {
  const Home home;
  std::vector<Comparison> rows{compareStaging(home)};
  rows.push_back(compareRemoval(home));
  return rows;
}

}  // namespace molvane::bench
