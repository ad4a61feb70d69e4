#pragma once

#include <optional>
#include <string>

#include "Base/Date.hpp"
#include "Base/JsonCoding.hpp"
#include "Base/Wipe.hpp"
#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// What is kept about the company administrator. As JSON its date is ISO 8601 text in whole seconds.
struct CompanyAdminState {
  std::string name;      ///< short name of the account
  std::string password;  ///< in clear text
  Date rotatedAt;        ///< when the helper set that password

  ~CompanyAdminState() { wipe(password); }
  bool operator==(const CompanyAdminState&) const = default;
};
void fromJson(const JsonValue& json, CompanyAdminState& state);
[[nodiscard]] JsonValue toJson(const CompanyAdminState& state);

/// The files of the company administrator in the helper's folder: "company-admin.json" with the state, and
/// "company-admin.pending.json", of the same form, with the password that is being set and not yet known to
/// be in force.
///
/// Nothing is touched before the first call. The folder is made with mode 0700 and narrowed to it by each
/// call; a file is 0600 from its first moment and appears whole or not at all. A file is believed only when
/// it is a regular file of this process's user, in a folder of that user, and nobody else may write to it.
/// One that is open to others is replaced by one that is not as soon as it is met: by a believed one where
/// others could only read it, else by one of mode 0400, which marks it as doubted. One thread at a time.
class CompanyAdminFiles {
 public:
  explicit CompanyAdminFiles(std::string folder) : folder_(std::move(folder)) {}

  enum class Trust {
    absent,
    notBelieved,
    doubted,  ///< others could have written what it says
    believed,
  };
  struct Found {
    Trust trust = Trust::absent;
    CompanyAdminState state;  ///< of a believed or doubted file
  };

  /// What there is now. Never throws for what the files are like; writes a line to the log about one that is
  /// not believed, or was open to others.
  [[nodiscard]] Found state() const { return read(kStateName); }
  [[nodiscard]] Found pending() const { return read(kPendingName); }

  /// Puts the file in place; on return it has reached the disk and is believed. What stood there and was not
  /// believed is set aside, beside it; so is what was doubted and differs. Throws std::system_error, and
  /// std::out_of_range for a date outside the years 1 to 9999; then what stood there before still does.
  void saveState(const CompanyAdminState& state) const { write(kStateName, state); }
  void savePending(const CompanyAdminState& state) const { write(kPendingName, state); }

  /// What cannot be removed stays; the log says so.
  void removeState() const { remove(kStateName); }
  void removePending() const { remove(kPendingName); }

  /// Removes what a helper that was killed left half written.
  void clearUp() const;

 private:
  static constexpr const char* kStateName = "company-admin.json";
  static constexpr const char* kPendingName = "company-admin.pending.json";

  /// No descriptor when there is no such folder; throws std::system_error when it is not to be trusted.
  [[nodiscard]] FileDescriptor openOwnFolder() const;
  static Trust readAndNarrow(const FileDescriptor& folder, const char* name, std::string& bytes);
  [[nodiscard]] Found read(const char* name) const;
  void write(const char* name, const CompanyAdminState& state) const;
  void remove(const char* name) const;

  std::string folder_;
};

}  // namespace molvane
