#include "Core/LocalAccounts.hpp"

namespace molvane {

void fromJson(const JsonValue& json, CreateAccount& change) {
  const JsonObjectReader object(json);
  object.read("name", change.name);
  object.read("fullName", change.fullName);
  object.read("password", change.password);
  object.read("admin", change.admin);
  object.read("mustChange", change.mustChange);
  object.read("fileVault", change.fileVault);
}

void fromJson(const JsonValue& json, ResetAccountPassword& change) {
  const JsonObjectReader object(json);
  object.read("name", change.name);
  object.read("password", change.password);
  object.read("mustChange", change.mustChange);
  object.read("fileVault", change.fileVault);
}

void fromJson(const JsonValue& json, SetAccountAdmin& change) {
  const JsonObjectReader object(json);
  object.read("name", change.name);
  object.read("admin", change.admin);
}

void fromJson(const JsonValue& json, SetAccountEnabled& change) {
  const JsonObjectReader object(json);
  object.read("name", change.name);
  object.read("enabled", change.enabled);
}

void fromJson(const JsonValue& json, DeleteAccount& change) {
  JsonObjectReader(json).read("name", change.name);
}

JsonValue toJson(const CreateAccount& change) {
  return JsonObjectWriter()
      .add("name", change.name)
      .add("fullName", change.fullName)
      .add("password", change.password)
      .add("admin", change.admin)
      .add("mustChange", change.mustChange)
      .add("fileVault", change.fileVault)
      .take();
}

JsonValue toJson(const ResetAccountPassword& change) {
  return JsonObjectWriter()
      .add("name", change.name)
      .add("password", change.password)
      .add("mustChange", change.mustChange)
      .add("fileVault", change.fileVault)
      .take();
}

JsonValue toJson(const SetAccountAdmin& change) {
  return JsonObjectWriter().add("name", change.name).add("admin", change.admin).take();
}

JsonValue toJson(const SetAccountEnabled& change) {
  return JsonObjectWriter().add("name", change.name).add("enabled", change.enabled).take();
}

JsonValue toJson(const DeleteAccount& change) { return JsonObjectWriter().add("name", change.name).take(); }

namespace {

constexpr std::string_view kCreate = "create";
constexpr std::string_view kResetPassword = "resetPassword";
constexpr std::string_view kSetAdmin = "setAdmin";
constexpr std::string_view kSetEnabled = "setEnabled";
constexpr std::string_view kDelete = "delete";

template <typename Change>
void readChange(const JsonObjectReader& object, std::string_view which, LocalAccountOperation& operation) {
  object.read(which, operation.change.emplace<Change>());
}

}  // namespace

void fromJson(const JsonValue& json, LocalAccountOperation& operation) {
  const JsonObjectReader object(json);
  const std::string_view which = object.onlyCase({kCreate, kResetPassword, kSetAdmin, kSetEnabled, kDelete});
  if (which == kCreate) {
    readChange<CreateAccount>(object, which, operation);
  } else if (which == kResetPassword) {
    readChange<ResetAccountPassword>(object, which, operation);
  } else if (which == kSetAdmin) {
    readChange<SetAccountAdmin>(object, which, operation);
  } else if (which == kSetEnabled) {
    readChange<SetAccountEnabled>(object, which, operation);
  } else {
    readChange<DeleteAccount>(object, which, operation);
  }
}

JsonValue toJson(const LocalAccountOperation& operation) {
  constexpr std::string_view kKeys[] = {kCreate, kResetPassword, kSetAdmin, kSetEnabled, kDelete};
  const std::string key(kKeys[operation.change.index()]);
  return std::visit([&](const auto& change) { return JsonObjectWriter().add(key, change).take(); },
                    operation.change);
}

void fromJson(const JsonValue& json, LocalAccount& account) {
  const JsonObjectReader object(json);
  object.read("name", account.name);
  object.read("fullName", account.fullName);
  object.read("uid", account.uid);
  object.read("isAdmin", account.isAdmin);
  object.read("canUnlockFileVault", account.canUnlockFileVault);
  object.read("isDisabled", account.isDisabled);
  object.read("isHidden", account.isHidden);
}

JsonValue toJson(const LocalAccount& account) {
  return JsonObjectWriter()
      .add("name", account.name)
      .add("fullName", account.fullName)
      .add("uid", account.uid)
      .add("isAdmin", account.isAdmin)
      .add("canUnlockFileVault", account.canUnlockFileVault)
      .add("isDisabled", account.isDisabled)
      .add("isHidden", account.isHidden)
      .take();
}

void fromJson(const JsonValue& json, AccountAdminProof& proof) {
  const JsonObjectReader object(json);
  object.read("name", proof.name);
  object.read("password", proof.password);
}

JsonValue toJson(const AccountAdminProof& proof) {
  return JsonObjectWriter().add("name", proof.name).add("password", proof.password).take();
}

void fromJson(const JsonValue& json, CompanyAdminConfig& config) {
  const JsonObjectReader object(json);
  object.read("enabled", config.enabled);
  object.read("name", config.name);
  object.read("fullName", config.fullName);
  object.read("rotationDays", config.rotationDays);
  object.read("updatedAt", config.updatedAt);
}

JsonValue toJson(const CompanyAdminConfig& config) {
  return JsonObjectWriter()
      .add("enabled", config.enabled)
      .add("name", config.name)
      .add("fullName", config.fullName)
      .add("rotationDays", config.rotationDays)
      .add("updatedAt", config.updatedAt)
      .take();
}

void fromJson(const JsonValue& json, CompanyAdminStatus& status) {
  const JsonObjectReader object(json);
  object.read("config", status.config);
  object.read("active", status.active);
  object.read("rotatedAt", status.rotatedAt);
  object.read("problem", status.problem);
}

JsonValue toJson(const CompanyAdminStatus& status) {
  return JsonObjectWriter()
      .add("config", status.config)
      .add("active", status.active)
      .add("rotatedAt", status.rotatedAt)
      .add("problem", status.problem)
      .take();
}

void fromJson(const JsonValue& json, LocalAccountsSnapshot& snapshot) {
  const JsonObjectReader object(json);
  object.read("accounts", snapshot.accounts);
  object.read("loggedIn", snapshot.loggedIn);
  object.read("fileVault", snapshot.fileVault);
  object.read("companyAdmin", snapshot.companyAdmin);
}

JsonValue toJson(const LocalAccountsSnapshot& snapshot) {
  return JsonObjectWriter()
      .add("accounts", snapshot.accounts)
      .add("loggedIn", snapshot.loggedIn)
      .add("fileVault", snapshot.fileVault)
      .add("companyAdmin", snapshot.companyAdmin)
      .take();
}

}  // namespace molvane
