#include "Platform/PackageTypes.hpp"

#include <algorithm>
#include <array>
#include <string>

#include "Base/Ascii.hpp"

namespace molvane {
namespace {

// The folder types that the Mac's type declarations call packages. Sorted.
constexpr std::array<std::string_view, 31> kPackageExtensions = {
    "action",        "app",       "appex",      "bundle",     "component", "dictionary",  "docset",  "driver",
    "kext",          "key",       "logicx",     "mdimporter", "menu",      "mpkg",        "numbers", "pages",
    "photoslibrary", "pkg",       "playground", "plugin",     "prefpane",  "qlgenerator", "rtfd",    "saver",
    "service",       "spotlight", "wdgt",       "workflow",   "xcodeproj", "xcworkspace", "xpc"};
static_assert(std::is_sorted(kPackageExtensions.begin(), kPackageExtensions.end()));

}  // namespace

bool isPackageName(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  const std::string extension = asciiLowercased(name.substr(dot + 1));
  return std::binary_search(kPackageExtensions.begin(), kPackageExtensions.end(), extension);
}

}  // namespace molvane
