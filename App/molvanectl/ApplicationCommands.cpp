#include <nlohmann/json.hpp>
#include <string>

#include "molvanectl/AbsolutePath.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {
namespace {

/// A command about one path.
class OnePathCommand : public Command {
 public:
  void declare(OptionSet& options) override { options.argument("PATH", path_, help()); }

 protected:
  [[nodiscard]] virtual std::string_view help() const = 0;
  /// As it was typed, and as the helper is to know it.
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string sentPath() const { return absolutePath(path_); }

  ExitStatus refused(const OptionalError& error, Output& output) const {
    output.error(refusal(error), {"path", path_, true});
    return ExitStatus::failed;
  }

 private:
  std::string path_;
};

class AppRemoveCommand : public OnePathCommand {
 public:
  CommandText text() const override {
    return {
        "remove", "Remove an application, for good",
        "Has the helper remove an application from /Applications or from the caller's own ~/Applications, "
        "at the top or one folder deep. Nothing goes to a Trash. The system's own applications and those of "
        "the suite are refused. With --json: an object with the keys path and removed.",
        "molvanectl app remove /Applications/Example.app"};
  }

  void declare(OptionSet& options) override {
    options.flag("-v,--verbose", verbose_, "Name the application that was removed.");
    OnePathCommand::declare(options);
  }

  ExitStatus run(Session& session) override {
    const auto [removed, error] = session.ask(&MolvaneHelperXPCProtocol::removeApplication, sentPath());
    Output& output = session.output();
    if (error || !removed) return refused(error, output);
    if (output.json()) {
      output.record({{"path", path()}, {"removed", true}});
    } else if (verbose_) {
      output.text("removed " + path());
    }
    return ExitStatus::done;
  }

 protected:
  [[nodiscard]] std::string_view help() const override { return "The application."; }

 private:
  bool verbose_ = false;
};

class AppInstallCommand : public OnePathCommand {
 public:
  CommandText text() const override {
    return {
        "install", "Install an application that was received",
        "Has the helper copy an application from the caller's company inbox, "
        "~/Library/Caches/MacMolvane/Company, to /Applications, and prints where it is then. It must belong "
        "to the caller and the system must be willing to open it. An older copy is replaced, a different "
        "application of that name is not. With --json: an object with the keys path and destination.",
        "molvanectl app install ~/Library/Caches/MacMolvane/Company/Example.app"};
  }

  ExitStatus run(Session& session) override {
    const auto [installed, destination, error] =
        session.ask(&MolvaneHelperXPCProtocol::installApplication, sentPath());
    Output& output = session.output();
    if (error || !installed) return refused(error, output);
    if (output.json()) {
      output.record({{"path", path()}, {"destination", destination}});
    } else {
      output.text(destination);
    }
    return ExitStatus::done;
  }

 protected:
  [[nodiscard]] std::string_view help() const override { return "The application in the company inbox."; }
};

class PackageInstallCommand : public OnePathCommand {
 public:
  CommandText text() const override {
    return {
        "install", "Install a package that was received",
        "Has the helper install an installer package from the caller's company inbox, "
        "~/Library/Caches/MacMolvane/Company, waits for its end, and prints what the installer said. The "
        "package must belong to the caller and the system must be willing to open it. With --json: an object "
        "with the keys path and output.",
        "molvanectl package install ~/Library/Caches/MacMolvane/Company/example.pkg"};
  }

  void declare(OptionSet& options) override {
    options.flag("--unverified", unverified_, "Install it whether or not the system would open it.");
    OnePathCommand::declare(options);
  }

  ExitStatus run(Session& session) override {
    Output& output = session.output();
    output.remark("The installer can take minutes. Waiting for its end.");
    const auto [installed, text, error] =
        session.ask(unverified_ ? &MolvaneHelperXPCProtocol::installUnverifiedPackage
                                : &MolvaneHelperXPCProtocol::installPackage,
                    sentPath());
    if (error || !installed) return refused(error, output);
    if (output.json()) {
      output.record({{"path", path()}, {"output", text}});
    } else {
      output.text(text);
    }
    return ExitStatus::done;
  }

 protected:
  [[nodiscard]] std::string_view help() const override { return "The package in the company inbox."; }

 private:
  bool unverified_ = false;
};

}  // namespace

CommandGroup appCommands() {
  return groupOf<AppRemoveCommand, AppInstallCommand>(
      {"app", "Remove and install applications",
       "Applications: remove one for good, install one that lies in the company inbox.",
       "molvanectl app remove /Applications/Example.app"});
}

CommandGroup packageCommands() {
  return groupOf<PackageInstallCommand>(
      {"package", "Install installer packages", "Installer packages that lie in the company inbox.",
       "molvanectl package install ~/Library/Caches/MacMolvane/Company/example.pkg"});
}

}  // namespace molvane::ctl
