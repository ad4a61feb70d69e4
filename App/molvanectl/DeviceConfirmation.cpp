#include "molvanectl/DeviceConfirmation.hpp"

#include <optional>

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

bool confirmErasing(Session& session, std::string_view name) {
  Output& output = session.output();
  if (output.json() || !output.errIsTerminal() || !session.console().inIsTerminal()) {
    throw UsageError("this erases everything on " + std::string(name) +
                     "; where nobody can be asked, say so with --yes");
  }
  const std::string shown(name);
  output.notice("Everything on " + shown + " will be erased. Type " + shown + " to go on.");
  const std::optional<std::string> typed = session.console().readLine();
  if (typed && !name.empty() && trimmed(*typed) == name) return true;
  output.error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed),
                "That is not " + shown + ". Nothing was started."});
  return false;
}

}  // namespace molvane::ctl
