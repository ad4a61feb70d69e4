#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Mutex.hpp"
#include "Base/PropertyList.hpp"
#include "Platform/FileIdentity.hpp"

namespace molvane {

/// What a bundle says about itself in its Info.plist. The file is looked at on every request, but read only
/// when it is another than the last time. Any thread.
class Bundle {
 public:
  /// The bundle whose information stands in that file. The file need not exist.
  explicit Bundle(std::string infoPlistPath);

  /// The bundle of this program, as it was installed.
  [[nodiscard]] static Bundle& main();

  /// The string under `key`. Nothing when the file cannot be read or is no property list of a dictionary, and
  /// when the key is absent or holds something else.
  [[nodiscard]] std::optional<std::string> infoString(std::string_view key);

 private:
  std::shared_ptr<const PropertyList> info();

  std::string infoPlistPath_;
  Mutex mutex_;
  std::optional<FileIdentity> identity_ MOLVANE_GUARDED_BY(mutex_);
  std::shared_ptr<const PropertyList> info_ MOLVANE_GUARDED_BY(mutex_);
};

}  // namespace molvane
