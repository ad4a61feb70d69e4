#include "HelperKit/Accounts/PromptedCommand.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Base/Characters.hpp"
#include "Base/NSError.hpp"
#include "Base/Wipe.hpp"
#include "HelperKit/Accounts/PromptLine.hpp"
#include "HelperKit/Accounts/ToolTranscript.hpp"
#include "HelperKit/Maintenance/MaintenanceRunner.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/Deadline.hpp"

namespace molvane::PromptedCommand {

namespace {

using LocalAccountRunner::Step;
using Clock = ChildProcess::Clock;

constexpr int kMostAnswers = 6;

/// With its newline what a terminal of any system takes as one line.
constexpr std::size_t kLongestReply = 1023;  // bytes

/// Looks for the word by which the tools report a failure, in output that comes piece by piece.
class ErrorWord {
 public:
  void add(std::string_view written) {
    for (const char c : written) {
      if (found()) return;
      if (c == '\r') continue;  // The terminal's.
      matched_ = c == kWord[matched_] ? matched_ + 1 : c == kWord[0] ? 1 : 0;
    }
  }

  [[nodiscard]] bool found() const { return matched_ == kWord.size(); }

 private:
  static constexpr std::string_view kWord = "Error:";
  std::size_t matched_ = 0;
};

/// One tool on its terminal, from its start to its end.
class Dialogue {
 public:
  Dialogue(ChildProcess& tool, const std::vector<Step::Answer>& answers, const Limits& limits)
      : tool_(tool), answers_(answers), limits_(limits), transcript_(limits.bytesKeptOfEach) {}

  Result follow(double timeout) {
    const auto read = [this](std::string_view bytes) { readOutput(bytes); };
    const bool timedOut = !tool_.pump(deadlineAfter(timeout), read);
    if (timedOut) {
      tool_.detachOnDestruction();
      tool_.terminate();
      tool_.pump(Clock::now() + limits_.exitAfterStop, read);
    }
    const std::optional<int> status = tool_.terminationStatus();
    if (status) tool_.drain(Clock::now() + limits_.outputAfterExit, read);
    return {.status = timedOut ? -1 : status.value_or(-1),
            .output = text(),
            .abandoned = timedOut,
            .timedOut = timedOut,
            .saidError = error_.found()};
  }

 private:
  void readOutput(std::string_view bytes) {
    transcript_.add(bytes);
    error_.add(bytes);
    if (answered_ >= kMostAnswers) return;
    line_.add(bytes);
    const std::optional<std::string> question = line_.asking();
    const Step::Answer* const answer = question ? answerTo(*question) : nullptr;
    if (answer == nullptr) return;
    ++answered_;
    line_.forget();
    WipedText typed;
    typed->reserve(answer->reply.size() + 1);
    typed->append(answer->reply).append("\n");
    tool_.writeInput(*typed);
  }

  [[nodiscard]] const Step::Answer* answerTo(const std::string& question) const {
    const auto claims = [&](const Step::Answer& answer) {
      return answer.prompt && question.find(lowercased(*answer.prompt)) != std::string::npos;
    };
    auto found = std::find_if(answers_.begin(), answers_.end(), claims);
    if (found == answers_.end()) {
      const auto claimsNothing = [](const Step::Answer& answer) { return !answer.prompt; };
      found = std::find_if(answers_.begin(), answers_.end(), claimsNothing);
    }
    return found == answers_.end() ? nullptr : &*found;
  }

  [[nodiscard]] std::string text() const {
    std::vector<std::string_view> secrets;
    for (const Step::Answer& answer : answers_) secrets.emplace_back(answer.reply);
    return transcript_.text(std::move(secrets));
  }

  ChildProcess& tool_;
  const std::vector<Step::Answer>& answers_;
  const Limits& limits_;
  ToolTranscript transcript_;
  ErrorWord error_;
  PromptLine line_;
  int answered_ = 0;
};

bool canBeTyped(const Step::Answer& answer) {
  if (answer.reply.size() > kLongestReply) return false;
  return std::none_of(answer.reply.begin(), answer.reply.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7F;
  });
}

bool hasNul(const std::string& argument) { return argument.find('\0') != std::string::npos; }

Result failure(const std::system_error& error, bool abandoned) {
  return {.output = posixErrorDescription(error.code().value()), .abandoned = abandoned};
}

Result runOnTerminal(const Step& step, double timeout, const Limits& limits) {
  ChildProcess::Options options{
      limits.terminalTool, {"-q", "/dev/null", step.executable}, ChildProcess::StandardInput::pipe};
  options.arguments.insert(options.arguments.end(), step.arguments.begin(), step.arguments.end());
  std::optional<ChildProcess> tool;
  try {
    tool.emplace(options);
  } catch (const std::system_error& error) {
    return failure(error, false);
  }
  return Dialogue(*tool, step.answers, limits).follow(timeout);
}

Result runPlainly(const Step& step, double timeout) {
  MaintenanceRunner::Execution execution =
      MaintenanceRunner::execute({step.executable, step.arguments}, timeout);
  ErrorWord error;
  error.add(execution.output);
  return {.status = execution.timedOut ? -1 : execution.status,
          .output = std::move(execution.output),
          .abandoned = execution.timedOut,
          .timedOut = execution.timedOut,
          .saidError = error.found()};
}

}  // namespace

Result run(const Step& step, double timeout, const Limits& limits) {
  if (!std::all_of(step.answers.begin(), step.answers.end(), canBeTyped)) {
    return {.output = "The password cannot be typed: it is too long or has a control character in it."};
  }
  if (std::any_of(step.arguments.begin(), step.arguments.end(), hasNul)) {
    return {.output = "The tool cannot be told the name: there is a NUL character in it."};
  }
  try {
    return step.answers.empty() ? runPlainly(step, timeout) : runOnTerminal(step, timeout, limits);
  } catch (const std::system_error& error) {
    return failure(error, true);
  } catch (const std::runtime_error& error) {
    return {.output = error.what(), .abandoned = true};
  }
}

}  // namespace molvane::PromptedCommand
