#include "molvanectl/OptionSet.hpp"

#include <CLI/App.hpp>

namespace molvane::ctl {
namespace {

// More arguments than any command line can hold.
constexpr int kNoEnd = 1 << 24;

// "-v,--verbose" as help shows it: short and long names in columns of their own.
std::string shownNames(const std::string& names) {
  const auto comma = names.find(',');
  if (comma == std::string::npos) return "    " + names;
  return names.substr(0, comma) + ", " + names.substr(comma + 1);
}

// An empty value is a variable that a script forgot to set. Taken as if the option were not there, it would
// do something else than was asked for.
std::string whyNoValue(const std::string& value) { return value.empty() ? "the value is empty" : ""; }

}  // namespace

void OptionSet::flag(const std::string& names, bool& value, std::string_view help) {
  const CLI::Option* option = app_.add_flag(names)->disable_flag_override();
  stores_.emplace_back([option, &value] { value = option->count() > 0; });
  options_.push_back({shownNames(names), std::string(help)});
}

void OptionSet::value(const std::string& names, std::string_view placeholder, std::string& value,
                      std::string_view help) {
  const CLI::Option* option = app_.add_option(names)
                                  ->type_name(std::string(placeholder))
                                  ->check(whyNoValue)
                                  ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  stores_.emplace_back([option, &value] {
    if (option->count() > 0) value = option->results().back();
  });
  options_.push_back({shownNames(names) + " " + std::string(placeholder), std::string(help)});
}

void OptionSet::argument(const std::string& placeholder, std::string& value, std::string_view help) {
  const CLI::Option* option = app_.add_option(placeholder)->required()->check(whyNoValue);
  stores_.emplace_back([option, &value] { value = option->results().back(); });
  arguments_.push_back({placeholder, std::string(help)});
}

void OptionSet::list(const std::string& placeholder, std::vector<std::string>& values,
                     std::string_view help) {
  // An option that CLI11 knows to be a list has "[a,b]" taken apart into two values, and these values name
  // what is to be removed. One that never has all the values that it expects takes them as they are.
  const CLI::Option* option = app_.add_option(placeholder)
                                  ->required()
                                  ->expected(kNoEnd)
                                  ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  stores_.emplace_back([option, &values] { values = option->results(); });
  arguments_.push_back({placeholder + "...", std::string(help)});
}

void OptionSet::store() {
  for (const auto& store : stores_) store();
}

}  // namespace molvane::ctl
