#include "molvanectl/DeviceJobView.hpp"

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "molvanectl/DeviceLogTail.hpp"
#include "molvanectl/DeviceProgress.hpp"

namespace molvane::ctl {
namespace {

using Phase = DeviceJobStatus::Phase;

constexpr std::size_t kNarrowestWithEcho = 20;
constexpr int kPercentsALine = 10;
constexpr std::chrono::seconds kLongestSilence{60};

std::string_view cancellingText(bool accepted) {
  return accepted
             ? "The helper was asked to cancel the job. Waiting for its end; interrupt once more to leave."
             : "The job cannot be cancelled any more. Waiting for its end; interrupt once more to leave.";
}

class EventsView final : public DeviceJobView {
 public:
  EventsView(Output& output, std::string jobID) : output_(output), jobID_(std::move(jobID)) {}

  void show(const DeviceJobStatus& status, const DeviceJobWords& /*words*/, Time /*now*/) override {
    if (status == shown_) return;
    Record event = {{"event", status.isTerminal() ? "ended" : "status"}};
    event.update(asRecord(jobID_, status));
    if (std::string text = log_.take(status.log); !text.empty()) event["log"] = std::move(text);
    shown_ = status;
    output_.record(event);
  }

  void cancelling(bool accepted) override {
    output_.record({{"event", "cancelling"}, {"job", jobID_}, {"accepted", accepted}});
  }

  void close() override {}

 private:
  Output& output_;
  std::string jobID_;
  DeviceLogTail log_;
  std::optional<DeviceJobStatus> shown_;
};

/// What both views for eyes have: the log, which goes to standard output.
class TextView : public DeviceJobView {
 public:
  explicit TextView(Session& session) : session_(session) {}

  void cancelling(bool accepted) override {
    hide();
    output().notice(cancellingText(accepted));
  }

  void close() override {
    hide();
    std::string rest = std::exchange(unended_, {});
    if (output().outIsTerminal()) {
      output().text(rest);
    } else if (!rest.empty()) {
      output().piece("\n");
    }
  }

 protected:
  [[nodiscard]] Output& output() const { return session_.output(); }
  [[nodiscard]] Console& console() const { return session_.console(); }

  /// What has come of a line of the log that has not ended.
  [[nodiscard]] std::string_view unended() const { return unended_; }

  /// Whatever is drawn on the terminal goes.
  virtual void hide() {}

  void showLog(const DeviceJobStatus& status, const DeviceJobWords& words) {
    if (!words.showsLog) return;
    const std::string text = log_.take(withoutError(status));
    if (text.empty()) return;
    unended_ += text;
    const std::size_t ended = unended_.rfind('\n') + 1;  // 0 where there is none
    if (output().outIsTerminal()) {
      hide();
      output().text(unended_.substr(0, ended));
    } else {
      output().piece(text);
    }
    unended_.erase(0, ended);
  }

 private:
  /// The helper puts a failure's sentence at the end of the log, and it is reported for itself.
  static std::string withoutError(const DeviceJobStatus& status) {
    const std::string end = status.error.value_or("") + "\n";
    if (!status.error || !status.log.ends_with(end)) return status.log;
    return status.log.substr(0, status.log.size() - end.size());
  }

  Session& session_;
  DeviceLogTail log_;
  std::string unended_;
};

class BarView final : public TextView {
 public:
  using TextView::TextView;
  ~BarView() override { clear(); }
  BarView(const BarView&) = delete;
  BarView& operator=(const BarView&) = delete;

  void show(const DeviceJobStatus& status, const DeviceJobWords& words, Time now) override {
    showLog(status, words);
    if (status.isTerminal()) return clear();
    progress_.update(status, now);
    const std::string line = progressLine(phaseWord(status, words), progress_, width(), lastTurn());
    // Drawn only on a change, so that a person who has scrolled back is not pulled to the bottom.
    if (line == drawn_) return;
    output().redraw(line);
    drawn_ = line;
  }

 private:
  void hide() override { clear(); }

  void clear() {
    if (std::exchange(drawn_, {}).empty()) return;
    output().redraw({});
  }

  /// The terminal's width, less the "^C" that it adds by itself, which must not break the line.
  [[nodiscard]] std::size_t width() const {
    const std::size_t columns = console().columns();
    return columns > kNarrowestWithEcho ? columns - 2 : columns;
  }

  /// Of a line that a tool draws over itself, what it would show now.
  [[nodiscard]] std::string_view lastTurn() const {
    std::string_view line = unended();
    while (line.ends_with('\r')) line.remove_suffix(1);
    return line.substr(line.rfind('\r') + 1);
  }

  DeviceProgress progress_;
  std::string drawn_;
};

class LinesView final : public TextView {
 public:
  using TextView::TextView;

  void show(const DeviceJobStatus& status, const DeviceJobWords& words, Time now) override {
    showLog(status, words);
    if (status.isTerminal()) return;
    const bool newPhase = !phase_ || *phase_ != status.phase;
    progress_.update(status, now);
    const int step = progress_.percent().value_or(0) / kPercentsALine;
    if (!newPhase && step <= step_ && now - said_ < kLongestSilence) return;
    phase_ = status.phase;
    step_ = step;
    said_ = now;
    output().notice(progressSentence(phaseWord(status, words), progress_));
  }

 private:
  DeviceProgress progress_;
  std::optional<Phase> phase_;
  int step_ = 0;
  Time said_;
};

}  // namespace

std::unique_ptr<DeviceJobView> makeDeviceJobView(Session& session, const std::string& jobID) {
  Output& output = session.output();
  if (output.json()) return std::make_unique<EventsView>(output, jobID);
  if (output.errIsTerminal() && session.console().redraws()) return std::make_unique<BarView>(session);
  return std::make_unique<LinesView>(session);
}

Record asRecord(const std::string& jobID, const DeviceJobStatus& status) {
  Record record = {{"job", jobID},
                   {"phase", rawValue(status.phase)},
                   {"bytesDone", status.bytesDone},
                   {"bytesTotal", status.bytesTotal},
                   {"badBlocks", status.badBlocks}};
  if (status.sha256) record["sha256"] = *status.sha256;
  if (status.error) record["error"] = *status.error;
  return record;
}

std::string phaseWord(const DeviceJobStatus& status, const DeviceJobWords& words) {
  return status.phase == Phase::running ? words.running : std::string(rawValue(status.phase));
}

}  // namespace molvane::ctl
