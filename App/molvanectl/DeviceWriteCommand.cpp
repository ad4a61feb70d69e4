#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "HelperProtocol/HelperErrorDomains.hpp"
#include "Platform/StandardPath.hpp"
#include "molvanectl/AbsolutePath.hpp"
#include "molvanectl/Confirmation.hpp"
#include "molvanectl/DeviceCommands.hpp"
#include "molvanectl/DeviceJobStart.hpp"
#include "molvanectl/FileWords.hpp"
#include "molvanectl/ImageLook.hpp"
#include "molvanectl/OptionSet.hpp"

namespace molvane::ctl {
namespace {

/// Why the helper would not have the disk overwritten; nothing when its policy accepts the disk.
///
/// No method only asks. But a write of an image without a path is never started: the policy looks at the disk
/// first and at the image next, and refuses one that is no path ending in a kind of image. Refusals come
/// before anything is registered or opened. So the answer is the disk's own refusal, or that of the image,
/// and then the disk has passed.
std::optional<NSError> diskRefusal(Session& session, const std::string& disk) {
  const DeviceJobStart answer = startDeviceJob(session, {WriteImage{"", disk, true}});
  if (!answer.jobID.empty()) {
    static_cast<void>(session.ask(&MolvaneHelperXPCProtocol::cancelDeviceJob, answer.jobID));
    throw std::runtime_error("The helper did not say whether " + disk + " may be overwritten.");
  }
  const bool isTheImages = answer.error.domain == kPolicyErrorDomain &&
                           answer.error.localizedDescription.starts_with("Image not allowed: ");
  return isTheImages ? std::nullopt : std::optional(answer.error);
}

class WriteCommand final : public JobStartCommand {
 public:
  CommandText text() const override {
    return {
        "write", "Write an image onto a whole disk, which erases it",
        "Has the helper write an image file onto an external disk, read the disk back and compare, then "
        "prints the SHA-256 of the image. The disk's volumes must be unmounted first. Everything on the "
        "disk is lost, so its name has to be typed once more, or --yes given. An image that is empty, "
        "compressed or in the format UDIF is asked about, or needs --as-is: it is not unpacked. The first "
        "Ctrl-C cancels the job and waits for its end; the disk then holds a part of the image.",
        "molvanectl device write installer.img disk4"};
  }

  void declare(OptionSet& options) override {
    options.flag("--as-is", asIs_, "Write the image byte for byte, whatever it looks like.");
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

  bool mayStart(Session& session) const override {
    const std::vector<Question> open = questions();
    if (open.empty()) return true;
    if (yes_ || !canAsk(session)) refuseUnasked(open.front());
    if (const auto refused = diskRefusal(session, diskName(disk_))) {
      session.output().error(*refused);
      return false;
    }
    return std::all_of(open.begin(), open.end(),
                       [&](const Question& question) { return confirm(session, question); });
  }

  DeviceJobWords words() const override {
    const std::string disk = diskName(disk_);
    std::string done = "The image has been written to " + disk;
    done += noVerify_ ? "; it was not read back." : " and read back: they are the same.";
    return {.running = "writing",
            .done = done,
            .leftBehind = disk + " may hold only a part of the image.",
            .allWritten = "The whole image was written to " + disk,
            .showsLog = false};
  }

 private:
  /// The questions that are still open. Throws std::runtime_error when there is no image.
  [[nodiscard]] std::vector<Question> questions() const {
    // As the helper will understand it: every ".." by name.
    const std::string path = standardizingPathByName(absolutePath(image_));
    const ImageLook look = lookAtImage(path);
    if (look.missing) throw std::runtime_error(noFile(path));
    std::vector<Question> open;
    if (!look.oddity.empty() && !asIs_) {
      open.push_back({path + " " + look.oddity + ", and would be written as it is", "as-is", "--as-is"});
    }
    if (!yes_) open.push_back(erasing(diskName(disk_)));
    return open;
  }

  std::string image_;
  std::string disk_;
  bool asIs_ = false;
  bool noVerify_ = false;
  bool yes_ = false;
};

}  // namespace

std::unique_ptr<Command> deviceWriteCommand() { return std::make_unique<WriteCommand>(); }

}  // namespace molvane::ctl
