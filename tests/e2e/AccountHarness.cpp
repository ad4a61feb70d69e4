#include "AccountHarness.hpp"

#include <crypt.h>
#include <sys/stat.h>

#include <cstring>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "RawClient.hpp"

namespace molvane::e2e {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const fs::path kRecords = "/var/db/dslocal/nodes/Default/users";
const fs::path kKept = "/var/root/kept-accounts";

// The helper gives a tool two minutes, and one operation may wait for another.
constexpr std::chrono::seconds kLongestOperation{400};

// What makes up the accounts.
constexpr std::array kDatabase{"/etc/passwd", "/etc/shadow", "/etc/group", "/etc/gshadow", "/var/db/dslocal"};

void must(const Outcome& outcome) {
  if (outcome.status != 0) throw std::runtime_error(outcome.err);
}

// Brings the accounts back to how the root was set up, which the first call keeps.
void restoreAccounts() {
  const bool kept = fs::exists(kKept);
  fs::create_directories(kKept);
  for (const fs::path path : kDatabase) {
    const fs::path copy = kKept / path.filename();
    if (!kept) must(run({"/bin/cp", "-a", path, copy}));
    fs::remove_all(path);
    must(run({"/bin/cp", "-a", copy, path}));
  }
  for (const auto& home : fs::directory_iterator("/Users")) {
    if (home.path() != "/Users/ann" && home.path() != "/Users/bob") fs::remove_all(home.path());
  }
}

std::string marshalledBytes(std::string_view bytes) {
  std::string result = marshalled(bytes);
  result.pop_back();
  return result;
}

// Reads the values of a marshalled body one after the other.
class Body {
 public:
  explicit Body(const std::string& bytes) : bytes_(bytes) {}

  std::uint32_t number() {
    at_ = (at_ + 3) / 4 * 4;
    std::uint32_t value = 0;
    std::memcpy(&value, bytes_.substr(at_, 4).data(), 4);
    at_ += 4;
    return value;
  }
  std::string bytes() {
    const std::uint32_t size = number();
    std::string value = bytes_.substr(at_, size);
    at_ += size;
    return value;
  }
  std::string text() {
    std::string value = bytes();
    ++at_;
    return value;
  }
  std::optional<std::string> maybeBytes() { return number() > 0 ? std::optional(bytes()) : std::nullopt; }
  std::optional<std::string> maybeText() { return number() > 0 ? std::optional(text()) : std::nullopt; }

 private:
  const std::string& bytes_;
  std::size_t at_ = 0;
};

RawClient::Reply callHelper(std::string_view member, std::string_view signature = {},
                            std::string_view body = {}) {
  RawClient client(kLongestOperation);
  client.authenticate();
  return client.call(member, signature, body);
}

std::string groupMembers(const std::string& group) {
  std::istringstream file(readFile("/etc/group"));
  for (std::string line; std::getline(file, line);) {
    if (line.rfind(group + ":", 0) == 0) return "," + line.substr(line.rfind(':') + 1) + ",";
  }
  return {};
}

std::string fieldOf(const std::string& file, const std::string& name, int field) {
  std::istringstream lines(readFile(file));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string value;
    std::getline(fields, value, ':');
    if (value != name) continue;
    for (int i = 0; i < field; ++i) std::getline(fields, value, ':');
    return value;
  }
  return {};
}

void expectNone(const std::vector<std::string>& secrets, const std::string& text, const std::string& where) {
  for (const std::string& secret : secrets) {
    EXPECT_EQ(text.find(secret), std::string::npos) << "a password stands in " << where;
  }
}

}  // namespace

json AccountReply::account(const std::string& name) const {
  if (!snapshot) return nullptr;
  for (const json& account : snapshot->at("accounts")) {
    if (account.at("name") == name) return account;
  }
  return nullptr;
}

void PrintTo(const AccountReply& reply, std::ostream* stream) {
  *stream << "snapshot " << (reply.snapshot ? reply.snapshot->dump() : "none") << ", text "
          << testing::PrintToString(reply.text) << ", error " << testing::PrintToString(reply.error);
}

AccountFixture::AccountFixture() {
  endHelper();
  restoreAccounts();
  fs::remove_all(kStateFolder);
  writeFile("/var/log/macroot/processes.log", "");
  const std::string marker = "/var/root/test-begins";
  writeFile(marker, "");
  begin_ = fs::last_write_time(marker);
}

void AccountFixture::TearDown() { expectSecretsNowhere(); }

std::string AccountFixture::secret(std::string text) {
  const std::lock_guard lock(mutex_);
  if (text.size() >= 8) secrets_.push_back(text);
  return text;
}

AccountReply AccountFixture::manageBytes(const std::string& document) {
  const auto reply = callHelper("ManageLocalAccount", "ay", marshalledBytes(document));
  {
    const std::lock_guard lock(mutex_);
    replies_ += reply.body;
  }
  if (reply.error) return {{}, {}, stringAt(reply.body, 0)};
  Body body(reply.body);
  AccountReply result;
  if (const auto bytes = body.maybeBytes()) result.snapshot = json::parse(*bytes);
  result.text = body.maybeText();
  return result;
}

json AccountFixture::applyCompanyAdmin(const json& config) {
  const auto reply = callHelper("ApplyCompanyAdmin", "ay", marshalledBytes(config.dump()));
  {
    const std::lock_guard lock(mutex_);
    replies_ += reply.body;
  }
  if (reply.error) return stringAt(reply.body, 0);
  return json::parse(Body(reply.body).bytes());
}

HandedOut AccountFixture::companyAdminPassword() {
  const auto reply = callHelper("CompanyAdminPassword");
  if (reply.error) return {{}, {}, stringAt(reply.body, 0)};
  Body body(reply.body);
  HandedOut result;
  result.name = body.maybeText();
  result.password = body.maybeText();
  const std::lock_guard lock(mutex_);
  if (result.password) handedOut_.push_back(*result.password);
  return result;
}

json AccountFixture::create(const std::string& name, const std::string& password, bool admin) {
  return {{"create",
           {{"name", name},
            {"fullName", "Somebody " + name},
            {"password", secret(password)},
            {"admin", admin},
            {"mustChange", false}}}};
}

json AccountFixture::resetPassword(const std::string& name, const std::string& password) {
  return {{"resetPassword", {{"name", name}, {"password", secret(password)}, {"mustChange", false}}}};
}

json AccountFixture::withProof(json operation, const std::string& name, const std::string& password) {
  operation.begin().value()["fileVault"] = {{"name", name}, {"password", password}};
  return operation;
}

json AccountFixture::companyConfig(const std::string& name, bool enabled) {
  return {{"enabled", enabled},
          {"name", name},
          {"fullName", "Company Administrator"},
          {"rotationDays", 7},
          {"updatedAt", 780000000.5}};
}

void AccountFixture::expectSecretsNowhere() const {
  auto everywhere = secrets_;
  for (const char* known : {kAnnsPassword, kBobsPassword}) everywhere.emplace_back(known);
  auto all = everywhere;
  all.insert(all.end(), handedOut_.begin(), handedOut_.end());

  expectNone(all, replies_, "a reply");
  for (const auto& process : fs::directory_iterator("/proc")) {
    if (std::isdigit(static_cast<unsigned char>(process.path().filename().native()[0])) == 0) continue;
    std::error_code gone;
    if (!fs::exists(process.path() / "cmdline", gone)) continue;
    for (const char* part : {"cmdline", "environ"}) {
      try {
        expectNone(all, readFile(process.path() / part), "a process");
      } catch (const std::runtime_error&) {
        // It has ended.
      }
    }
  }
  for (const fs::path root : {"/etc", "/var", "/Library", "/Users", "/tmp", "/run", "/dev/shm", "/opt",
                              "/usr/local", "/Applications", "/Volumes"}) {
    struct stat status {};
    stat(root.c_str(), &status);
    const dev_t device = status.st_dev;
    for (fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied), end;
         entry != end; ++entry) {
      if (lstat(entry->path().c_str(), &status) != 0) continue;
      if (S_ISDIR(status.st_mode) && status.st_dev != device) entry.disable_recursion_pending();
      if (!S_ISREG(status.st_mode) || entry->last_write_time() < begin_) continue;
      const bool isState = entry->path().parent_path() == kStateFolder;
      expectNone(isState ? everywhere : all, readFile(entry->path()), entry->path());
    }
  }
}

std::string shadowHash(const std::string& name) { return fieldOf("/etc/shadow", name, 1); }

bool isPassword(const std::string& name, const std::string& password) {
  std::string hash = shadowHash(name);
  if (hash.rfind('!', 0) == 0) hash.erase(0, 1);
  const char* result = hash.empty() ? nullptr : crypt(password.c_str(), hash.c_str());
  return result != nullptr && hash == result;
}

bool accountExists(const std::string& name) { return !fieldOf("/etc/passwd", name, 2).empty(); }
bool isAdministrator(const std::string& name) {
  return groupMembers("admin").find("," + name + ",") != std::string::npos;
}
bool isHidden(const std::string& name) {
  return fs::exists(kRecords / name / "IsHidden") && readFile(kRecords / name / "IsHidden") == "1\n";
}
bool isDisabled(const std::string& name) { return shadowHash(name).rfind('!', 0) == 0; }

}  // namespace molvane::e2e
