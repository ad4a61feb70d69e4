#pragma once

#include <exception>
#include <string>
#include <utility>

namespace molvane {

/// A thrown refusal: one case of an enumeration together with what the case carries.
///
/// `Case` is the enumeration. Beside it stands, found by argument-dependent lookup,
/// `std::string describe(Case, const Payload&)`, which gives the sentence for the person. Two errors are
/// equal when case and payload are.
template <typename Case, typename Payload = std::string>
class CaseError : public std::exception {
 public:
  CaseError(Case which, Payload payload)
      : which_(which), payload_(std::move(payload)), description_(describe(which_, payload_)) {}

  [[nodiscard]] Case which() const noexcept { return which_; }
  [[nodiscard]] const Payload& payload() const noexcept { return payload_; }

  /// The sentence for the person.
  [[nodiscard]] const std::string& errorDescription() const noexcept { return description_; }
  [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

  friend bool operator==(const CaseError& a, const CaseError& b) {
    return a.which_ == b.which_ && a.payload_ == b.payload_;
  }

 private:
  Case which_;
  Payload payload_;
  std::string description_;
};

}  // namespace molvane
