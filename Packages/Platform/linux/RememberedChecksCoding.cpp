#include "Platform/linux/RememberedChecksCoding.hpp"

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include "Base/JsonCoding.hpp"
#include "Platform/SafeFile.hpp"

namespace molvane {
namespace {

constexpr std::size_t kMostBootIdentifierBytes = 4096;

// JSON's whole numbers are signed; the bits are what counts here.
template <typename Number>
void readBits(const JsonObjectReader& object, std::string_view key, Number& value) {
  std::int64_t bits = 0;
  object.read(key, bits);
  value = static_cast<Number>(bits);
}

template <typename Number>
std::int64_t bitsOf(Number value) {
  return static_cast<std::int64_t>(value);
}

}  // namespace

static void fromJson(const JsonValue& json, FileIdentity& identity) {
  const JsonObjectReader object(json);
  readBits(object, "device", identity.device);
  readBits(object, "inode", identity.inode);
  readBits(object, "size", identity.size);
  object.read("modified", identity.modifiedNanoseconds);
  object.read("statusChanged", identity.statusChangedNanoseconds);
}

static JsonValue toJson(const FileIdentity& identity) {
  return JsonObjectWriter()
      .add("device", bitsOf(identity.device))
      .add("inode", bitsOf(identity.inode))
      .add("size", bitsOf(identity.size))
      .add("modified", identity.modifiedNanoseconds)
      .add("statusChanged", identity.statusChangedNanoseconds)
      .take();
}

static void fromJson(const JsonValue& json, RememberedCheck& check) {
  const JsonObjectReader object(json);
  object.read("executable", check.executable);
  object.read("requirement", check.requirement);
  object.read("signaturePath", check.signaturePath);
  object.read("signature", check.signature);
  object.read("anchor", check.anchor);
  readBits(object, "validFrom", check.validFrom);
  readBits(object, "validUntil", check.validUntil);
}

static JsonValue toJson(const RememberedCheck& check) {
  return JsonObjectWriter()
      .add("executable", check.executable)
      .add("requirement", check.requirement)
      .add("signaturePath", check.signaturePath)
      .add("signature", check.signature)
      .add("anchor", check.anchor)
      .add("validFrom", bitsOf(check.validFrom))
      .add("validUntil", bitsOf(check.validUntil))
      .take();
}

std::string bootIdentifier() {
  const auto text = readSmallFile("/proc/sys/kernel/random/boot_id", kMostBootIdentifierBytes);
  if (!text) throw std::system_error(ENOENT, std::generic_category(), "boot_id");
  return *text;
}

std::string encodedChecks(const std::list<std::shared_ptr<const RememberedCheck>>& checks,
                          const std::string& boot) {
  JsonValue::Array elements;
  for (const auto& check : checks) elements.push_back(toJson(*check));
  return jsonText(JsonObjectWriter().add("boot", boot).add("checks", JsonValue(std::move(elements))).take());
}

std::vector<RememberedCheck> decodedChecks(std::string_view document, std::string_view boot) {
  const JsonValue json = parseJson(document);
  const JsonObjectReader object(json);
  std::string writtenIn;
  object.read("boot", writtenIn);
  std::vector<RememberedCheck> checks;
  if (writtenIn == boot) object.read("checks", checks);
  return checks;
}

}  // namespace molvane
