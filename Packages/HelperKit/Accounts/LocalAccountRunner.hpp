#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Core/LocalAccounts.hpp"
#include "HelperKit/Accounts/LocalAccountStep.hpp"
#include "HelperKit/Accounts/PromptedCommand.hpp"

/// Reads and changes the machine's local accounts through the system's own tools. No state; any thread may
/// call and is blocked meanwhile. Does not serialise concurrent changes; the caller must.
namespace molvane::LocalAccountRunner {

/// The tools ran, and something went wrong; part of the change may have been made.
class Failure final : public std::exception {
 public:
  /// `log` holds the outputs of all steps that ran, each behind a line feed; and a line of ours when a tool
  /// reached its time limit, when its "Error:" is masked or left out, or when the accounts could not be read
  /// back.
  explicit Failure(std::string log);

  [[nodiscard]] const std::string& log() const noexcept { return log_; }
  /// The last line of the log that speaks of an error, else its last line, else "failed".
  [[nodiscard]] const std::string& errorDescription() const noexcept { return description_; }
  [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

 private:
  std::string log_;
  std::string description_;
};

/// How a list of steps ended.
struct Outcome {
  std::string log;         ///< of the steps that ran, as Failure takes it
  bool failed = false;     ///< the last step that ran
  bool abandoned = false;  ///< the tool that failed may be at work yet

  /// Throws Failure when a step failed.
  void require() const {
    if (failed) throw Failure(log);
  }
};

/// Runs one step, for at most so many seconds; as PromptedCommand::run does.
using StepRunner = std::function<PromptedCommand::Result(const Step& step, double timeout)>;

/// Runs the steps in order, each for at most 120 seconds, until one fails.
[[nodiscard]] Outcome runAll(const std::vector<Step>& steps, const StepRunner& run);

/// All of the accounts as they are now; nothing when the directory does not answer within 30 seconds, or its
/// answer cannot be understood. Does not throw for what a tool does.
[[nodiscard]] std::optional<std::vector<LocalAccount>> listedAccounts();

/// The accounts as they are now, without `companyAdmin`. Does not throw for what a tool does: when one that
/// lists accounts or administrators fails, takes longer than 30 seconds or prints something else there are no
/// accounts, when the one for FileVault fails it is off.
[[nodiscard]] LocalAccountsSnapshot snapshot();

/// The accounts that two property lists of the directory describe: all users' records, and the record of the
/// administrators' group. Ordered by user identifier; system accounts (below 501) are left out. Empty where
/// `users` is something else; nobody is an administrator where `admins` is.
[[nodiscard]] std::vector<LocalAccount> accounts(std::string_view users, std::string_view admins);

/// Short name of the user who owns the console; nothing when nobody is logged in there.
[[nodiscard]] std::optional<std::string> consoleUser();

/// The tool runs that carry out an operation, in order. No secret stands among the arguments.
[[nodiscard]] std::vector<Step> steps(const LocalAccountOperation& operation);

/// Whether the snapshot shows what the operation asked for. A new password does not show.
[[nodiscard]] bool achieved(const LocalAccountOperation& operation, const LocalAccountsSnapshot& snapshot);

/// Checks the operation against the accounts as they are, carries it out, reads them back, and returns what
/// was read. `company` is the short name of the company administrator, which is not to be touched.
///
/// Throws LocalAccountFailure for a refusal, before anything was changed; Failure when a tool failed or the
/// change does not show; steps that were done are not undone. At most 120 seconds for each step.
LocalAccountsSnapshot perform(const LocalAccountOperation& operation,
                              const std::optional<std::string>& company);

/// A random password of that many characters, letters and digits that cannot be taken for each other. Throws
/// std::system_error when the system gives no random bytes. A negative length ends the program.
[[nodiscard]] std::string generatedPassword(std::int64_t length);

}  // namespace molvane::LocalAccountRunner
