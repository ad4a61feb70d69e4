#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "Base/NSError.hpp"
#include "molvanectl/TextSink.hpp"

namespace molvane::ctl {

/// One JSON object of the output; its keys come out in the order in which they were put in.
using Record = nlohmann::ordered_json;

/// Domain of the errors that the program itself finds; the code is the exit status.
inline constexpr std::string_view kProgramErrorDomain = "com.molvane.molvanectl";

/// Where the program writes, and whether a person's terminal is there.
struct Streams {
  TextSink& out;
  TextSink& err;
  bool outIsTerminal = false;
  bool errIsTerminal = false;
};

/// What an error is about, one of the things that a command was given.
struct Item {
  std::string_view key;  ///< in a JSON object
  const std::string& text;
  bool only;  ///< there are no others
};

/// What the program says: plain text, or one JSON object a line.
///
/// What goes to a terminal is passed through visibleText, since paths, transcripts and messages come from
/// elsewhere. Elsewhere it stays byte for byte. Standard output that cannot be written throws OutputError;
/// failures to write standard error are ignored.
class Output {
 public:
  explicit Output(const Streams& streams) : streams_(streams) {}

  void setJson(bool json) { json_ = json; }
  [[nodiscard]] bool json() const { return json_; }

  /// Writes `text` to standard output as it is, with a newline after it unless it has one. Nothing for empty
  /// text.
  void text(std::string_view text);

  [[nodiscard]] bool outIsTerminal() const { return streams_.outIsTerminal; }

  /// The same for text in which the caller has made everything harmless, and which may hold colours: it goes
  /// to a terminal as it is.
  void preparedText(std::string_view text);

  /// Writes one object to standard output, on one line.
  void record(const Record& object);

  /// Reports an error on standard error: "molvanectl: {description} ({domain}, {code})", without the
  /// parenthesis for the program's own, or an object with the keys error.domain, error.code and
  /// error.description.
  void error(const NSError& error);

  /// The same about one item: the object has it, too, and the text begins with it where there are others and
  /// the description does not mention it.
  void error(const NSError& error, const Item& item);

  /// A notice for the person at the program, on standard error; not written with JSON.
  void notice(std::string_view text);

  [[nodiscard]] bool errIsTerminal() const { return streams_.errIsTerminal; }

  /// Writes `text` to standard output byte for byte and adds nothing. Not for a terminal.
  void piece(std::string_view text);

  /// Puts `line`, in which the caller has made everything harmless, in place of the line where the cursor of
  /// the terminal at standard error stands; empty text leaves an empty line.
  void redraw(std::string_view line);

  /// A remark to a person who watches; not written where standard error is no terminal, nor with JSON.
  void remark(std::string_view text);

 private:
  void report(const std::string& line);
  void report(const Record& object);

  Streams streams_;
  bool json_ = false;
};

}  // namespace molvane::ctl
