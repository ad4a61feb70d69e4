#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Core/MaintenanceTask.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/Session.hpp"
#include "molvanectl/TextLayout.hpp"

namespace molvane::ctl {
namespace {

constexpr std::size_t kTaskColumn = 25;

class TaskListCommand : public Command {
 public:
  CommandText text() const override {
    return {
        "list", "List the maintenance tasks",
        "Lists the maintenance tasks: identifier, title and what each does. The helper runs those marked "
        "root "
        "and refuses the others; those marked slow take minutes or longer. Asks nothing of the helper. With "
        "--json: one object a task with the keys id, title, detail, requiresRoot and isSlow.",
        "molvanectl task list --ids"};
  }

  void declare(OptionSet& options) override {
    options.flag("--ids", idsOnly_, "Only the identifiers, one a line.");
  }

  ExitStatus run(Session& session) override {
    for (const MaintenanceTask task : MaintenanceTask::listed()) {
      if (session.output().json()) {
        session.output().record(record(task));
      } else {
        session.output().text(idsOnly_ ? std::string(task.rawValue()) : entry(task));
      }
    }
    return ExitStatus::done;
  }

 private:
  Record record(const MaintenanceTask& task) const {
    if (idsOnly_) return {{"id", task.rawValue()}};
    return {{"id", task.rawValue()},
            {"title", task.title()},
            {"detail", task.detail()},
            {"requiresRoot", task.requiresRoot()},
            {"isSlow", task.isSlow()}};
  }

  static std::string entry(const MaintenanceTask& task) {
    std::string title(task.title());
    if (task.requiresRoot()) title += " [root]";
    if (task.isSlow()) title += " [slow]";
    return twoColumns(task.rawValue(), title, kTaskColumn) + wrapped(task.detail(), kTaskColumn);
  }

  bool idsOnly_ = false;
};

class TaskRunCommand : public Command {
 public:
  CommandText text() const override {
    return {"run", "Run a maintenance task as root",
            "Has the helper run a maintenance task, waits for its end, and prints the transcript of its "
            "tools and a "
            "sentence that says what came of it. With --json: an object with the keys task, succeeded, "
            "transcript "
            "and summary.",
            "molvanectl task run flush-dns"};
  }

  void declare(OptionSet& options) override {
    options.argument("ID", id_, "Identifier of the task; 'molvanectl task list' shows them.");
  }

  ExitStatus run(Session& session) override {
    // Whether there is such a task is the helper's to say: it may be newer than this program.
    const std::optional<MaintenanceTask> task = MaintenanceTask::parse(id_);
    Output& output = session.output();
    if (task && task->requiresRoot() && task->isSlow()) {
      output.remark("This task can take minutes or longer. Waiting for its end.");
    }
    const auto [succeeded, transcript, error] =
        session.ask(&MolvaneHelperXPCProtocol::runMaintenanceTask, id_);
    if (error) {
      output.error(*error);
      return ExitStatus::failed;
    }
    std::string summary;
    if (task) summary = succeeded ? task->successSummary() : task->failureSummary();
    if (output.json()) {
      output.record(
          {{"task", id_}, {"succeeded", succeeded}, {"transcript", transcript}, {"summary", summary}});
    } else {
      output.text(transcript);
      output.text(summary);
    }
    return succeeded ? ExitStatus::done : ExitStatus::failed;
  }

 private:
  std::string id_;
};

}  // namespace

CommandGroup taskCommands() {
  return groupOf<TaskListCommand, TaskRunCommand>(
      {"task", "List and run maintenance tasks",
       "The system's maintenance tasks: flush a cache, rebuild an index, download updates and others.",
       "molvanectl task list"});
}

}  // namespace molvane::ctl
