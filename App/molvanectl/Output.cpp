#include "molvanectl/Output.hpp"

#include <nlohmann/json.hpp>

#include "molvanectl/TerminalText.hpp"

namespace molvane::ctl {
namespace {

std::string asLine(const Record& object, bool terminal) {
  return object.dump(-1, ' ', terminal, Record::error_handler_t::replace) + "\n";
}

Record asRecord(const NSError& error) {
  return {{"domain", error.domain}, {"code", error.code}, {"description", error.localizedDescription}};
}

std::string asText(const NSError& error) {
  if (error.domain == kProgramErrorDomain) return error.localizedDescription;
  // A tool that was stopped, or that failed without a word, leaves nothing to say.
  const std::string& sentence = error.localizedDescription;
  return (sentence.empty() ? "No reason was given." : sentence) + " (" + error.domain + ", " +
         std::to_string(error.code) + ")";
}

}  // namespace

void Output::text(std::string_view text) {
  if (streams_.outIsTerminal) {
    preparedText(visibleText(text));
  } else {
    preparedText(text);
  }
}

void Output::preparedText(std::string_view text) {
  if (text.empty()) return;
  std::string lines(text);
  if (lines.back() != '\n') lines += '\n';
  streams_.out.write(lines);
}

void Output::record(const Record& object) { streams_.out.write(asLine(object, streams_.outIsTerminal)); }

void Output::error(const NSError& error) {
  if (json_) return report(Record{{"error", asRecord(error)}});
  report("molvanectl: " + asText(error));
}

void Output::error(const NSError& error, const Item& item) {
  if (json_) return report(Record{{std::string(item.key), item.text}, {"error", asRecord(error)}});
  const bool clear = item.only || error.localizedDescription.find(item.text) != std::string::npos;
  report("molvanectl: " + (clear ? "" : item.text + ": ") + asText(error));
}

void Output::notice(std::string_view text) {
  if (!json_) report("molvanectl: " + std::string(text));
}

void Output::piece(std::string_view text) { streams_.out.write(text); }

void Output::redraw(std::string_view line) {
  try {
    streams_.err.write("\r" + std::string(line) + "\x1b[K");
  } catch (const OutputError&) {
    // There is no other place to say it.
  }
}

void Output::remark(std::string_view text) {
  if (!json_ && streams_.errIsTerminal) report("molvanectl: " + std::string(text));
}

void Output::report(const std::string& line) {
  try {
    streams_.err.write((streams_.errIsTerminal ? visibleText(line) : line) + "\n");
  } catch (const OutputError&) {
    // There is no other place to say it.
  }
}

void Output::report(const Record& object) {
  try {
    streams_.err.write(asLine(object, streams_.errIsTerminal));
  } catch (const OutputError&) {
    // There is no other place to say it.
  }
}

}  // namespace molvane::ctl
