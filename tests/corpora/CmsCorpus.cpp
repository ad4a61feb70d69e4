#include <gtest/gtest.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Corpora.hpp"
#include "Platform/linux/CmsMessage.hpp"

namespace molvane::corpora {
namespace {

// The content of a message that is accepted.
std::optional<std::string> accepted(const std::string& message, const TrustAnchors& anchors,
                                    const std::optional<std::string>& detachedContent) {
  try {
    return verifyCms(message, anchors, std::time(nullptr), detachedContent).content;
  } catch (const CmsError&) {
    return std::nullopt;
  }
}

TEST(Corpora, SignedMessages) {
  MOLVANE_NEEDS_CORPORA();
  const std::string files = folder() + "/cms/";
  Tally tally;
  for (const auto& entry : nlohmann::json::parse(contentOf(files + "manifest.json"))) {
    const auto name = entry.at("file").get<std::string>();
    const auto trust = entry.at("trust").get<std::string>();
    const auto contentName = entry.at("content").get<std::string>();
    SCOPED_TRACE(name);

    // Where nobody here trusts the signers, any root does.
    const TrustAnchors anchors(contentOf(files + (trust.empty() ? "matrix/root.pem" : trust)));
    std::optional<std::string> detachedContent;
    if (!contentName.empty()) detachedContent = contentOf(files + contentName);
    const auto content = accepted(contentOf(files + name), anchors, detachedContent);

    const Verdict verdict = verdictNamed(entry.at("verdict").get<std::string>());
    tally.note(name, trust.empty() ? Verdict::refuse : verdict, content.has_value());
    if (content) {
      EXPECT_EQ(*content, detachedContent.value_or(*content));
      EXPECT_FALSE(content->empty());
    }
  }
  tally.report();
}

}  // namespace
}  // namespace molvane::corpora
