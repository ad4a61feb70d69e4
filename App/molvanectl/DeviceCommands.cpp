#include "molvanectl/DeviceCommands.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Base/JsonCoding.hpp"
#include "Base/PathText.hpp"
#include "Base/Utf8.hpp"
#include "HelperProtocol/DeviceJobSpec.hpp"
#include "Platform/StandardPath.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/DeviceConfirmation.hpp"
#include "molvanectl/DeviceJobFollower.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {
namespace {

constexpr std::string_view kDiskHelp = "Name of the whole disk, as disk4.";

/// The helper knows no current folder of the caller's.
std::string absolutePath(const std::string& path) {
  if (path.empty() || isAbsolutePath(path)) return path;
  std::string absolute = appendingPathComponent(std::filesystem::current_path().string(), path);
  if (!isValidUtf8(absolute)) throw std::runtime_error("The path of the current folder is not valid UTF-8.");
  return absolute;
}

/// "disk4", also of "/dev/disk4" and "/dev/rdisk4".
std::string diskName(const std::string& disk) {
  constexpr std::string_view kFolder = "/dev/";
  if (!disk.starts_with(kFolder)) return disk;
  std::string name = disk.substr(kFolder.size());
  if (name.starts_with("rdisk")) name.erase(0, 1);
  return name;
}

std::uint32_t userIdentifier(const std::string& text) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, value);
  if (text.empty() || result.ptr != end || result.ec != std::errc()) {
    throw UsageError("'" + text + "' is no user identifier such as 501");
  }
  return value;
}

Data documentOf(const DeviceJobSpec& spec) {
  const std::string text = encodedJson(spec);
  return {text.begin(), text.end()};
}

/// A command that starts a job and follows it.
class JobStartCommand : public Command {
 public:
  void declare(OptionSet& options) override {
    options.flag("--detach", detach_, "Print the job's identifier and do not follow it.");
  }

  ExitStatus run(Session& session) final {
    const DeviceJobSpec document = spec();
    if (const auto name = erases(); name && !confirmErasing(session, *name)) return ExitStatus::failed;
    // From here on, so that an interruption which comes while the job is being started cancels it.
    const std::unique_ptr<Waiter> waiter = session.console().makeWaiter();
    const auto [jobID, error] = session.ask(&MolvaneHelperXPCProtocol::startDeviceJob, documentOf(document));
    if (error || !jobID || jobID->empty()) {
      session.output().error(refusal(error));
      return ExitStatus::failed;
    }
    announce(*jobID, session.output());
    if (detach_) return ExitStatus::done;
    return DeviceJobFollower(session, *waiter, *jobID, words()).follow();
  }

 protected:
  /// Throws UsageError.
  [[nodiscard]] virtual DeviceJobSpec spec() const = 0;
  [[nodiscard]] virtual DeviceJobWords words() const = 0;

  /// What loses all that it holds, where that is still to be confirmed.
  [[nodiscard]] virtual std::optional<std::string> erases() const { return std::nullopt; }

 private:
  void announce(const std::string& jobID, Output& output) const {
    if (output.json()) {
      output.record({{"event", "started"}, {"job", jobID}});
    } else if (detach_) {
      output.text(jobID);
    } else {
      output.notice("job " + jobID);
    }
    if (detach_) output.notice(kJobLifetime);
  }

  bool detach_ = false;
};

class WriteCommand final : public JobStartCommand {
 public:
  CommandText text() const override {
    return {
        "write", "Write an image onto a whole disk, which erases it",
        "Has the helper write an image file onto an external disk, read the disk back and compare, then "
        "prints the SHA-256 of the image. The disk's volumes must be unmounted first. Everything on the "
        "disk is lost, so its name has to be typed once more, or --yes given. The first Ctrl-C cancels the "
        "job and waits for its end; the disk then holds a part of the image.",
        "molvanectl device write installer.img disk4 --yes"};
  }

  void declare(OptionSet& options) override {
    options.flag("--no-verify", noVerify_, "Do not read the disk back to compare.");
    options.flag("--yes", yes_, "Do not ask; needed where there is no terminal.");
    JobStartCommand::declare(options);
    options.argument("IMAGE", image_, "The image file: .img, .iso, .raw, .dmg or .cdr.");
    options.argument("DISK", disk_, kDiskHelp);
  }

 protected:
  DeviceJobSpec spec() const override {
    return {WriteImage{absolutePath(image_), diskName(disk_), !noVerify_}};
  }

  std::optional<std::string> erases() const override {
    return yes_ ? std::nullopt : std::optional(diskName(disk_));
  }

  DeviceJobWords words() const override {
    const std::string disk = diskName(disk_);
    std::string done = "The image has been written to " + disk;
    done += noVerify_ ? "; it was not read back." : " and read back: they are the same.";
    return {"writing", done, disk + " may hold only a part of the image.", false};
  }

 private:
  std::string image_;
  std::string disk_;
  bool noVerify_ = false;
  bool yes_ = false;
};

class ImageCommand final : public JobStartCommand {
 public:
  CommandText text() const override {
    return {
        "image", "Read a whole disk into an image file",
        "Has the helper read a disk into a new file, which belongs to the caller, and prints its SHA-256. "
        "Blocks that cannot be read become zeros and are counted. The first Ctrl-C cancels the job, which "
        "removes the file, and waits for its end.",
        "molvanectl device image disk4 /Users/ann/stick.img"};
  }

  void declare(OptionSet& options) override {
    options.value("--owner", "UID", owner_,
                  "Identifier of the user that the file is to belong to; 0 is the caller.");
    JobStartCommand::declare(options);
    options.argument("DISK", disk_, kDiskHelp);
    options.argument("DESTINATION", destination_,
                     "The file to create: .dmg, .img or .raw, below /Users, /Volumes or /tmp.");
  }

 protected:
  DeviceJobSpec spec() const override {
    return {ImageDevice{diskName(disk_), absolutePath(destination_), userIdentifier(owner_)}};
  }

  DeviceJobWords words() const override {
    const std::string path = absolutePath(destination_);
    return {"reading", "The image of " + diskName(disk_) + " is " + path + ".",
            "What there may be at " + path + " is not the whole disk.", false, true};
  }

 private:
  std::string disk_;
  std::string destination_;
  std::string owner_ = "0";
};

class InstallMediaCommand final : public JobStartCommand {
 public:
  CommandText text() const override {
    return {"install-media", "Turn a volume into bootable install media, which erases it",
            "Has the helper run the tool of a macOS installer on an external volume and prints what the tool "
            "says as it comes. Everything on the volume is lost, so its name has to be typed once more, or "
            "--yes given. The first Ctrl-C stops the tool and waits for its end; the volume is then left as "
            "the tool left it.",
            "molvanectl device install-media /Applications/Install.app /Volumes/USB --yes"};
  }

  void declare(OptionSet& options) override {
    options.flag("--yes", yes_, "Do not ask; needed where there is no terminal.");
    JobStartCommand::declare(options);
    options.argument("INSTALLER", installer_, "The installer, an application in /Applications.");
    options.argument("VOLUME", volume_, "Where the volume is mounted, as /Volumes/USB.");
  }

 protected:
  DeviceJobSpec spec() const override {
    return {CreateInstallMedia{absolutePath(installer_), absolutePath(volume_)}};
  }

  std::optional<std::string> erases() const override {
    if (yes_) return std::nullopt;
    // As the helper will understand it: "." and ".." are no names to type.
    return lastPathComponent(standardizingPath(absolutePath(volume_)));
  }

  DeviceJobWords words() const override {
    const std::string path = absolutePath(volume_);
    return {"running", "The install media are ready: " + path + ".",
            path + " may have been erased, and may not be bootable."};
  }

 private:
  std::string installer_;
  std::string volume_;
  bool yes_ = false;
};

class BackupDestinationCommand final : public JobStartCommand {
 public:
  CommandText text() const override {
    return {"backup-destination", "Make a volume the destination of Time Machine backups",
            "Has the helper make an external volume the backup destination and prints what the system's tool "
            "says. Ctrl-C is passed on, but this job cannot be stopped and comes to its normal end.",
            "molvanectl device backup-destination /Volumes/Backup"};
  }

  void declare(OptionSet& options) override {
    JobStartCommand::declare(options);
    options.argument("VOLUME", volume_, "Where the volume is mounted, as /Volumes/Backup.");
  }

 protected:
  DeviceJobSpec spec() const override { return {SetTimeMachineDestination{absolutePath(volume_)}}; }

  DeviceJobWords words() const override {
    return {"running", "The backup destination is " + absolutePath(volume_) + ".",
            "Whether the backup destination has changed, the system's settings tell."};
  }

 private:
  std::string volume_;
};

}  // namespace

CommandGroup deviceCommands() {
  CommandGroup group = groupOf<WriteCommand, ImageCommand, InstallMediaCommand, BackupDestinationCommand>(
      {"device", "Write, image and prepare disks",
       "Long jobs on disks. A job that is followed shows its progress on standard error: a bar on a "
       "terminal, "
       "else lines. With --json its events are objects with the key event: started, status, cancelling, "
       "ended. "
       "Ctrl-C cancels the job and waits for its end, a second one leaves at once. The helper ends some time "
       "after its last client has gone, and a detached job with it.",
       "molvanectl device write installer.img disk4 --yes"});
  group.commands.push_back(deviceStatusCommand());
  group.commands.push_back(deviceWatchCommand());
  group.commands.push_back(deviceCancelCommand());
  return group;
}

}  // namespace molvane::ctl
