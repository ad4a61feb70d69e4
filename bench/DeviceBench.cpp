#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Base/NSError.hpp"
#include "Base/Sha256.hpp"
#include "Benchmarks.hpp"
#include "DeviceScratch.hpp"
#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "Measuring.hpp"
#include "Platform/PageBuffer.hpp"
#include "Platform/linux/testing/LoopDevice.hpp"

// The work of the device jobs, as the helper does it, over loop devices. Every peer does all of it: what is
// written is synced and hashed, and verified by reading the device past the cache.

namespace molvane::bench {
namespace {

using testing::LoopDevice;
using Phase = DeviceJobStatus::Phase;

constexpr int kRounds = 9;
constexpr int kSlowPeerRounds = 5;
constexpr int kJobs = 20;
constexpr double kMebibytesPerJob = 17;

// Opens the loop device whatever disk is asked for.
RawDeviceOpener over(const LoopDevice& loop) {
  return [path = loop.path()](RawDeviceRequest request) {
    request.path = path;
    request.diskName.clear();
    return openRawDevice(request);
  };
}

DeviceFacts factsOf(std::int64_t size) {
  DeviceFacts facts;
  facts.bsdName = "disk4";
  facts.sizeBytes = size;
  return facts;
}

void require(const DeviceJobTable& table, const std::string& expectedDigest) {
  const DeviceJobStatus status = table.status("job").value();
  if (status.phase != Phase::finished) throw std::runtime_error("the job failed: " + status.log);
  if (!expectedDigest.empty() && status.sha256 != expectedDigest) throw std::runtime_error("another digest");
}

void writeAndVerify(const LoopDevice& device, const std::string& image) {
  DeviceJobTable table;
  table.add("job", {});
  DeviceJob job(table, "job");
  const DeviceFacts facts = factsOf(static_cast<std::int64_t>(fs::file_size(image)));
  runWrite(job, over(device),
           {.source = image, .size = facts.sizeBytes, .facts = facts, .verify = true, .peerUID = geteuid()});
  require(table, "");
}

void imageDevice(const LoopDevice& device, std::int64_t size, const std::string& destination,
                 std::int64_t bad = 0) {
  DeviceJobTable table;
  table.add("job", {});
  DeviceJob job(table, "job");
  const DeviceFacts facts = factsOf(size);
  runImage(job, over(device), {.facts = facts, .destination = destination, .ownerUID = geteuid()});
  require(table, "");
  if (table.status("job")->badBlocks != bad) throw std::runtime_error("not the bad blocks that there are");
}

void shell(const std::string& command) { runProgram("/bin/bash", {"-c", "set -e -o pipefail; " + command}); }

Comparison compare(
    const std::string& name, double atMost, const Work& ours, const Work& peer, int rounds = kRounds,
    const Work& before = [] {}) {
  return compareInTurns({.name = name, .unit = "s", .atMost = atMost}, {.counted = rounds}, {ours, before},
                        {peer, before});
}

// What the write and the read of the device and the hash cost by themselves, the slower of what overlaps.
double secondsOfTheParts(const LoopDevice& device, std::int64_t size) {
  constexpr auto kChunk = static_cast<std::int64_t>(ChunkBuffer::kChunkSize);
  const ChunkBuffer buffer;
  std::size_t number = 0;
  const auto chunks = [&](const std::function<bool(std::span<std::byte>, std::int64_t)>& each) {
    return secondsOf([&] {
      for (std::int64_t offset = 0; offset < size; offset += kChunk) {
        if (!each(buffer.chunk(number++), offset)) throw std::runtime_error("a part failed");
      }
    });
  };
  for (std::size_t i = 0; i < ChunkBuffer::kChunks; ++i) {
    std::fill(buffer.chunk(i).begin(), buffer.chunk(i).end(), std::byte{42});
  }
  const std::unique_ptr<RawDevice> raw = over(device)(
      {.path = "", .diskName = "", .sizeBytes = size, .access = RawDeviceRequest::Access::readWrite});
  const double write = chunks([&](std::span<std::byte> chunk, std::int64_t offset) {
    return raw->writeAt(chunk, offset).count == chunk.size();
  });
  const double read = chunks([&](std::span<std::byte> chunk, std::int64_t offset) {
    return raw->readAt(chunk, offset).count == chunk.size();
  });
  Sha256 hasher;
  const double hash = chunks([&](std::span<std::byte> chunk, std::int64_t) {
    hasher.update(chunk.data(), chunk.size());
    return true;
  });
  return std::max(write, hash) + std::max(read, hash);
}

std::vector<Comparison> writing(const DeviceScratch& scratch) {
  const std::string image = scratch.makeFile("memory/image.img");
  const LoopDevice device(scratch.makeFile("memory/device"), {.isDirect = true});
  const std::string& node = device.path();
  const auto ours = [&] { writeAndVerify(device, image); };
  const std::string readBack = fmt::format("dd if={} bs=4M iflag=direct | openssl dgst -sha256", node);

  std::vector<Comparison> rows;
  rows.push_back(compare("write and verify / dd beside openssl, read back into openssl", 0.5, ours, [&] {
    shell(fmt::format("openssl dgst -sha256 {0} & dd if={0} of={1} bs=4M oflag=direct conv=fsync; wait; {2}",
                      image, node, readBack));
  }));
  rows.push_back(compare(
      "write and verify / dc3dd hof=", 0.125, ours,
      [&] { shell(fmt::format("dc3dd if={} hof={} hash=sha256", image, node)); }, kSlowPeerRounds));
  rows.push_back(compare(
      "write and verify / dcfldd, then dcfldd vf=", 0.125, ours,
      [&] { shell(fmt::format("dcfldd if={0} of={1} hash=sha256 && dcfldd if={0} vf={1}", image, node)); },
      kSlowPeerRounds));

  std::vector<double> spans;
  std::vector<double> limits;
  for (int round = 0; round < 2 * kRounds; ++round) {
    limits.push_back(secondsOfTheParts(device, scratch.size()));
    spans.push_back(secondsOf(ours));
  }
  rows.push_back({.name = "write and verify / max(write, hash) + max(read, hash)",
                  .ours = median(spans),
                  .peer = median(limits),
                  .unit = "s",
                  .atMost = 1.10});

  const std::string coldImage = scratch.makeFile("disk/image.img");
  const LoopDevice slow(scratch.makeFile("disk/device"), {.isDirect = true});
  rows.push_back(compare(
      "the same, image not cached, device on disk / openssl, dd and openssl in sequence", 1 / 1.5,
      [&] { writeAndVerify(slow, coldImage); },
      [&] {
        shell(
            fmt::format("openssl dgst -sha256 {0}; dd if={0} of={1} bs=4M oflag=direct conv=fsync; "
                        "dd if={1} bs=4M iflag=direct | openssl dgst -sha256",
                        coldImage, slow.path()));
      },
      kRounds, forgetCaches));
  return rows;
}

std::vector<Comparison> imaging(const DeviceScratch& scratch) {
  std::vector<Comparison> rows;
  {
    const LoopDevice device(scratch.makeFile("memory/device"), {.isDirect = true});
    const std::string copy = scratch.path() + "/memory/copy.img";
    WarmMemory memory(static_cast<std::size_t>(scratch.size()));
    const auto ours = [&] { imageDevice(device, scratch.size(), copy); };
    const auto peer = [&](const std::string& name, const std::string& command, int rounds) {
      rows.push_back(compare(
          "image a healthy device / " + name, 1 / 1.9, ours,
          [&] {
            shell(fmt::format(fmt::runtime(command), fmt::arg("dev", device.path()), fmt::arg("copy", copy)));
          },
          rounds,
          [&] {
            fs::remove(copy);
            memory.renew();
          }));
    };
    peer("dd into tee and openssl", "dd if={dev} bs=4M iflag=direct | tee {copy} | openssl dgst -sha256",
         kRounds);
    peer("dd, then openssl",
         "dd if={dev} of={copy} bs=4M iflag=direct conv=fsync; openssl dgst -sha256 {copy}", kRounds);
    peer("ddrescue -d, then openssl", "ddrescue -q -d {dev} {copy}; openssl dgst -sha256 {copy}", kRounds);
    peer("dc3dd hash=", "dc3dd if={dev} of={copy} hash=sha256", kSlowPeerRounds);
    fs::remove(copy);
  }
  const LoopDevice device(scratch.makeFile("disk/device"), {.isDirect = true});
  const std::string copy = scratch.path() + "/disk/copy.img";
  rows.push_back(compare(
      "image a healthy device on disk / ddrescue -d, no hash", 1.1,
      [&] { imageDevice(device, scratch.size(), copy); },
      [&] { shell(fmt::format("ddrescue -q -d {} {} && sync {}", device.path(), copy, copy)); }, kRounds,
      [&] {
        fs::remove(copy);
        forgetCaches();
      }));
  return rows;
}

Comparison rescuing(const DeviceScratch& scratch) {
  constexpr std::int64_t kBad = 64;
  std::vector<std::int64_t> sectors;
  for (std::int64_t i = 0; i < kBad; ++i)
    sectors.push_back((2 * i + 1) * scratch.size() / 512 / (2 * kBad) + i);
  const DamagedFile damaged(scratch, scratch.makeFile("memory/damaged"), sectors);
  const LoopDevice device(damaged.path(), {.isDirect = true, .isReadOnly = true});
  const std::string copy = scratch.path() + "/memory/copy.img";
  WarmMemory memory(static_cast<std::size_t>(scratch.size()));
  return compare(
      "image a device with 64 unreadable sectors / ddrescue -d, then openssl", 1.0 / 3,
      [&] { imageDevice(device, scratch.size(), copy, kBad); },
      [&] {
        shell(fmt::format("ddrescue -q -d {0} {1} {1}.map; openssl dgst -sha256 {1}", device.path(), copy));
      },
      kRounds,
      [&] {
        fs::remove(copy + ".map");
        fs::remove(copy);
        memory.renew();
      });
}

// A disk that stands still once every chunk of the job's memory has been used.
class StandingDisk final : public RawDevice {
 public:
  explicit StandingDisk(const std::function<void()>& stand) : stand_(stand) {}

  IoResult readAt(std::span<std::byte> bytes, std::int64_t offset) override {
    if (offset >= static_cast<std::int64_t>(2 * ChunkBuffer::kChunks * ChunkBuffer::kChunkSize)) stand_();
    std::fill(bytes.begin(), bytes.end(), std::byte{1});
    return {bytes.size(), 0};
  }
  IoResult writeAt(std::span<const std::byte>, std::int64_t) override { return {0, EIO}; }
  int sync() override { return 0; }

 private:
  const std::function<void()>& stand_;
};

double residentMebibytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kibibytes = 0;
    if (word == "VmRSS:" && status >> kibibytes) return kibibytes / 1024;
  }
  throw std::runtime_error("no resident size");
}

Comparison remembering(const DeviceScratch& scratch) {
  Mutex mutex;
  Condition changed;
  int standing = 0;
  bool isOver = false;
  const std::function<void()> stand = [&] {
    const MutexLock lock(mutex);
    ++standing;
    changed.notify_all();
    while (!isOver) changed.wait(mutex);
  };
  const RawDeviceOpener open = [&](const RawDeviceRequest&) { return std::make_unique<StandingDisk>(stand); };

  DeviceJobTable table;
  const double before = residentMebibytes();
  double all = 0;
  {
    std::vector<Thread> threads;
    for (int i = 0; i < kJobs; ++i) {
      const std::string id = std::to_string(i);
      table.add(id, {});
      const std::string copy = scratch.path() + "/memory/job" + id + ".img";
      threads.emplace_back([&table, &open, id, copy] {
        DeviceJob job(table, id);
        const DeviceFacts facts = factsOf(std::int64_t{1} << 30);
        runImage(job, open, {.facts = facts, .destination = copy, .ownerUID = geteuid()});
      });
    }
    const MutexLock lock(mutex);
    while (standing < kJobs) changed.wait(mutex);
    all = residentMebibytes();
    table.cancelAll();
    isOver = true;
    changed.notify_all();
  }
  return {.name = fmt::format("memory of each of {} jobs / {} MiB", kJobs, kMebibytesPerJob),
          .ours = (all - before) / kJobs,
          .peer = kMebibytesPerJob,
          .unit = "MiB",
          .atMost = 1};
}

}  // namespace

std::vector<Comparison> benchDevices() {
  const DeviceScratch scratch;
  std::vector<Comparison> rows{remembering(scratch)};
  const auto add = [&rows](const std::vector<Comparison>& more) {
    rows.insert(rows.end(), more.begin(), more.end());
  };
  rows.push_back(rescuing(scratch));
  add(imaging(scratch));
  add(writing(scratch));
  return rows;
}

}  // namespace molvane::bench
