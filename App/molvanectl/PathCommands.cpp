#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "molvanectl/Commands.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {
namespace {

/// A command over several paths: what is refused for one does not keep the others from their turn.
class PathCommand : public Command {
 public:
  ExitStatus run(Session& session) final {
    bool allDone = true;
    for (const std::string& path : paths_) allDone = runFor(path, session) && allDone;
    return allDone ? ExitStatus::done : ExitStatus::failed;
  }

 protected:
  [[nodiscard]] bool onlyOne() const { return paths_.size() == 1; }

  void declarePaths(OptionSet& options, std::string_view help) { options.list("PATH", paths_, help); }

  /// False when it failed; the error has been reported then.
  virtual bool runFor(const std::string& path, Session& session) = 0;

  void report(const NSError& error, const std::string& path, Output& output) const {
    output.error(error, {"path", path, onlyOne()});
  }

 private:
  std::vector<std::string> paths_;
};

class SizeCommand : public PathCommand {
 public:
  CommandText text() const override {
    return {
        "size", "Measure items below the helper's caches, logs and temporary folders",
        "Prints the size in bytes of the regular files at or below each path: the number alone for one path, "
        "number, tab and path for several. The helper measures below its own caches, logs and temporary "
        "folders; it leaves out hidden items and what is inside application bundles, and stops after 20,000 "
        "entries. With --json: one object a path with the keys path and bytes.",
        "molvanectl size /var/root/Library/Caches /var/root/Library/Logs"};
  }

  void declare(OptionSet& options) override {
    declarePaths(options, "What to measure: an absolute path, sent to the helper as it is written.");
  }

 protected:
  bool runFor(const std::string& path, Session& session) override {
    const auto [bytes, error] = session.ask(&MolvaneHelperXPCProtocol::sizeOfAllowedDirectory, path);
    Output& output = session.output();
    if (error || bytes < 0) {
      report(refusal(error), path, output);
      return false;
    }
    if (output.json()) {
      output.record({{"path", path}, {"bytes", bytes}});
    } else {
      output.text(std::to_string(bytes) + (onlyOne() ? "" : "\t" + path));
    }
    return true;
  }
};

class RemoveCommand : public PathCommand {
 public:
  CommandText text() const override {
    return {"remove", "Remove items below the same folders, for good",
            "Removes each item with everything in it, permanently: nothing goes to a Trash. The helper "
            "removes below "
            "its own caches, logs and temporary folders, never these folders themselves. When one path is "
            "refused "
            "the others are still removed. With --json: one object a path with the keys path and removed.",
            "molvanectl remove -v /var/root/Library/Caches/com.example.app"};
  }

  void declare(OptionSet& options) override {
    options.flag("-v,--verbose", verbose_, "Name each item that was removed.");
    declarePaths(options, "What to remove: an absolute path, sent to the helper as it is written.");
  }

 protected:
  bool runFor(const std::string& path, Session& session) override {
    const auto [removed, error] = session.ask(&MolvaneHelperXPCProtocol::removeAllowedItem, path);
    Output& output = session.output();
    if (error || !removed) {
      report(refusal(error), path, output);
      return false;
    }
    if (output.json()) {
      output.record({{"path", path}, {"removed", true}});
    } else if (verbose_) {
      output.text("removed " + path);
    }
    return true;
  }

 private:
  bool verbose_ = false;
};

}  // namespace

CommandGroup pathCommands() { return groupOf<SizeCommand, RemoveCommand>({}); }

}  // namespace molvane::ctl
