#include "Platform/CodeSigning.hpp"

#include <utility>

#include "Platform/ProcessDirectories.hpp"
#include "Platform/linux/CmsCodeSigning.hpp"

namespace molvane {

namespace {

constexpr const char* kInstalledRoot = "/etc/com.molvane.helper/anchor.pem";

}  // namespace

std::unique_ptr<CodeSigning> makeCodeSigning() {
  CmsCodeSigning::Options options;
  options.anchorPath = kInstalledRoot;
  options.rememberedFolder = runtimeDirectory();
  return std::make_unique<CmsCodeSigning>(std::move(options));
}

}  // namespace molvane
