#include "molvanectl/Parser.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <utility>

#include "Base/Utf8.hpp"
#include "molvanectl/HelpText.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {
namespace {

constexpr CommandText kProgram{
    "molvanectl", "",
    "Asks MolvaneHelper, the privileged helper of the Molvane suite, for what needs root. "
    "The manual page molvanectl(1) tells more.",
    "molvanectl size /var/root/Library/Caches"};

const HelpRow kHelpRow{"-h, --help", "Show this help and stop."};
const HelpRow kVersionRow{"    --version", "Show the program's version and stop."};

const HelpSection kExitStatus{"Exit status",
                              {{"0", "Done."},
                               {"1", "Refused or failed."},
                               {"2", "The command line is wrong."},
                               {"3", "No connection to the helper, or it was lost."}}};

std::string quoted(const std::string& text) { return "'" + text + "'"; }

/// Throws UsageError for words of which CLI11 makes something else than anybody would mean.
void refuseMisread(const std::vector<std::string>& arguments) {
  for (auto word = arguments.begin(); word != arguments.end() && *word != "--"; ++word) {
    // It ends a command at "++" without a word, and takes the next word as the value of "--option=".
    if (*word == "++") throw UsageError("unexpected argument '++'; write it after '--'");
    if (word->starts_with("--") && word->find('=') == word->size() - 1) {
      throw UsageError(word->substr(0, word->size() - 1) + ": the value is empty");
    }
  }
}

/// What is wrong with an option's value or the lack of one.
std::string valueProblem(const std::string& said) {
  const std::string option = said.substr(0, said.find_first_of(": "));
  if (said.find("flag override") == std::string::npos) return option + " needs a value";
  return "--" + option + " takes no value";
}

}  // namespace

struct Parser::Node {
  Node(const CommandText& what, CLI::App& parser, Command* work, std::string called)
      : text(what), app(parser), command(work), fullName(std::move(called)), options(parser) {}

  Node& add(const CommandText& what, Command* work) {
    CLI::App* parser = app.add_subcommand(std::string(what.name));
    children.push_back(std::make_unique<Node>(what, *parser, work, fullName + " " + std::string(what.name)));
    if (work != nullptr) work->declare(children.back()->options);
    // Exactly one of them: so a path that has a command's name is a path.
    app.require_subcommand(1);
    return *children.back();
  }

  CommandText text;
  CLI::App& app;
  Command* command;
  std::string fullName;
  OptionSet options;
  std::vector<std::unique_ptr<Node>> children;
};

struct Parser::State {
  State() : root(kProgram, app, nullptr, std::string(kProgram.name)) {}

  std::vector<CommandGroup> groups;
  GlobalOptions globals;
  CLI::App app;
  Node root;

  [[nodiscard]] const Node& selected() const;
  [[nodiscard]] std::string help(const Node& node) const;
  [[nodiscard]] std::string problem(const CLI::ParseError& error) const;
};

const Parser::Node& Parser::State::selected() const {
  const Node* node = &root;
  for (const Node* next = node; next != nullptr;) {
    node = next;
    const auto found = std::find_if(node->children.begin(), node->children.end(),
                                    [](const auto& child) { return child->app.parsed(); });
    next = found == node->children.end() ? nullptr : found->get();
  }
  return *node;
}

std::string Parser::State::help(const Node& node) const {
  HelpPage page{node.fullName + " [OPTION]...", node.text.description, {}, node.text.example};
  if (!node.children.empty()) page.usage += " COMMAND";
  for (const HelpRow& argument : node.options.arguments()) page.usage += " " + argument.left;

  HelpSection commands{"Commands", {}};
  for (const auto& child : node.children) {
    commands.rows.push_back({std::string(child->text.name), std::string(child->text.summary)});
  }
  HelpSection options{"Options", {}};
  if (&node != &root) options.rows = node.options.options();
  for (const HelpRow& row : root.options.options()) options.rows.push_back(row);
  options.rows.push_back(kHelpRow);
  if (&node == &root) options.rows.push_back(kVersionRow);

  page.sections = {std::move(commands), {"Arguments", node.options.arguments()}, std::move(options)};
  if (&node == &root) page.sections.push_back(kExitStatus);
  return helpText(page);
}

std::string Parser::State::problem(const CLI::ParseError& error) const {
  const Node& node = selected();
  const std::vector<std::string> unexpected = app.remaining(true);
  const auto first = std::find_if(unexpected.begin(), unexpected.end(),
                                  [](const std::string& word) { return word != "--"; });
  if (first != unexpected.end()) {
    if (first->size() > 1 && first->front() == '-') return "unknown option " + quoted(*first);
    if (!node.children.empty()) return "unknown command " + quoted(*first);
    return "unexpected argument " + quoted(*first);
  }
  if (!node.children.empty() && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
    return "a command is missing";
  }
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) return valueProblem(error.what());
  return error.what();
}

Parser::Parser(std::vector<CommandGroup> groups) : state_(std::make_unique<State>()) {
  State& state = *state_;
  state.groups = std::move(groups);
  state.app.fallthrough();
  state.app.set_help_flag("-h,--help");
  state.app.set_version_flag("--version", "molvanectl " MOLVANE_VERSION);

  state.root.options.value("--socket", "PATH", state.globals.socketPath,
                           "Where the helper listens; " + std::string(kDefaultSocketPath) + " if not given.");
  state.root.options.flag("--json", state.globals.json,
                          "Answer with one JSON object a line, errors included.");

  for (const CommandGroup& group : state.groups) {
    Node& parent = group.text.name.empty() ? state.root : state.root.add(group.text, nullptr);
    for (const auto& command : group.commands) parent.add(command->text(), command.get());
  }
}

Parser::~Parser() = default;

Request Parser::parse(const std::vector<std::string>& arguments) {
  State& state = *state_;
  try {
    state.app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    return {nullptr, state.help(state.selected())};
  } catch (const CLI::CallForVersion& version) {
    return {nullptr, version.what() + std::string("\n")};
  } catch (const CLI::ParseError& error) {
    state.root.options.store();
    refuseMisread(arguments);
    throw UsageError(state.problem(error));
  }
  state.root.options.store();
  refuseMisread(arguments);
  for (const std::string& word : arguments) {
    // The connection carries UTF-8 alone, and a repaired path would be another path.
    if (!isValidUtf8(word)) throw UsageError(quoted(word) + " is not valid UTF-8");
  }

  auto& node = const_cast<Node&>(state.selected());
  node.options.store();
  return {node.command, {}};
}

const GlobalOptions& Parser::globalOptions() const { return state_->globals; }

std::string Parser::commandName() const { return state_->selected().fullName; }

}  // namespace molvane::ctl
