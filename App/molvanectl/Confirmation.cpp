#include "molvanectl/Confirmation.hpp"

#include <optional>
#include <string_view>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {
namespace {

std::string_view trimmed(std::string_view text) {
  const auto isBlank = [](char byte) { return byte == ' ' || byte == '\t' || byte == '\r'; };
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace

bool canAsk(Session& session) {
  return !session.output().json() && session.output().errIsTerminal() && session.console().inIsTerminal();
}

void refuseUnasked(const Question& question) {
  throw UsageError(question.warning + "; where nobody can be asked, say so with " + question.option);
}

bool confirm(Session& session, const Question& question) {
  if (!canAsk(session)) refuseUnasked(question);
  Output& output = session.output();
  output.notice(question.warning + ". Type " + question.answer + " to go on.");
  const std::optional<std::string> typed = session.console().readLine();
  if (typed && !question.answer.empty() && trimmed(*typed) == question.answer) return true;
  output.error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed),
                "That is not " + question.answer + ". Nothing was changed."});
  return false;
}

Question erasing(const std::string& name) {
  return {"Everything on " + name + " will be erased", name, "--yes"};
}

}  // namespace molvane::ctl
