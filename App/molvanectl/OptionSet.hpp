#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace molvane::ctl {

/// One option or argument as help shows it.
struct HelpRow {
  std::string left;
  std::string right;
};

/// The options and arguments of one command, declared to the parser and to help at the same time.
///
/// The variables named in a declaration must outlive the parsing. Values arrive byte for byte as they were
/// typed; the parser's own conversions, which give some characters a meaning, are not used.
class OptionSet {
 public:
  /// `app` must outlive this object.
  explicit OptionSet(CLI::App& app) : app_(app) {}

  /// A switch. `names` as "-v,--verbose".
  void flag(const std::string& names, bool& value, std::string_view help);

  /// An option with a value, which must not be empty; the last one counts, and `value` keeps what it holds
  /// when there is none.
  void value(const std::string& names, std::string_view placeholder, std::string& value,
             std::string_view help);

  /// A required argument, which must not be empty.
  void argument(const std::string& placeholder, std::string& value, std::string_view help);

  /// One or more arguments. It takes all that follow, so it is declared last.
  void list(const std::string& placeholder, std::vector<std::string>& values, std::string_view help);

  /// Fills the variables in; call it once, after the parsing.
  void store();

  [[nodiscard]] const std::vector<HelpRow>& arguments() const { return arguments_; }
  [[nodiscard]] const std::vector<HelpRow>& options() const { return options_; }

 private:
  CLI::App& app_;
  std::vector<std::function<void()>> stores_;
  std::vector<HelpRow> arguments_;
  std::vector<HelpRow> options_;
};

}  // namespace molvane::ctl
