#pragma once

#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utext.h>

namespace molvane {

/// The functions of ICU that Characters.cpp calls, found in the library when the first of them is needed.
///
/// ICU and its data are 35 MB, which a program that is started for one call should not have to map: most
/// texts are ASCII and are read without them.
struct UnicodeLibrary {
  // Spelled as in ICU's headers, where each name is a macro that carries the version.
  decltype(&::u_charType) u_charType = nullptr;
  decltype(&::u_errorName) u_errorName = nullptr;
  decltype(&::u_strFoldCase) u_strFoldCase = nullptr;
  decltype(&::u_strToLower) u_strToLower = nullptr;
  decltype(&::ubrk_close) ubrk_close = nullptr;
  decltype(&::ubrk_next) ubrk_next = nullptr;
  decltype(&::ubrk_open) ubrk_open = nullptr;
  decltype(&::ubrk_setUText) ubrk_setUText = nullptr;
  decltype(&::unorm2_getNFDInstance) unorm2_getNFDInstance = nullptr;
  decltype(&::unorm2_normalize) unorm2_normalize = nullptr;
  decltype(&::utext_close) utext_close = nullptr;
  decltype(&::utext_openUTF8) utext_openUTF8 = nullptr;

  /// The library, loaded by the first call and never unloaded. Throws std::runtime_error when it is missing;
  /// the next call tries again. Any thread.
  static const UnicodeLibrary& get();

  /// Throws std::runtime_error when `status` is a failure.
  void check(UErrorCode status) const;
};

}  // namespace molvane
