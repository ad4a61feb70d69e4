#include "HelperKit/Devices/ChunkStream.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace molvane {

ChunkStream::ChunkStream(const ChunkBuffer& buffer, Source source, Sha256* hasher)
    : buffer_(buffer), source_(std::move(source)), hasher_(hasher) {
  try {
    if (hasher_ != nullptr) hashing_ = Thread([this] { hash(); }, Thread::kSmallStack);
    reading_ = Thread([this] { read(); }, Thread::kSmallStack);
  } catch (...) {
    stop();
    throw;
  }
}

ChunkStream::~ChunkStream() { stop(); }

void ChunkStream::stop() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
  }
  arrived_.notify_all();
  released_.notify_all();
}

bool ChunkStream::hasRoom() const {
  const std::uint64_t done = hasher_ == nullptr ? givenUp_ : std::min(hashed_, givenUp_);
  return read_ - done < ChunkBuffer::kChunks;
}

void ChunkStream::rethrowFailure() const {
  if (failure_) std::rethrow_exception(failure_);
}

void ChunkStream::read() {
  for (std::uint64_t number = 0;; ++number) {
    {
      const MutexLock lock(mutex_);
      while (!hasRoom() && !stopping_) released_.wait(mutex_);
      if (stopping_) return;
    }
    ChunkRead read;
    std::exception_ptr failure;
    try {
      read = source_(buffer_.chunk(number));
    } catch (...) {
      failure = std::current_exception();
    }
    const bool isLast = failure || read.error != 0 || read.count == 0;
    {
      const MutexLock lock(mutex_);
      reads_[number % ChunkBuffer::kChunks] = read;
      if (failure) failure_ = failure;
      ++read_;
    }
    arrived_.notify_all();
    if (isLast) return;
  }
}

void ChunkStream::hash() {
  for (std::uint64_t number = 0;; ++number) {
    std::size_t count = 0;
    {
      const MutexLock lock(mutex_);
      while (number == read_ && !stopping_) arrived_.wait(mutex_);
      if (stopping_) return;
      count = reads_[number % ChunkBuffer::kChunks].count;
    }
    std::exception_ptr failure;
    try {
      hasher_->update(buffer_.chunk(number).data(), count);
    } catch (...) {
      failure = std::current_exception();
    }
    {
      const MutexLock lock(mutex_);
      if (failure) failure_ = failure;
      ++hashed_;
    }
    released_.notify_all();
  }
}

ChunkStream::Chunk ChunkStream::next() {
  Chunk chunk;
  {
    const MutexLock lock(mutex_);
    givenUp_ = given_;
    released_.notify_all();
    while (read_ == given_) arrived_.wait(mutex_);
    rethrowFailure();
    static_cast<ChunkRead&>(chunk) = reads_[given_ % ChunkBuffer::kChunks];
    chunk.memory = buffer_.chunk(given_);
    ++given_;
  }
  return chunk;
}

void ChunkStream::finish() {
  {
    const MutexLock lock(mutex_);
    while (hasher_ != nullptr && hashed_ < given_ && !failure_) released_.wait(mutex_);
    rethrowFailure();
  }
  stop();
  reading_.join();
  hashing_.join();
}

}  // namespace molvane
