#include <fcntl.h>
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
#include <system_error>
#include <utility>
#include <vector>

#include "Base/NSError.hpp"
#include "Base/Utf8.hpp"
#include "Core/PasteGuard.hpp"
#include "Platform/FileDescriptor.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/FileWords.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {
namespace {

using PasteGuard::Finding;
using PasteGuard::RevealedPiece;

constexpr std::size_t kLongestInput = std::size_t{64} << 20U;
constexpr std::size_t kMostPlaces = 1000;
constexpr std::size_t kLongestShown = std::size_t{64} << 10U;

/// All that can be read from a descriptor. Throws std::system_error.
std::string readToEnd(int descriptor) {
  std::string text;
  std::vector<char> buffer(std::size_t{1} << 16U);
  while (true) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throwErrno("read");
    if (count == 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
    if (text.size() > kLongestInput) throw std::runtime_error("The text is longer than 64 MiB.");
  }
}

std::string readStandardInput() {
  try {
    return readToEnd(STDIN_FILENO);
  } catch (const std::system_error& error) {
    throw std::runtime_error("Standard input could not be read: " + error.code().message() + ".");
  }
}

/// Pipes and devices are read like files.
std::string readFile(const std::string& path) {
  try {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file) throwErrno("open");
    return readToEnd(file.get());
  } catch (const std::system_error& error) {
    throw std::runtime_error(error.code().value() == ENOENT ? noFile(path)
                                                            : whyUnreadable(path, error.code()));
  }
}

std::string codePoint(char32_t scalar) { return fmt::format("U+{:04X}", static_cast<std::uint32_t>(scalar)); }

/// The character's name in Unicode; empty for one that has none.
std::string nameOf(char32_t scalar) {
  std::array<char, 128> name{};
  UErrorCode status = U_ZERO_ERROR;
  u_charName(static_cast<UChar32>(scalar), U_UNICODE_CHAR_NAME, name.data(), name.size(), &status);
  return U_SUCCESS(status) != 0 ? name.data() : "";
}

/// A character that is not shown as it is.
struct Place {
  std::optional<Finding> finding;
  char32_t scalar = 0;
  std::size_t line = 1;
  std::size_t column = 1;
};

/// The characters that the revealed text shows by their code points.
struct Places {
  std::vector<Place> first;  ///< in the order of the text
  std::size_t findings = 0;
  std::size_t unseen = 0;   ///< places without a finding
  std::size_t omitted = 0;  ///< of both
  std::size_t tabs = 0;     ///< not among the places
};

/// Whether a notation tells nothing that is hidden: newlines are counted as lines, and the bracket can be
/// seen, but would look like the beginning of a notation.
bool isInPlainSight(const RevealedPiece& piece) {
  return !piece.finding && (piece.endsLine || piece.scalar == '\r' || piece.scalar == U'⟨');
}

Places placesIn(std::string_view text) {
  Places places;
  PasteGuard::reveal(text, [&places](const RevealedPiece& piece) {
    if (!piece.isNotation || isInPlainSight(piece)) return;
    if (piece.scalar == '\t') {
      ++places.tabs;
      return;
    }
    // Each kind has a limit of its own, so that no crowd of blanks keeps a finding off the list.
    std::size_t& count = piece.finding ? places.findings : places.unseen;
    if (++count <= kMostPlaces) {
      places.first.push_back({piece.finding, piece.scalar, piece.line, piece.column});
    } else {
      ++places.omitted;
    }
  });
  return places;
}

std::string asLine(const Place& place) {
  std::string line = std::to_string(place.line) + ":" + std::to_string(place.column) + ": ";
  line.append(place.finding ? PasteGuard::rawValue(*place.finding) : "unseen");
  line.append(" ").append(codePoint(place.scalar));
  const std::string name = nameOf(place.scalar);
  return name.empty() ? line : line + " " + name;
}

/// Adds the places to `record`: under "places" those with a finding, under "unseen" the others.
void addTo(Record& record, const Places& places) {
  Record found = Record::array();
  Record unseen = Record::array();
  for (const Place& place : places.first) {
    Record object = {{"line", place.line},
                     {"column", place.column},
                     {"scalar", codePoint(place.scalar)},
                     {"name", nameOf(place.scalar)}};
    if (place.finding) object["finding"] = PasteGuard::rawValue(*place.finding);
    (place.finding ? found : unseen).push_back(std::move(object));
  }
  record["places"] = std::move(found);
  record["unseen"] = std::move(unseen);
  record["omitted"] = places.omitted;
}

std::string tabsSentence(std::size_t tabs) {
  return tabs == 1 ? "There is 1 tab." : "There are " + std::to_string(tabs) + " tabs.";
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

bool coloursWanted(Console& console) {
  const char* const refused = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): nothing sets it
  return (refused == nullptr || *refused == '\0') && console.redraws();
}

class PasteCheckCommand : public Command {
 public:
  CommandText text() const override {
    return {
        "paste-check", "Look for what a text hides before it is pasted",
        "Reads a text from standard input and lists the characters in it that hide or disguise what "
        "would run in "
        "a terminal, each with line, column and code point, then how many lines would run. On a terminal "
        "the text "
        "itself comes first, with every hidden character as its code point, in colours unless NO_COLOR "
        "is set. "
        "Ends with 1 when a person should confirm the paste, with 2 on trouble, else with 0. Asks nothing "
        "of the helper. With --json: an object with the keys needsConfirmation, findings, places, unseen, "
        "omitted, oneLine and revealed.",
        "molvanectl paste-check --bracketed --file pasted.txt"};
  }

  void declare(OptionSet& options) override {
    options.flag("--bracketed", bracketed_,
                 "The terminal takes the paste as one: lines do not run one by one.");
    options.value("--file", "PATH", file_, "Read the text from this file instead; - is standard input.");
  }

  ExitStatus run(Session& session) override {
    Output& output = session.output();
    const bool fromStandardInput = file_.empty() || file_ == "-" || file_ == "/dev/stdin";
    if (fromStandardInput && session.console().inIsTerminal()) {
      output.remark("Paste the text here, then press Return and Ctrl-D.");
    }
    const std::string text = fromStandardInput ? readStandardInput() : readFile(file_);
    const PasteGuard::Report report = PasteGuard::check(text);
    const bool ask = report.needsConfirmation(bracketed_);
    if (!isValidUtf8(text))
      output.remark("The text is not valid UTF-8; invalid bytes are treated as U+FFFD.");
    if (output.json()) {
      output.record(record(text, report, ask));
    } else {
      print(session, text, report, ask);
    }
    return ask ? ExitStatus::found : ExitStatus::done;
  }

  ExitStatus failure() const override { return ExitStatus::trouble; }

 private:
  static Record record(const std::string& text, const PasteGuard::Report& report, bool ask) {
    Record findings = Record::object();
    for (const auto& [finding, count] : report.findings)
      findings[std::string(PasteGuard::rawValue(finding))] = count;
    Record record = {{"needsConfirmation", ask}, {"findings", findings}};
    addTo(record, placesIn(text));
    record["oneLine"] = PasteGuard::oneLine(text);
    record["revealed"] = PasteGuard::revealed(text);
    return record;
  }

  static void print(Session& session, const std::string& text, const PasteGuard::Report& report, bool ask) {
    Output& output = session.output();
    if (output.outIsTerminal()) {
      const std::string_view shown = shownPart(text);
      output.preparedText(colouredText(shown, coloursWanted(session.console())));
      if (shown.size() < text.size()) output.text("[the rest is not shown]");
    }
    const Places places = placesIn(text);
    std::string lines;
    for (const Place& place : places.first) lines += asLine(place) + "\n";
    if (places.omitted > 0) lines += "and " + std::to_string(places.omitted) + " more\n";
    const auto runs = report.findings.find(Finding::runs);
    if (runs != report.findings.end()) lines += linesSentence(runs->second) + "\n";
    if (places.tabs > 0) lines += tabsSentence(places.tabs) + "\n";
    output.text(lines + verdict(ask, places.unseen > 0));
  }

  static const char* verdict(bool ask, bool hides) {
    if (ask) return "Look again before you paste it.";
    if (hides) return "It needs no confirmation, but holds characters that cannot be seen.";
    return "Nothing suspicious found.";
  }

  bool bracketed_ = false;
  std::string file_;
};

}  // namespace

CommandGroup pasteCommands() { return groupOf<PasteCheckCommand>({}); }

}  // namespace molvane::ctl
