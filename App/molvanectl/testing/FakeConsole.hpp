#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "molvanectl/Console.hpp"

namespace molvane::ctl {

/// A console whose time passes only when it is waited for, and whose person follows a script.
class FakeConsole : public Console {
 public:
  bool hasPerson = false;
  bool canRedraw = true;
  std::deque<std::string> typed;  ///< lines of standard input
  std::size_t width = 80;
  std::set<int> interruptedWaits;    ///< by number, from 1 on
  std::function<void()> beforeWait;  ///< called at each
  int waits = 0;

  bool inIsTerminal() override { return hasPerson; }
  std::optional<std::string> readLine() override {
    if (typed.empty()) return std::nullopt;
    std::string line = std::move(typed.front());
    typed.pop_front();
    return line;
  }
  bool redraws() override { return canRedraw; }
  std::size_t columns() override { return width; }
  std::unique_ptr<Waiter> makeWaiter() override { return std::make_unique<ManualWaiter>(*this); }

 private:
  class ManualWaiter : public Waiter {
   public:
    explicit ManualWaiter(FakeConsole& console) : console_(console) {}
    Time now() override { return now_; }
    bool wait(std::chrono::milliseconds longest) override {
      if (++console_.waits > 10000) throw std::logic_error("waits for ever");
      if (console_.beforeWait) console_.beforeWait();
      if (console_.interruptedWaits.count(console_.waits) > 0) return true;
      now_ += longest;
      return false;
    }

   private:
    FakeConsole& console_;
    Time now_{std::chrono::hours(1)};
  };
};

}  // namespace molvane::ctl
