#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "HelperKit/Service/PeerScopedHelper.hpp"
#include "HelperProtocol/Connection.hpp"

namespace molvane::testing {

/// A connection that only remembers what the delegate made of it.
class FakeConnection final : public PeerConnection {
 public:
  explicit FakeConnection(std::uint32_t uid) : uid_(uid) {}

  [[nodiscard]] std::uint32_t effectiveUserIdentifier() const override { return uid_; }
  void setCodeSigningRequirement(std::string text) override { requirement = std::move(text); }
  void setExportedObject(std::shared_ptr<MolvaneHelperXPCProtocol> object) override {
    exported = std::dynamic_pointer_cast<PeerScopedHelper>(object);
  }
  void setInvalidationHandler(std::function<void()> handler) override { invalidate = std::move(handler); }
  void resume() override { resumed = requirement && exported && invalidate; }

  std::optional<std::string> requirement;
  std::shared_ptr<PeerScopedHelper> exported;
  std::function<void()> invalidate;
  bool resumed = false;

 private:
  const std::uint32_t uid_;
};

}  // namespace molvane::testing
