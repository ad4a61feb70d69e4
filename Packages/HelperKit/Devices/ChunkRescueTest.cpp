#include "HelperKit/Devices/ChunkRescue.hpp"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "HelperKit/Devices/ChunkStream.hpp"
#include "HelperKit/Devices/testing/FakeDisk.hpp"

namespace molvane {
namespace {

using testing::FakeDisk;
using testing::noise;

constexpr std::size_t kChunk = ChunkBuffer::kChunkSize;
constexpr auto kNever = [] { return false; };

struct Rescued {
  std::string bytes;
  std::int64_t badBlocks = 0;
  bool operator==(const Rescued&) const = default;
};

Rescued rescue(FakeDisk& disk, std::size_t size, std::int64_t offset, std::size_t blockSize) {
  std::string bytes(size, 'x');
  FakeDisk::Device device(disk);
  const RescueResult result =
      rescueChunk(device, std::as_writable_bytes(std::span(bytes)), offset, blockSize, kNever);
  EXPECT_EQ(result.error, 0);
  return {bytes, result.badBlocks};
}

// What a rescue is to come to: every block asked for by itself.
Rescued oneByOne(const FakeDisk& disk, std::size_t size, std::int64_t offset, std::size_t blockSize) {
  Rescued result{disk.content.substr(static_cast<std::size_t>(offset), size)};
  for (std::size_t at = 0; at < size; at += blockSize) {
    const std::size_t length = std::min(blockSize, size - at);
    const std::int64_t begin = offset + static_cast<std::int64_t>(at);
    const auto bad = disk.badSectors.lower_bound(begin / 512);
    if (bad == disk.badSectors.end() || *bad * 512 >= begin + static_cast<std::int64_t>(length)) continue;
    result.bytes.replace(at, length, length, '\0');
    ++result.badBlocks;
  }
  return result;
}

TEST(ChunkRescue, ComesToWhatReadingBlockByBlockComesTo) {
  std::mt19937 random(7);
  const std::string content = noise(3 * kChunk);
  const auto offset = static_cast<std::int64_t>(kChunk);
  const std::int64_t firstSector = offset / 512;
  const auto sectors = static_cast<std::int64_t>(kChunk / 512);
  for (const std::size_t blockSize : {512, 4096}) {
    for (const std::size_t size : {kChunk, kChunk - 512 * 7, std::size_t{4096}, std::size_t{1536}}) {
      for (const int count : {1, 2, 64, 3000}) {
        FakeDisk disk(content);
        for (int i = 0; i < count; ++i) {
          disk.badSectors.insert(firstSector + static_cast<std::int64_t>(random() % (size / 512)));
        }
        disk.badSectors.insert({firstSector - 1, firstSector + sectors});  // not of this chunk
        EXPECT_EQ(rescue(disk, size, offset, blockSize), oneByOne(disk, size, offset, blockSize))
            << blockSize << " " << size << " " << count;
      }
    }
  }
}

TEST(ChunkRescue, CostsAHandfulOfFailedReadsForABadBlock) {
  for (const std::int64_t sector : {0, 1, 511, 4096, 8190, 8191}) {
    FakeDisk disk(kChunk);
    disk.badSectors.insert(sector);
    EXPECT_EQ(rescue(disk, kChunk, 0, 512).badBlocks, 1);
    EXPECT_LE(disk.failedReads, 5) << sector;
    EXPECT_LE(disk.reads, sector < 16 ? 12 : 40) << sector;
  }
  FakeDisk dead(kChunk);
  for (std::int64_t sector = 0; sector < 8192; ++sector) dead.badSectors.insert(sector);
  EXPECT_EQ(rescue(dead, kChunk, 0, 512), (Rescued{std::string(kChunk, '\0'), 8192}));
  EXPECT_LT(dead.reads, 8192 * 5 / 4);
}

TEST(ChunkRescue, GoesOnAfterAShortReadAndTakesTheEndForBad) {
  FakeDisk disk(noise(kChunk));
  disk.badSectors.insert(100);
  disk.mostAtOnce = 1000;
  EXPECT_EQ(rescue(disk, 65536, 0, 512).bytes, oneByOne(disk, 65536, 0, 512).bytes);

  FakeDisk ending(noise(8192));
  ending.readEndsAt = 4096;
  const Rescued rescued = rescue(ending, 8192, 0, 512);
  EXPECT_EQ(rescued, (Rescued{ending.content.substr(0, 4096) + std::string(4096, '\0'), 8}));
}

TEST(ChunkRescue, EndsOnceItIsGivenUpOrTheDiskIsGone) {
  FakeDisk disk(kChunk);
  disk.badSectors.insert({0, 1, 2});
  std::string bytes(kChunk, 'x');
  const std::span<std::byte> chunk = std::as_writable_bytes(std::span(bytes));
  FakeDisk::Device device(disk);
  const auto afterThree = [&disk] { return disk.reads == 3; };
  EXPECT_EQ(rescueChunk(device, chunk, 0, 512, afterThree).error, ECANCELED);
  EXPECT_EQ(disk.reads, 3);

  disk.onRequest = [&disk](FakeDisk::Request, std::int64_t) { disk.isGone = disk.reads == 6; };
  EXPECT_EQ(rescueChunk(device, chunk, 0, 512, kNever).error, ENODEV);
  EXPECT_EQ(disk.reads, 7);
}

}  // namespace
}  // namespace molvane
