#include "Platform/PageBuffer.hpp"

#include <sys/mman.h>

#include "Base/NSError.hpp"

namespace molvane {

PageBuffer::PageBuffer(std::size_t size) : size_(size) {
  void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  if (memory == MAP_FAILED) throwErrno("memory for a buffer");
  begin_ = static_cast<std::byte*>(memory);
}

PageBuffer::~PageBuffer() { ::munmap(begin_, size_); }

}  // namespace molvane
