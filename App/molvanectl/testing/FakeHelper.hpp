#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "HelperProtocol/Connection.hpp"
#include "HelperProtocol/testing/RecordingHelper.hpp"

namespace molvane::ctl {

/// What a fake helper knows and has been asked. It outlives the connections made to it.
struct FakeHelperState {
  std::map<std::string, std::int64_t> sizes;  ///< paths that exist; removing takes them out
  std::map<std::string, NSError> refusals;    ///< by path or task identifier
  std::map<std::string, std::pair<bool, std::string>> tasks;
  /// Answers of the account methods; documents as text.
  std::optional<std::string> accounts;
  std::optional<std::string> accountRefusal;
  std::optional<std::string> companyAdminStatus;
  std::optional<std::pair<std::string, std::string>> companyAdmin;  ///< name and password
  OptionalError accountError;
  std::vector<std::string> documents;  ///< sent to the account methods
  std::string startedJob;              ///< what starting a device job answers; none if empty
  /// By job: what each call for its status answers with, the last for good. Unknown jobs are refused.
  std::map<std::string, std::deque<std::string>> jobs;
  bool cancels = true;
  std::map<std::string, std::string> installable;  ///< what installing the path answers
  std::vector<std::string> calls;                  ///< method and argument of each call
  int connections = 0;
  int callsUntilLost = -1;  ///< the call that loses the connection; none if negative
};

/// A helper in this process that answers for a FakeHelperState; what the state knows nothing of is answered
/// as by a RecordingHelper.
class FakeHelper : public testing::RecordingHelper {
 public:
  explicit FakeHelper(FakeHelperState& state) : state_(state) { ++state_.connections; }

  void ping(const Reply<std::string>& reply) override {
    note("ping");
    reply("pong");
  }
  void removeAllowedItem(const std::string& path, const Reply<bool, OptionalError>& reply) override {
    note("remove " + path);
    if (const OptionalError error = refusalFor(path)) return reply(false, error);
    reply(state_.sizes.erase(path) > 0, std::nullopt);
  }
  void sizeOfAllowedDirectory(const std::string& path,
                              const Reply<std::int64_t, OptionalError>& reply) override {
    note("size " + path);
    if (const OptionalError error = refusalFor(path)) return reply(-1, error);
    const auto found = state_.sizes.find(path);
    reply(found == state_.sizes.end() ? 0 : found->second, std::nullopt);
  }
  void runMaintenanceTask(const std::string& taskID,
                          const Reply<bool, std::string, OptionalError>& reply) override {
    note("task " + taskID);
    if (const OptionalError error = refusalFor(taskID)) return reply(false, "", error);
    const auto& [succeeded, transcript] = state_.tasks[taskID];
    reply(succeeded, transcript, std::nullopt);
  }
  void startDeviceJob(const Data& spec,
                      const Reply<std::optional<std::string>, OptionalError>& reply) override {
    note("start " + std::string(spec.begin(), spec.end()));
    if (const OptionalError error = refusalFor("start")) return reply(std::nullopt, error);
    if (state_.calls.back().find(R"("sourcePath":"")") != std::string::npos) {
      const std::string no = "Image not allowed:  (.img/.iso/.raw/.dmg/.cdr)";
      return reply(std::nullopt, NSError{"com.molvane.helper.policy", 10, no});
    }
    reply(state_.startedJob.empty() ? std::nullopt : std::optional(state_.startedJob), std::nullopt);
  }
  void deviceJobStatus(const std::string& jobID,
                       const Reply<std::optional<Data>, OptionalError>& reply) override {
    note("status " + jobID);
    std::deque<std::string>& answers = state_.jobs[jobID];
    if (answers.empty())
      return reply(std::nullopt, NSError{"com.molvane.helper", 8, "Unknown job: " + jobID});
    const std::string text = answers.front();
    if (answers.size() > 1) answers.pop_front();
    reply(Data(text.begin(), text.end()), std::nullopt);
  }
  void cancelDeviceJob(const std::string& jobID, const Reply<bool>& reply) override {
    note("cancel " + jobID);
    reply(state_.cancels);
  }

  void manageLocalAccount(
      const Data& operation,
      const Reply<std::optional<Data>, std::optional<std::string>, OptionalError>& reply) override {
    note("manage account");
    state_.documents.emplace_back(operation.begin(), operation.end());
    reply(dataOf(state_.accounts), state_.accountRefusal, state_.accountError);
  }
  void applyCompanyAdmin(const Data& configuration,
                         const Reply<std::optional<Data>, OptionalError>& reply) override {
    note("apply company admin");
    state_.documents.emplace_back(configuration.begin(), configuration.end());
    reply(dataOf(state_.companyAdminStatus), state_.accountError);
  }
  void companyAdminPassword(
      const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) override {
    note("company admin password");
    if (!state_.companyAdmin) return reply(std::nullopt, std::nullopt, state_.accountError);
    reply(state_.companyAdmin->first, state_.companyAdmin->second, std::nullopt);
  }

  void removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) override {
    note("remove application " + path);
    if (const OptionalError error = refusalFor(path)) return reply(false, error);
    reply(state_.sizes.erase(path) > 0, std::nullopt);
  }
  void installPackage(const std::string& path,
                      const Reply<bool, std::string, OptionalError>& reply) override {
    install("install package " + path, path, reply);
  }
  void installUnverifiedPackage(const std::string& path,
                                const Reply<bool, std::string, OptionalError>& reply) override {
    install("install unverified package " + path, path, reply);
  }
  void installApplication(const std::string& path,
                          const Reply<bool, std::string, OptionalError>& reply) override {
    install("install application " + path, path, reply);
  }

 private:
  static std::optional<Data> dataOf(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    return Data(text->begin(), text->end());
  }

  void install(const std::string& call, const std::string& path,
               const Reply<bool, std::string, OptionalError>& reply) {
    note(call);
    if (const OptionalError error = refusalFor(path)) return reply(false, "", error);
    reply(true, state_.installable.at(path), std::nullopt);
  }

  void note(std::string call) {
    if (state_.callsUntilLost == static_cast<int>(state_.calls.size()))
      throw ConnectionError("reset by peer");
    state_.calls.push_back(std::move(call));
  }

  OptionalError refusalFor(const std::string& subject) const {
    const auto found = state_.refusals.find(subject);
    if (found == state_.refusals.end()) return std::nullopt;
    return found->second;
  }

  FakeHelperState& state_;
};

}  // namespace molvane::ctl
