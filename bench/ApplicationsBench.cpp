#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks.hpp"
#include "HelperKit/Applications/AppRemovalRunner.hpp"
#include "HelperKit/Applications/PackageInstallPolicy.hpp"
#include "Measuring.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPackageMebibytes = 1024;
constexpr Rounds kStagingRounds{.counted = 21, .warmUps = 1};
constexpr int kFolders = 200;
constexpr int kFilesEach = 100;
constexpr int kRemovalRounds = 3;

std::string makePackage(const std::string& home) {
  const std::string folder = companyInbox(home);
  fs::create_directories(folder);
  std::string path = folder + "/large.pkg";
  std::ofstream file(path, std::ios::binary);
  std::string piece(std::size_t{1} << 20U, 'x');
  piece.replace(0, 4, "xar!");
  for (std::size_t i = 0; i < kPackageMebibytes; ++i) file << piece;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
  return path;
}

// What the person waits for until the copy stands: every check and the copying. The copies are taken away
// outside the measured time.
Comparison compareStaging(const std::string& home) {
  const std::string package = makePackage(home);
  const StagingFolder staging(home + "/Staging");
  const std::string copy = home + "/copy";
  std::vector<StagedItem> staged;
  WarmMemory memory(kPackageMebibytes << 20U);
  const auto makeRoom = [&] {
    staged.clear();
    fs::remove(copy);
    sync();
    memory.renew();
  };
  const auto stage = [&] {
    const ReceivedItem received = PackageInstallPolicy::validate(package, home, geteuid());
    staged.push_back(PackageInstallPolicy::stage(received, geteuid(), staging));
  };
  const auto cp = [&] { runProgram("/bin/cp", {package, copy}); };
  return compareInTurns({.name = "stage a package of 1 GiB / cp", .unit = "ms", .atMost = 1.1},
                        kStagingRounds, {stage, makeRoom}, {cp, makeRoom});
}

Comparison compareRemoval(const std::string& home) {
  const std::string bundle = home + "/Applications/Large.app";
  const auto prepare = [&] {
    makeFileTree(bundle + "/Contents/Resources", kFolders, kFilesEach);
    sync();  // neither side is to pay for writing it out
  };
  const auto ours = [&] { AppRemovalRunner::remove(bundle, home); };
  const auto rm = [&] { runProgram("/bin/rm", {"-rf", bundle}); };
  return compareInTurns({.name = "remove a bundle of 20,000 files / rm -rf", .unit = "ms", .atMost = 1.0},
                        {.counted = kRemovalRounds}, {ours, prepare}, {rm, prepare});
}

}  // namespace

std::vector<Comparison> benchApplications() {
  const TemporaryFolder home(kDiskFolders);
  std::vector<Comparison> rows{compareStaging(home.path())};
  rows.push_back(compareRemoval(home.path()));
  return rows;
}

}  // namespace molvane::bench
