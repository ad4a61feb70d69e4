#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "molvanectl/Person.hpp"

namespace molvane::ctl {

/// A person who types what was laid down beforehand, and a clock that only waiting moves on.
struct FakePerson : Person {
  std::deque<std::string> typed;
  std::map<int, int> interruptsAtWait;  ///< number of interrupts that come in the nth wait, from 1
  int waits = 0;
  int interruptCount = 0;
  bool isCatching = false;
  Clock::time_point time{};

  std::optional<std::string> typedLine() override {
    if (typed.empty()) return std::nullopt;
    std::string line = std::move(typed.front());
    typed.pop_front();
    return line;
  }
  void catchInterrupts() override { isCatching = true; }
  int interrupts() const override { return interruptCount; }
  void wait(std::chrono::milliseconds duration) override {
    time += duration;
    if (const auto found = interruptsAtWait.find(++waits); found != interruptsAtWait.end()) {
      interruptCount += found->second;
    }
  }
  Clock::time_point now() const override { return time; }
};

}  // namespace molvane::ctl
