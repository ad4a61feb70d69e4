// check-signature FILE REQUIREMENT: whether the signature in FILE.codesig makes the file satisfy the
// requirement, by the helper's own check. Says on standard error why it does not.

#include <cstdlib>
#include <iostream>

#include "Platform/CodeSigning.hpp"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: check-signature FILE REQUIREMENT\n";
    return 64;
  }
  const molvane::CodeVerdict verdict = molvane::makeCodeSigning()->checkFile(argv[1], argv[2]);
  if (verdict.satisfied()) return EXIT_SUCCESS;
  std::cerr << verdict.problem << '\n';
  return EXIT_FAILURE;
}
