#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <span>

#include "Base/Mutex.hpp"
#include "Base/Sha256.hpp"
#include "Platform/PageBuffer.hpp"
#include "Platform/Thread.hpp"

namespace molvane {

/// The memory of one job: a few chunks, allocated once and used by one ChunkStream after another.
class ChunkBuffer {
 public:
  static constexpr std::size_t kChunkSize = std::size_t{4} * 1024 * 1024;
  /// One being read, one being written, one being hashed, and one so that none of them waits.
  static constexpr std::size_t kChunks = 4;

  /// Throws std::system_error (ENOMEM).
  ChunkBuffer() : memory_(kChunkSize * kChunks) {}

  [[nodiscard]] std::span<std::byte> chunk(std::size_t number) const noexcept {
    return memory_.bytes().subspan(number % kChunks * kChunkSize, kChunkSize);
  }

 private:
  const PageBuffer memory_;
};

/// What a source put into a chunk.
struct ChunkRead {
  std::size_t count = 0;       ///< bytes, from the chunk's beginning; none: the end
  int error = 0;               ///< an errno value; nothing follows it
  std::int64_t badBlocks = 0;  ///< blocks that could not be read, in all chunks so far
  std::int64_t goodEnd = 0;    ///< bytes up to the last block that could be read, in all chunks so far
};

/// One pass over an image or a disk: chunk after chunk is read ahead on a thread of its own and, where they
/// are to be hashed, hashed on another, while the caller does with the chunks before what it has to. All
/// chunks reach the caller in order, and what goes wrong with one after all that came before.
///
/// One thread uses an object. The destructor waits for the request that the source is in.
class ChunkStream {
 public:
  /// Fills the chunk, of ChunkBuffer::kChunkSize bytes, with what comes next. Called from one thread, one
  /// call after the other, until it gives no bytes or an error.
  using Source = std::function<ChunkRead(std::span<std::byte> chunk)>;

  struct Chunk : ChunkRead {
    /// All of the chunk. What lies behind `count` bytes is the caller's to change.
    std::span<std::byte> memory;
  };

  /// Begins to read, and to feed `hasher` unless it is null. Throws std::system_error (EAGAIN) when there are
  /// no threads to be had. `buffer` and `hasher` outlive the stream.
  ChunkStream(const ChunkBuffer& buffer, Source source, Sha256* hasher = nullptr);
  ~ChunkStream();
  ChunkStream(const ChunkStream&) = delete;
  ChunkStream& operator=(const ChunkStream&) = delete;

  /// Waits for the next chunk and gives up the one before. Must not be called again after one with no bytes.
  /// Throws what the source threw.
  Chunk next();

  /// Waits until all chunks that next() gave are hashed and ends the stream: the hasher is the caller's
  /// again.
  void finish();

 private:
  void read();
  void hash();
  void stop();
  [[nodiscard]] bool hasRoom() const MOLVANE_REQUIRES(mutex_);
  void rethrowFailure() const MOLVANE_REQUIRES(mutex_);

  const ChunkBuffer& buffer_;
  const Source source_;
  Sha256* const hasher_;  // the hashing thread's until it is joined

  Mutex mutex_;
  Condition arrived_;   // a chunk has been read
  Condition released_;  // a chunk has been hashed, or given up
  std::array<ChunkRead, ChunkBuffer::kChunks> reads_ MOLVANE_GUARDED_BY(mutex_){};
  // Chunks since the beginning: read, hashed, given to the caller, given up by it.
  std::uint64_t read_ MOLVANE_GUARDED_BY(mutex_) = 0;
  std::uint64_t hashed_ MOLVANE_GUARDED_BY(mutex_) = 0;
  std::uint64_t given_ MOLVANE_GUARDED_BY(mutex_) = 0;
  std::uint64_t givenUp_ MOLVANE_GUARDED_BY(mutex_) = 0;
  bool stopping_ MOLVANE_GUARDED_BY(mutex_) = false;
  std::exception_ptr failure_ MOLVANE_GUARDED_BY(mutex_);

  Thread hashing_;
  Thread reading_;
};

}  // namespace molvane
