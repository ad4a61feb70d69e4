#include "Platform/PageBuffer.hpp"

#include <sys/mman.h>

#include "Base/NSError.hpp"

namespace molvane {

PageBuffer::PageBuffer(std::size_t size) : size_(size) {
  void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  if (memory == MAP_FAILED) throwErrno("memory for a buffer");
#ifdef MADV_HUGEPAGE
  // Fewer pages to hold for each request to a device; no harm where the system has none to give.
  static_cast<void>(::madvise(memory, size, MADV_HUGEPAGE));
#endif
  begin_ = static_cast<std::byte*>(memory);
}

PageBuffer::~PageBuffer() { ::munmap(begin_, size_); }

}  // namespace molvane
