#include "Platform/Thread.hpp"

#include <unistd.h>

#include <limits.h>
#include <algorithm>
#include <memory>
#include <system_error>
#include <utility>

namespace molvane {

namespace {

using Body = std::function<void()>;

void check(int code, const char* what) {
  if (code != 0) throw std::system_error(code, std::generic_category(), what);
}

class Attributes {
 public:
  Attributes() { check(::pthread_attr_init(&attributes_), "preparing a thread"); }
  ~Attributes() { ::pthread_attr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  void setStackSize(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t wanted = std::max(bytes, static_cast<std::size_t>(PTHREAD_STACK_MIN));
    check(::pthread_attr_setstacksize(&attributes_, (wanted + page - 1) / page * page),
          "setting a thread's stack");
  }

  [[nodiscard]] const pthread_attr_t* get() const { return &attributes_; }

 private:
  pthread_attr_t attributes_{};
};

// noexcept, so that what the body throws ends the program where it was thrown.
void* runBody(void* argument) noexcept {
  const std::unique_ptr<Body> body(static_cast<Body*>(argument));
  (*body)();
  return nullptr;
}

}  // namespace

Thread::Thread(Body body, std::size_t stackSize) {
  Attributes attributes;
  if (stackSize != 0) attributes.setStackSize(stackSize);
  auto handedOver = std::make_unique<Body>(std::move(body));
  pthread_t thread{};
  check(::pthread_create(&thread, attributes.get(), runBody, handedOver.get()), "starting a thread");
  // The new thread owns the body now.
  static_cast<void>(handedOver.release());
  thread_ = thread;
}

Thread::Thread(Thread&& other) noexcept : thread_(std::exchange(other.thread_, std::nullopt)) {}

Thread& Thread::operator=(Thread&& other) noexcept {
  if (this != &other) {
    join();
    thread_ = std::exchange(other.thread_, std::nullopt);
  }
  return *this;
}

Thread::~Thread() { join(); }

void Thread::join() noexcept {
  if (thread_) ::pthread_join(*std::exchange(thread_, std::nullopt), nullptr);
}

}  // namespace molvane
