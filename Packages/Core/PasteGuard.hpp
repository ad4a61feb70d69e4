#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

/// Inspects text that is about to be pasted into a terminal: finds characters that hide or disguise what will
/// run and counts the lines that would run.
///
/// All functions are pure, keep no state and may be called from any thread. Texts are UTF-8; bytes that are
/// no UTF-8 are read as U+FFFD, which is no finding, so no input is refused. A line ends at LF, VT, FF, CR,
/// CR LF (one newline), NEL, U+2028 or U+2029.
namespace molvane::PasteGuard {

enum class Finding {
  bidi,       ///< a bidirectional formatting control
  invisible,  ///< a character that takes no visible space
  lookalike,  ///< a letter or punctuation mark that imitates an ASCII one
  control,    ///< a C0 or C1 control character other than tab and the newlines
  runs,       ///< the lines that the paste would run
};

inline constexpr std::array<Finding, 5> allCases = {Finding::bidi, Finding::invisible, Finding::lookalike,
                                                    Finding::control, Finding::runs};

/// The name of the case, as it is stored.
[[nodiscard]] std::string_view rawValue(Finding finding) noexcept;
/// The case of that name, or nothing.
[[nodiscard]] std::optional<Finding> findingFromRawValue(std::string_view rawValue) noexcept;

/// What a text holds. A finding is present only with a count of at least 1.
struct Report {
  std::map<Finding, std::int64_t> findings;

  [[nodiscard]] bool isClean() const noexcept { return findings.empty(); }

  /// Whether the person must be asked before the paste: for any hidden or disguised character, and for two or
  /// more lines when the terminal is not in bracketed-paste mode and would run them one by one.
  [[nodiscard]] bool needsConfirmation(bool bracketed) const noexcept;

  bool operator==(const Report&) const = default;
};

/// Counts the findings of `text`. Greek and Cyrillic letters are look-alikes only on a line that also holds
/// an ASCII letter; full-width forms, dashes and curly quotes are on every line. Takes time linear in the
/// text and allocates nothing but the report.
[[nodiscard]] Report check(std::string_view text);

/// `text` flattened to one line: tabs and newlines become spaces, bidirectional, invisible and control
/// characters are dropped, runs of spaces become one and those at both ends go. A space that carries a
/// combining mark is a character of its own and stays. The result is valid UTF-8.
[[nodiscard]] std::string oneLine(std::string_view text);

/// `text` as one line in which nothing is hidden: every character with a finding, every newline and tab and
/// every other character that a terminal does not draw or draws as blank (but U+0020) stands as its code
/// point in angle brackets, as in "⟨U+202E⟩". An opening bracket U+27E8 of the text itself is shown so too;
/// so each bracket begins a notation and different texts (after the repair of bytes that are no UTF-8) look
/// different. The result holds no control, bidirectional or invisible character.
[[nodiscard]] std::string revealed(std::string_view text);

/// One piece of a revealed text: a stretch that is shown as it is, or the notation of one character.
struct RevealedPiece {
  std::string_view text;           ///< what to show; valid only during the call
  bool isNotation = false;         ///< stands for one character that is not shown as it is
  std::optional<Finding> finding;  ///< of that character, if it has one
  bool endsLine = false;           ///< stands for a newline, or for the LF of a CR LF
  // Of a notation: its character, and where that stands, counted as in an Occurrence.
  char32_t scalar = 0;
  std::size_t line = 1;
  std::size_t column = 1;
};

/// Hands the pieces of revealed(text) to `show`, in order, to be coloured, wrapped or listed.
void reveal(std::string_view text, const std::function<void(const RevealedPiece&)>& show);

/// A character with a finding, and where it stands.
struct Occurrence {
  Finding finding = Finding::control;
  char32_t scalar = 0;
  std::size_t line = 1;  ///< from 1
  std::size_t column =
      1;  ///< from 1, in Unicode scalars; each run of invalid bytes counts as the U+FFFD it is read as

  bool operator==(const Occurrence&) const = default;
};

/// Hands every character that check counts to `visit`, in order, until it answers false.
void forEachOccurrence(std::string_view text, const std::function<bool(const Occurrence&)>& visit);

}  // namespace molvane::PasteGuard
