#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Base/NSError.hpp"
#include "Base/Utf8.hpp"
#include "Core/PasteGuard.hpp"
#include "Platform/SafeFile.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {
namespace {

using PasteGuard::Finding;
using PasteGuard::Occurrence;

constexpr std::size_t kLongestInput = std::size_t{64} << 20U;
constexpr std::size_t kMostPlaces = 1000;
constexpr std::size_t kLongestShown = std::size_t{64} << 10U;

std::string readStandardInput() {
  std::string text;
  std::vector<char> buffer(std::size_t{1} << 16U);
  while (true) {
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throwErrno("Standard input could not be read");
    if (count == 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
    if (text.size() > kLongestInput) throw std::runtime_error("The text is longer than 64 MiB.");
  }
}

std::string readFile(const std::string& path) {
  std::optional<std::string> text = readSmallFile(path, kLongestInput);
  if (!text) throw std::runtime_error("There is no file " + path + ".");
  return std::move(*text);
}

std::string codePoint(char32_t scalar) { return fmt::format("U+{:04X}", static_cast<std::uint32_t>(scalar)); }

/// The character's name in Unicode; empty for one that has none.
std::string nameOf(char32_t scalar) {
  std::array<char, 128> name{};
  UErrorCode status = U_ZERO_ERROR;
  u_charName(static_cast<UChar32>(scalar), U_UNICODE_CHAR_NAME, name.data(), name.size(), &status);
  return U_SUCCESS(status) != 0 ? name.data() : "";
}

/// The first places, and how many there are beyond them.
struct Places {
  std::vector<Occurrence> first;
  std::size_t omitted = 0;
};

Places placesIn(std::string_view text) {
  Places places;
  PasteGuard::forEachOccurrence(text, [&places](const Occurrence& occurrence) {
    if (places.first.size() < kMostPlaces) {
      places.first.push_back(occurrence);
    } else {
      ++places.omitted;
    }
    return true;
  });
  return places;
}

std::string asLine(const Occurrence& place) {
  std::string line = std::to_string(place.line) + ":" + std::to_string(place.column) + ": ";
  line.append(PasteGuard::rawValue(place.finding)).append(" ").append(codePoint(place.scalar));
  const std::string name = nameOf(place.scalar);
  return name.empty() ? line : line + " " + name;
}

Record asRecord(const Occurrence& place) {
  return {{"finding", PasteGuard::rawValue(place.finding)},
          {"line", place.line},
          {"column", place.column},
          {"scalar", codePoint(place.scalar)},
          {"name", nameOf(place.scalar)}};
}

std::string linesSentence(std::int64_t runs) {
  return runs == 1 ? "1 line would run." : std::to_string(runs) + " lines would run.";
}

/// How a terminal shows the notation of a finding, or of what is merely not to be seen.
std::string_view styleOf(const std::optional<Finding>& finding) {
  if (!finding) return "\x1b[2m";
  switch (*finding) {
    case Finding::bidi:
    case Finding::control:
      return "\x1b[1;31m";
    case Finding::invisible:
      return "\x1b[1;35m";
    case Finding::lookalike:
    case Finding::runs:
      break;
  }
  return "\x1b[1;33m";
}

/// The beginning of the text that a terminal is shown, up to the end of a character.
std::string_view shownPart(std::string_view text) {
  std::size_t size = std::min(text.size(), kLongestShown);
  const auto isContinuation = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80; };
  while (size > 0 && size < text.size() && isContinuation(text[size])) --size;
  return text.substr(0, size);
}

/// The revealed text, its lines apart, for a terminal: it holds no other escape sequence than those of the
/// colours.
std::string colouredText(std::string_view text, bool colours) {
  std::string shown;
  PasteGuard::reveal(text, [&](const PasteGuard::RevealedPiece& piece) {
    const bool styled = colours && piece.isNotation;
    if (styled) shown += styleOf(piece.finding);
    shown += piece.text;
    if (styled) shown += "\x1b[0m";
    if (piece.endsLine) shown += '\n';
  });
  return shown;
}

bool coloursWanted() {
  const char* const refused = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): nothing sets it
  return refused == nullptr || *refused == '\0';
}

class PasteCheckCommand : public Command {
 public:
  CommandText text() const override {
    return {"paste-check", "Look for what a text hides before it is pasted",
            "Reads a text from standard input and lists the characters in it that hide or disguise what "
            "would run in "
            "a terminal, each with line, column and code point, then how many lines would run. On a terminal "
            "the text "
            "itself comes first, with every hidden character as its code point, in colours unless NO_COLOR "
            "is set. "
            "Ends with 1 when a person should confirm the paste, else with 0. Asks nothing of the helper. "
            "With --json: "
            "an object with the keys needsConfirmation, findings, places, omitted, oneLine and revealed.",
            "molvanectl paste-check --bracketed --file pasted.txt"};
  }

  void declare(OptionSet& options) override {
    options.flag("--bracketed", bracketed_,
                 "The terminal takes the paste as one: lines do not run one by one.");
    options.value("--file", "PATH", file_, "Read the text from this file instead.");
  }

  ExitStatus run(Session& session) override {
    const std::string text = file_.empty() ? readStandardInput() : readFile(file_);
    const PasteGuard::Report report = PasteGuard::check(text);
    const bool ask = report.needsConfirmation(bracketed_);
    Output& output = session.output();
    if (!isValidUtf8(text)) output.remark("The text is no valid UTF-8; what is not counts as U+FFFD.");
    if (output.json()) {
      output.record(record(text, report, ask));
    } else {
      print(output, text, report, ask);
    }
    return ask ? ExitStatus::failed : ExitStatus::done;
  }

 private:
  static Record record(const std::string& text, const PasteGuard::Report& report, bool ask) {
    Record findings = Record::object();
    for (const auto& [finding, count] : report.findings)
      findings[std::string(PasteGuard::rawValue(finding))] = count;
    const Places places = placesIn(text);
    Record list = Record::array();
    for (const Occurrence& place : places.first) list.push_back(asRecord(place));
    return {{"needsConfirmation", ask},
            {"findings", findings},
            {"places", list},
            {"omitted", places.omitted},
            {"oneLine", PasteGuard::oneLine(text)},
            {"revealed", PasteGuard::revealed(text)}};
  }

  static void print(Output& output, const std::string& text, const PasteGuard::Report& report, bool ask) {
    if (output.outIsTerminal()) {
      const std::string_view shown = shownPart(text);
      output.preparedText(colouredText(shown, coloursWanted()));
      if (shown.size() < text.size()) output.text("[the rest is not shown]");
    }
    const Places places = placesIn(text);
    std::string lines;
    for (const Occurrence& place : places.first) lines += asLine(place) + "\n";
    if (places.omitted > 0) lines += "and " + std::to_string(places.omitted) + " more\n";
    const auto runs = report.findings.find(Finding::runs);
    if (runs != report.findings.end()) lines += linesSentence(runs->second) + "\n";
    lines += ask ? "Look again before you paste it." : "Nothing that asks for a second look.";
    output.text(lines);
  }

  bool bracketed_ = false;
  std::string file_;
};

}  // namespace

CommandGroup pasteCommands() { return groupOf<PasteCheckCommand>({}); }

}  // namespace molvane::ctl
