#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "Harness.hpp"

// The tests do harm to the tree they run in, so they run in the Mac-shaped root or not at all.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const char* macroot = std::getenv("MACROOT");
  if (macroot == nullptr || !std::filesystem::exists(molvane::e2e::kManagerLog)) {
    std::fputs("EndToEndTests: run me with macroot/enter\n", stderr);
    return EXIT_FAILURE;
  }
  // The raw clients are this program. Signed, they get as far as a client can.
  const auto signing =
      molvane::e2e::run({std::string(macroot) + "/signing/sign",
                         std::filesystem::read_symlink("/proc/self/exe"), "com.molvane.app"});
  if (signing.status != 0) {
    std::fprintf(stderr, "EndToEndTests: cannot be signed: %s\n", signing.err.c_str());
    return EXIT_FAILURE;
  }
  return RUN_ALL_TESTS();
}
