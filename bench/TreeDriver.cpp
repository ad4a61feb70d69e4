// Measures or removes one tree, as du and rm do: a process of its own, so that both sides of the comparison
// pay for starting one.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include "Platform/DirectoryHandle.hpp"
#include "Platform/TreeRemoval.hpp"
#include "Platform/TreeSize.hpp"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string work = argv[1];
  const std::string path = argv[2];
  try {
    if (work == "size") {
      const std::int64_t size = molvane::logicalSize(molvane::openFolder(path));
      std::printf("%lld\t%s\n", static_cast<long long>(size), path.c_str());
      return 0;
    }
    if (work == "remove") {
      molvane::removeItem(molvane::walkToItem("/", path));
      return 0;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 2;
}
