#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/Mutex.hpp"
#include "HelperProtocol/HelperXPCProtocol.hpp"

namespace molvane::testing {

/// What a RecordingHelper replies; every method takes the values of its shape.
struct Answers {
  bool ok = true;
  std::int64_t size = 0;
  std::string message;
  std::optional<Data> document;
  std::optional<std::string> text;
  std::optional<std::string> secondText;
  OptionalError error;

  /// The failure value of every shape and an error.
  static Answers failure(NSError error) {
    Answers answers;
    answers.ok = false;
    answers.size = -1;
    answers.error = std::move(error);
    return answers;
  }
};

/// Stands in for the service: remembers what it was asked and replies what it was told. Any thread.
class RecordingHelper : public MolvaneHelperXPCProtocol {
 public:
  struct Call {
    std::string method;
    std::string argument;

    bool operator==(const Call&) const = default;
  };

  void setAnswers(Answers answers) {
    const MutexLock lock(mutex_);
    answers_ = std::move(answers);
  }

  /// Runs before each reply; what it throws leaves the method. With `false` the method does not reply.
  void setBeforeReply(std::function<bool()> function) {
    const MutexLock lock(mutex_);
    beforeReply_ = std::move(function);
  }

  [[nodiscard]] std::vector<Call> takeCalls() {
    const MutexLock lock(mutex_);
    return std::exchange(calls_, {});
  }

  void ping(const Reply<std::string>& reply) override {
    answer("ping", {}, [&](const Answers& is) { reply(is.message); });
  }
  void removeAllowedItem(const std::string& path, const Reply<bool, OptionalError>& reply) override {
    answer("removeAllowedItem", path, [&](const Answers& is) { reply(is.ok, is.error); });
  }
  void sizeOfAllowedDirectory(const std::string& path,
                              const Reply<std::int64_t, OptionalError>& reply) override {
    answer("sizeOfAllowedDirectory", path, [&](const Answers& is) { reply(is.size, is.error); });
  }
  void runMaintenanceTask(const std::string& taskID,
                          const Reply<bool, std::string, OptionalError>& reply) override {
    answer("runMaintenanceTask", taskID, [&](const Answers& is) { reply(is.ok, is.message, is.error); });
  }
  void startDeviceJob(const Data& spec,
                      const Reply<std::optional<std::string>, OptionalError>& reply) override {
    answer("startDeviceJob", textOf(spec), [&](const Answers& is) { reply(is.text, is.error); });
  }
  void deviceJobStatus(const std::string& jobID,
                       const Reply<std::optional<Data>, OptionalError>& reply) override {
    answer("deviceJobStatus", jobID, [&](const Answers& is) { reply(is.document, is.error); });
  }
  void cancelDeviceJob(const std::string& jobID, const Reply<bool>& reply) override {
    answer("cancelDeviceJob", jobID, [&](const Answers& is) { reply(is.ok); });
  }
  void removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) override {
    answer("removeApplication", path, [&](const Answers& is) { reply(is.ok, is.error); });
  }
  void installPackage(const std::string& path,
                      const Reply<bool, std::string, OptionalError>& reply) override {
    answer("installPackage", path, [&](const Answers& is) { reply(is.ok, is.message, is.error); });
  }
  void installUnverifiedPackage(const std::string& path,
                                const Reply<bool, std::string, OptionalError>& reply) override {
    answer("installUnverifiedPackage", path, [&](const Answers& is) { reply(is.ok, is.message, is.error); });
  }
  void installApplication(const std::string& path,
                          const Reply<bool, std::string, OptionalError>& reply) override {
    answer("installApplication", path, [&](const Answers& is) { reply(is.ok, is.message, is.error); });
  }
  void manageLocalAccount(
      const Data& operation,
      const Reply<std::optional<Data>, std::optional<std::string>, OptionalError>& reply) override {
    answer("manageLocalAccount", textOf(operation),
           [&](const Answers& is) { reply(is.document, is.text, is.error); });
  }
  void applyCompanyAdmin(const Data& configuration,
                         const Reply<std::optional<Data>, OptionalError>& reply) override {
    answer("applyCompanyAdmin", textOf(configuration),
           [&](const Answers& is) { reply(is.document, is.error); });
  }
  void companyAdminPassword(
      const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) override {
    answer("companyAdminPassword", {}, [&](const Answers& is) { reply(is.text, is.secondText, is.error); });
  }

 private:
  static std::string textOf(const Data& data) { return {data.begin(), data.end()}; }

  template <typename Function>
  void answer(std::string method, std::string argument, Function&& function) {
    Answers answers;
    std::function<bool()> beforeReply;
    {
      const MutexLock lock(mutex_);
      calls_.push_back({std::move(method), std::move(argument)});
      answers = answers_;
      beforeReply = beforeReply_;
    }
    if (!beforeReply || beforeReply()) function(answers);
  }

  Mutex mutex_;
  Answers answers_ MOLVANE_GUARDED_BY(mutex_);
  std::function<bool()> beforeReply_ MOLVANE_GUARDED_BY(mutex_);
  std::vector<Call> calls_ MOLVANE_GUARDED_BY(mutex_);
};

}  // namespace molvane::testing
