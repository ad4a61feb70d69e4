#include "HelperKit/Devices/ChunkRescue.hpp"

#include <algorithm>

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

  std::optional<std::int64_t> run() {
    readParts(0, chunk_.size());
    if (isGivenUp_) return std::nullopt;
    return badBlocks_;
  }

 private:
  void readParts(std::size_t begin, std::size_t end) {
    const std::size_t blocks = (end - begin + blockSize_ - 1) / blockSize_;
    const std::size_t part = blocks <= kFewBlocks ? blockSize_ : (blocks + kParts - 1) / kParts * blockSize_;
    const std::int64_t before = badBlocks_;
    for (std::size_t position = begin; position < end && !isGivenUp_; position += part) {
      const std::size_t partEnd = std::min(position + part, end);
      // Where all parts before were whole, the last one holds what is bad.
      readRange(position, partEnd, partEnd == end && badBlocks_ == before);
    }
  }

  void readRange(std::size_t position, std::size_t end, bool isKnownBad) {
    while (position < end) {
      const bool isBlock = end - position <= blockSize_;
      if (isKnownBad && !isBlock) return readParts(position, end);
      isGivenUp_ = isGivenUp_ || givenUp_();
      if (isGivenUp_) return;
      const std::span<std::byte> bytes = chunk_.subspan(position, end - position);
      const IoResult read = device_.readAt(bytes, offset_ + static_cast<std::int64_t>(position));
      if (read.error == 0 && read.count > 0) {
        position += read.count;
      } else if (isBlock) {
        std::fill(bytes.begin(), bytes.end(), std::byte{0});
        ++badBlocks_;
        return;
      } else {
        return readParts(position, end);
      }
    }
  }

  RawDevice& device_;
  const std::span<std::byte> chunk_;
  const std::int64_t offset_;
  const std::size_t blockSize_;
  const std::function<bool()>& givenUp_;
  std::int64_t badBlocks_ = 0;
  bool isGivenUp_ = false;
};

}  // namespace

std::optional<std::int64_t> rescueChunk(RawDevice& device, std::span<std::byte> chunk, std::int64_t offset,
                                        std::size_t blockSize, const std::function<bool()>& givenUp) {
  return ChunkRescue(device, chunk, offset, blockSize, givenUp).run();
}

}  // namespace molvane
