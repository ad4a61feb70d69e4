#include "molvanectl/DeviceCommands.hpp"

#include <charconv>
#include <optional>
#include <string>

#include "Base/PathText.hpp"
#include "HelperProtocol/DeviceJobSpec.hpp"
#include "Platform/StandardPath.hpp"
#include "molvanectl/AbsolutePath.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/Confirmation.hpp"
#include "molvanectl/DeviceJobStart.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {
namespace {

std::uint32_t userIdentifier(const std::string& text) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, value);
  if (text.empty() || result.ptr != end || result.ec != std::errc()) {
    throw UsageError("'" + text + "' is no user identifier such as 501");
  }
  return value;
}

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
    return {.running = "reading",
            .done = "The image of " + diskName(disk_) + " is " + path + ".",
            .leftBehind = "A partial image may be left at " + path + ".",
            .showsLog = false,
            .cleansUp = true};
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
            "molvanectl device install-media /Applications/Install.app /Volumes/USB"};
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

  bool mayStart(Session& session) const override {
    // As the helper will understand it: "." and ".." are no names to type.
    return yes_ ||
           confirm(session, erasing(lastPathComponent(standardizingPathByName(absolutePath(volume_)))));
  }

  DeviceJobWords words() const override {
    const std::string path = absolutePath(volume_);
    return {.done = "The install media are ready: " + path + ".",
            .leftBehind = path + " may have been erased, and may not be bootable."};
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
    return {.done = "The backup destination is " + absolutePath(volume_) + ".",
            .leftBehind = "Check the system's settings to see whether the backup destination has changed."};
  }

 private:
  std::string volume_;
};

}  // namespace

CommandGroup deviceCommands() {
  CommandGroup group = groupOf<ImageCommand, InstallMediaCommand, BackupDestinationCommand>(
      {"device", "Write, image and prepare disks",
       "Long jobs on disks. A job that is followed shows its progress on standard error: a bar on a "
       "terminal, "
       "else lines. With --json its events are objects with the key event: started, status, cancelling, "
       "ended. "
       "Ctrl-C cancels the job and waits for its end, a second one leaves at once. The helper ends some time "
       "after its last client has gone, and a detached job with it.",
       "molvanectl device write installer.img disk4"});
  group.commands.insert(group.commands.begin(), deviceWriteCommand());
  group.commands.push_back(deviceStatusCommand());
  group.commands.push_back(deviceWatchCommand());
  group.commands.push_back(deviceCancelCommand());
  return group;
}

}  // namespace molvane::ctl
