#include <algorithm>
#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "molvanectl/Commands.hpp"
#include "molvanectl/DeviceJobCommands.hpp"
#include "molvanectl/DeviceJobFollower.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {
namespace {

constexpr std::string_view kEvents =
    "With --json: one object an event, with the key event: started, progress, log, cancelling, ended.";

/// "disk4" also for the device's paths, which is what other tools show.
std::string diskNamed(std::string name) {
  constexpr std::string_view kDevices = "/dev/";
  if (!name.starts_with(kDevices)) return name;
  name.erase(0, kDevices.size());
  if (name.starts_with("rdisk")) name.erase(0, 1);
  return name;
}

// The helper does not know what a path is relative to.
std::string absolutePath(const std::string& path) {
  return path.empty() ? path : std::filesystem::absolute(path).string();
}

class StartCommand : public Command {
 public:
  void declare(OptionSet& options) override {
    options.flag("--detach", isDetached_, "Print the job's identifier and leave the job to itself.");
  }

  ExitStatus run(Session& session) final {
    const DeviceJobSpec spec = specification();
    confirm(session);
    if (isRefused_) return ExitStatus::failed;
    const std::optional<std::string> jobID = startJob(spec, session);
    if (!jobID) return ExitStatus::failed;
    Output& output = session.output();
    if (output.json()) output.record({{"event", "started"}, {"job", *jobID}});
    if (isDetached_) {
      if (!output.json()) output.text(*jobID);
      output.remark(
          "The helper ends two minutes after its last client, and its jobs with it. 'molvanectl device "
          "watch' keeps it.");
      return ExitStatus::done;
    }
    try {
      return DeviceJobFollower(session, *jobID, DeviceJobFollower::Interrupt::cancels).follow();
    } catch (const JobRefusal& refused) {
      output.error(refused.error());
      return ExitStatus::failed;
    }
  }

 protected:
  [[nodiscard]] virtual DeviceJobSpec specification() const = 0;

  /// For what destroys something: has the person agree by typing `name`. Throws UsageError where there is
  /// nobody to ask and --yes was not given.
  void askBefore(Session& session, const std::string& loss, const std::string& name) {
    if (isAgreed_) return;
    Output& output = session.output();
    std::optional<std::string> answer;
    if (output.errIsTerminal() && !output.json()) {
      output.prompt(loss + "\nType " + name + " to go on: ");
      answer = session.person().typedLine();
      if (answer && *answer != name) {
        isRefused_ = true;
        output.error(
            {std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed), "Nothing was done."});
      }
    }
    if (!answer) throw UsageError(loss + " Nobody can be asked here; --yes agrees to it");
  }

  void declareAgreement(OptionSet& options) {
    options.flag("--yes", isAgreed_, "Agree to the loss of what is there; otherwise it is asked for.");
  }

 private:
  virtual void confirm(Session& /*session*/) {}

  bool isDetached_ = false;
  bool isAgreed_ = false;
  bool isRefused_ = false;
};

class WriteCommand : public StartCommand {
 public:
  CommandText text() const override {
    static const std::string description =
        "Overwrites a whole external disk with an image, byte for byte, reads it back from the disk and "
        "compares. "
        "Unmount the disk's volumes first. Shows how far it is and ends when the job has; the last line has "
        "the image's "
        "SHA-256. Ctrl-C cancels, which leaves the disk partly overwritten. " +
        std::string(kEvents);
    return {"write", "Write an image onto an external disk", description,
            "molvanectl device write --yes ~/installer.img disk4"};
  }

  void declare(OptionSet& options) override {
    StartCommand::declare(options);
    options.flag("--no-verify", isUnverified_, "Do not read the disk back.");
    declareAgreement(options);
    options.argument("IMAGE", image_,
                     "The image: .img, .iso, .raw, .dmg or .cdr, byte for byte what the disk is to hold.");
    options.argument("DISK", disk_, "The whole disk to overwrite, such as disk4.");
  }

 private:
  DeviceJobSpec specification() const override {
    return {WriteImage{absolutePath(image_), diskNamed(disk_), !isUnverified_}};
  }
  void confirm(Session& session) override {
    askBefore(session,
              "Everything on " + diskNamed(disk_) + " will be lost: it is overwritten with " + image_ + ".",
              diskNamed(disk_));
  }

  std::string image_;
  std::string disk_;
  bool isUnverified_ = false;
};

class ImageCommand : public StartCommand {
 public:
  CommandText text() const override {
    static const std::string description =
        "Reads a whole disk into a new image file. Blocks that cannot be read become zeros and are counted. "
        "Unmount the "
        "disk's volumes first, or the image may hold a file system in the middle of a change. Ctrl-C cancels "
        "and "
        "removes the file. " +
        std::string(kEvents);
    return {"image", "Read a disk into an image file", description,
            "molvanectl device image disk4 ~/stick.img"};
  }

  void declare(OptionSet& options) override {
    StartCommand::declare(options);
    options.value("--owner", "UID", owner_,
                  "User identifier of whom the file is to belong to; you if not given.");
    options.argument("DISK", disk_, "The whole disk to read, such as disk4.");
    options.argument("FILE", file_, "The file to create: .dmg, .img or .raw below /Users, /Volumes or /tmp.");
  }

 private:
  DeviceJobSpec specification() const override {
    return {ImageDevice{diskNamed(disk_), absolutePath(file_), ownerUID()}};
  }
  std::uint32_t ownerUID() const {
    std::uint32_t uid = 0;
    const char* const end = owner_.data() + owner_.size();
    const auto [last, error] = std::from_chars(owner_.data(), end, uid);
    if (error != std::errc() || last != end) throw UsageError("'" + owner_ + "' is no user identifier");
    return uid;
  }

  std::string disk_;
  std::string file_;
  std::string owner_ = "0";
};

class InstallMediaCommand : public StartCommand {
 public:
  CommandText text() const override {
    static const std::string description =
        "Has a macOS installer make bootable media of a volume on an external disk, and shows what its tool "
        "says as it "
        "says it. The volume is erased. " +
        std::string(kEvents);
    return {"install-media", "Make bootable install media", description,
            "molvanectl device install-media --yes \"$installer\" /Volumes/USB"};
  }

  void declare(OptionSet& options) override {
    StartCommand::declare(options);
    declareAgreement(options);
    options.argument("APP", installer_, "The installer, in /Applications.");
    options.argument("VOLUME", volume_, "The mounted volume to erase, such as /Volumes/USB.");
  }

 private:
  DeviceJobSpec specification() const override {
    return {CreateInstallMedia{absolutePath(installer_), absolutePath(volume_)}};
  }
  void confirm(Session& session) override {
    askBefore(session, "Everything on the volume " + volume_ + " will be lost: it is erased.", volume_);
  }

  std::string installer_;
  std::string volume_;
};

class BackupDestinationCommand : public StartCommand {
 public:
  CommandText text() const override {
    static const std::string description =
        "Makes a volume on an external disk the backup destination. It cannot be cancelled. " +
        std::string(kEvents);
    return {"backup-destination", "Set the backup destination", description,
            "molvanectl device backup-destination /Volumes/Backup"};
  }

  void declare(OptionSet& options) override {
    StartCommand::declare(options);
    options.argument("VOLUME", volume_, "The mounted volume, such as /Volumes/Backup.");
  }

 private:
  DeviceJobSpec specification() const override { return {SetTimeMachineDestination{absolutePath(volume_)}}; }

  std::string volume_;
};

}  // namespace

CommandGroup deviceCommands() {
  CommandGroup group = groupOf<WriteCommand, ImageCommand, InstallMediaCommand, BackupDestinationCommand>(
      {"device", "Write, read and prepare whole disks",
       "Jobs on whole external disks and their volumes, which the helper runs as root. A job belongs to the "
       "helper: it "
       "goes on when its client is gone, until the helper exits two minutes after the last one.",
       "molvanectl device write --yes ~/installer.img disk4"});
  for (auto& command : deviceJobCommands()) group.commands.push_back(std::move(command));
  return group;
}

}  // namespace molvane::ctl
