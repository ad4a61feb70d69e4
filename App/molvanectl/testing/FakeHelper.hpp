#pragma once

#include <map>
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
