#include "HelperKit/Devices/ChunkRescue.hpp"

#include <algorithm>
#include <cerrno>

namespace molvane {
namespace {

// Into how many parts a stretch is cut that did not read. Each level costs one failed read; a failed read
// costs a real disk seconds, a good one next to nothing.
constexpr std::size_t kParts = 8;
// A stretch of so few blocks is read block by block at once.
constexpr std::size_t kFewBlocks = 16;

class ChunkRescue {
 public:
  ChunkRescue(RawDevice& device, std::span<std::byte> chunk, std::int64_t offset, std::size_t blockSize,
              const std::function<bool()>& givenUp)
      : device_(device), chunk_(chunk), offset_(offset), blockSize_(blockSize), givenUp_(givenUp) {}

  RescueResult run() {
    rescueParts(0, chunk_.size());
    return {badBlocks_, badRunEnd_ == chunk_.size() ? badRunBegin_ : chunk_.size(), error_};
  }

 private:
  // A stretch that did not read as a whole.
  void rescueParts(std::size_t begin, std::size_t end) {
    const std::size_t blocks = (end - begin + blockSize_ - 1) / blockSize_;
    const std::size_t part = blocks <= kFewBlocks ? blockSize_ : (blocks + kParts - 1) / kParts * blockSize_;
    std::int64_t badBefore = badBlocks_;
    bool isRestTried = false;
    for (std::size_t position = begin; position < end && error_ == 0; position += part) {
      const std::size_t partEnd = std::min(position + part, end);
      // Where all parts before were whole, the last one holds what is bad.
      rescue(position, partEnd, partEnd == end && badBlocks_ == badBefore);
      if (isRestTried || badBlocks_ == badBefore || partEnd == end) continue;
      // What is bad mostly lies together, so what follows it is tried at once.
      isRestTried = true;
      if (readUpTo(partEnd, end) == end) return;
      badBefore = badBlocks_;
    }
  }

  void rescue(std::size_t begin, std::size_t end, bool isKnownBad) {
    if (!isKnownBad || end - begin <= blockSize_) begin = readUpTo(begin, end);
    if (begin == end || error_ != 0) return;
    if (end - begin > blockSize_) return rescueParts(begin, end);
    const std::span<std::byte> block = chunk_.subspan(begin, end - begin);
    std::fill(block.begin(), block.end(), std::byte{0});
    ++badBlocks_;
    if (begin != badRunEnd_) badRunBegin_ = begin;
    badRunEnd_ = end;
  }

  // Reads from `position` on, and returns where a request came to nothing, or `end`.
  std::size_t readUpTo(std::size_t position, std::size_t end) {
    while (position < end) {
      if (error_ == 0 && givenUp_()) error_ = ECANCELED;
      if (error_ != 0) break;
      const std::span<std::byte> bytes = chunk_.subspan(position, end - position);
      const IoResult read = device_.readAt(bytes, offset_ + static_cast<std::int64_t>(position));
      if (read.isGone) error_ = read.error;
      if (read.error != 0 || read.count == 0) break;
      position += read.count;
    }
    return position;
  }

  RawDevice& device_;
  const std::span<std::byte> chunk_;
  const std::int64_t offset_;
  const std::size_t blockSize_;
  const std::function<bool()>& givenUp_;
  std::int64_t badBlocks_ = 0;
  // The last bad blocks without a good one between them. They are found from the front to the back.
  std::size_t badRunBegin_ = 0;
  std::size_t badRunEnd_ = 0;
  int error_ = 0;  // as in RescueResult
};

}  // namespace

RescueResult rescueChunk(RawDevice& device, std::span<std::byte> chunk, std::int64_t offset,
                         std::size_t blockSize, const std::function<bool()>& givenUp) {
  return ChunkRescue(device, chunk, offset, blockSize, givenUp).run();
}

}  // namespace molvane
