#include "Base/UnicodeLibrary.hpp"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace molvane {
namespace {

[[noreturn]] void throwMissing() {
  const char* reason = dlerror();
  throw std::runtime_error("Unicode library: " +
                           std::string(reason != nullptr ? reason : "cannot be loaded"));
}

template <typename Function>
void find(void* library, const char* name, Function& function) {
  void* const symbol = dlsym(library, name);
  if (symbol == nullptr) throwMissing();
  function = reinterpret_cast<Function>(symbol);
}

// Two steps, so that the header's macro has put the version into the name before it becomes a text.
#define MOLVANE_TEXT(name) #name
#define MOLVANE_FIND(function) find(library, MOLVANE_TEXT(function), found.function)

UnicodeLibrary loaded() {
  // Kept for good: function pointers into it may be in use on any thread.
  void* const library = dlopen(MOLVANE_ICU_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throwMissing();
  UnicodeLibrary found;
  MOLVANE_FIND(u_charType);
  MOLVANE_FIND(u_errorName);
  MOLVANE_FIND(u_strFoldCase);
  MOLVANE_FIND(u_strToLower);
  MOLVANE_FIND(ubrk_close);
  MOLVANE_FIND(ubrk_next);
  MOLVANE_FIND(ubrk_open);
  MOLVANE_FIND(ubrk_setUText);
  MOLVANE_FIND(unorm2_getNFDInstance);
  MOLVANE_FIND(unorm2_normalize);
  MOLVANE_FIND(utext_close);
  MOLVANE_FIND(utext_openUTF8);
  return found;
}

}  // namespace

const UnicodeLibrary& UnicodeLibrary::get() {
  static const UnicodeLibrary library = loaded();
  return library;
}

void UnicodeLibrary::check(UErrorCode status) const {
  if (U_FAILURE(status)) throw std::runtime_error(std::string("Unicode library: ") + u_errorName(status));
}

}  // namespace molvane
