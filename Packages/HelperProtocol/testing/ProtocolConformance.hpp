#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "HelperProtocol/testing/RecordingHelper.hpp"

namespace molvane::testing {

/// A way from a caller to the object that answers.
class Carrier {
 public:
  virtual ~Carrier() = default;
  /// The object at the far end.
  virtual RecordingHelper& helper() = 0;
  /// What the caller calls.
  virtual MolvaneHelperXPCProtocol& nearEnd() = 0;
  /// What becomes of any text on the way.
  virtual std::string carried(const std::string& text) = 0;
};

struct Transport {
  std::string name;
  std::function<std::unique_ptr<Carrier>()> make;
};

/// What every way to the helper must do with every method. Instantiate it with the ways that there are.
class ProtocolConformance : public ::testing::TestWithParam<Transport> {
 protected:
  std::unique_ptr<Carrier> carrier_ = GetParam().make();
};

}  // namespace molvane::testing
