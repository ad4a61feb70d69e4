#include "Platform/CodeRequirement.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "Base/Ascii.hpp"

namespace molvane {

namespace {

// Chains are shorter than this; a larger number in a requirement is a mistake.
constexpr std::size_t kMaxPosition = 15;

constexpr std::string_view kVendorLeaf = "Software Signing";
constexpr std::string_view kVendorIntermediate = "Apple Code Signing Certification Authority";

bool isBare(char c) { return isAsciiLetter(c) || isAsciiDigit(c) || c == '.'; }
bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool isKeyword(std::string_view word) {
  constexpr std::array<std::string_view, 22> kKeywords = {
      "always",      "anchor",  "and",   "apple",   "cdhash", "cert",   "certificate", "designated",
      "entitlement", "exists",  "false", "generic", "guest",  "host",   "identifier",  "info",
      "leaf",        "library", "or",    "root",    "true",   "trusted"};
  return std::find(kKeywords.begin(), kKeywords.end(), word) != kKeywords.end();
}

bool isObjectIdentifier(std::string_view text) {
  std::size_t arcs = 0;
  while (true) {
    const std::size_t digits = std::min(text.find('.'), text.size());
    const std::string_view arc = text.substr(0, digits);
    if (arc.empty() || !std::all_of(arc.begin(), arc.end(), isAsciiDigit)) return false;
    if (arc.size() > 1 && arc.front() == '0') return false;
    ++arcs;
    if (digits == text.size()) return arcs >= 2;
    text.remove_prefix(digits + 1);
  }
}

struct Token {
  enum class Kind { end, bare, quoted, punctuation };
  Kind kind = Kind::end;
  std::string text;
};

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) { advance(); }

  std::vector<CodeRequirement::Clause> parse() {
    std::vector<CodeRequirement::Clause> clauses;
    do {
      const std::size_t begin = tokenBegin_;
      CodeRequirement::Condition condition = parseCondition();
      clauses.push_back({std::move(condition), std::string(text_.substr(begin, previousEnd_ - begin))});
    } while (takeWord("and"));
    if (token_.kind != Token::Kind::end) fail("a clause that is not understood");
    return clauses;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw CodeRequirementError("code requirement: " + what + " at byte " + std::to_string(tokenBegin_));
  }

  // Makes the next token the current one.
  void advance() {
    previousEnd_ = position_;
    while (position_ < text_.size() && isSpace(text_[position_])) ++position_;
    tokenBegin_ = position_;
    if (position_ == text_.size()) {
      token_ = {};
    } else if (text_[position_] == '"') {
      token_ = {Token::Kind::quoted, readQuoted()};
    } else if (isBare(text_[position_])) {
      while (position_ < text_.size() && isBare(text_[position_])) ++position_;
      token_ = {Token::Kind::bare, std::string(text_.substr(tokenBegin_, position_ - tokenBegin_))};
    } else if (text_[position_] == '[' || text_[position_] == ']' || text_[position_] == '=') {
      token_ = {Token::Kind::punctuation, std::string(1, text_[position_++])};
    } else {
      fail("an unexpected character");
    }
  }

  std::string readQuoted() {
    std::string value;
    for (++position_; position_ < text_.size(); ++position_) {
      char c = text_[position_];
      if (c == '"') {
        ++position_;
        return value;
      }
      if (c == '\\') {
        if (++position_ == text_.size()) break;
        c = text_[position_];
      }
      if (c == '\0') fail("a zero byte");
      value += c;
    }
    fail("a text without its closing quote");
  }

  bool take(Token::Kind kind, std::string_view text) {
    if (token_.kind != kind || token_.text != text) return false;
    advance();
    return true;
  }
  bool takeWord(std::string_view word) { return take(Token::Kind::bare, word); }
  void expectPunctuation(std::string_view mark) {
    if (!take(Token::Kind::punctuation, mark)) fail("a missing " + std::string(mark));
  }

  CodeRequirement::Condition parseCondition() {
    if (takeWord("anchor")) return parseAnchor();
    if (takeWord("identifier")) return CodeRequirement::Identifier{parseText()};
    if (takeWord("certificate")) return parseCertificate();
    fail("a clause that is not understood");
  }

  CodeRequirement::Condition parseAnchor() {
    if (!takeWord("apple")) fail("an anchor that is not understood");
    return CodeRequirement::Anchor{!takeWord("generic")};
  }

  CodeRequirement::Condition parseCertificate() {
    const CodeRequirement::Position position = parsePosition();
    expectPunctuation("[");
    if (token_.kind != Token::Kind::bare) fail("a missing key");
    const std::string key = token_.text;
    advance();
    expectPunctuation("]");

    constexpr std::string_view kField = "field.";
    if (key.rfind(kField, 0) == 0 && isObjectIdentifier(std::string_view(key).substr(kField.size()))) {
      return CodeRequirement::Field{position, key.substr(kField.size())};
    }
    const auto subjectKey = subjectKeyNamed(key);
    expectPunctuation("=");
    return CodeRequirement::Subject{position, subjectKey, parseText()};
  }

  CodeRequirement::Position parsePosition() {
    if (takeWord("leaf")) return 0;
    if (takeWord("root")) return CodeRequirement::kRoot;
    const std::string& digits = token_.text;
    if (token_.kind != Token::Kind::bare || digits.size() > 2 ||
        !std::all_of(digits.begin(), digits.end(), isAsciiDigit)) {
      fail("a certificate position that is not understood");
    }
    const auto position = static_cast<std::size_t>(std::stoi(digits));
    if (position > kMaxPosition) fail("a certificate position that is too large");
    advance();
    return position;
  }

  std::vector<std::string> CertificateFacts::*subjectKeyNamed(std::string_view key) const {
    if (key == "subject.CN") return &CertificateFacts::commonNames;
    if (key == "subject.O") return &CertificateFacts::organizations;
    if (key == "subject.OU") return &CertificateFacts::organizationalUnits;
    fail("a key that is not understood");
  }

  std::string parseText() {
    const bool bareText =
        token_.kind == Token::Kind::bare && isAsciiLetter(token_.text.front()) && !isKeyword(token_.text);
    if (token_.kind != Token::Kind::quoted && !bareText) fail("a missing text");
    std::string value = token_.text;
    advance();
    return value;
  }

  std::string_view text_;
  std::size_t position_ = 0;     // behind the current token
  std::size_t tokenBegin_ = 0;   // of the current token
  std::size_t previousEnd_ = 0;  // behind the token before it
  Token token_;
};

const CertificateFacts* certificateAt(const CodeFacts& code, CodeRequirement::Position position) {
  if (position == CodeRequirement::kRoot) return code.chain.empty() ? nullptr : &code.chain.back();
  return position < code.chain.size() ? &code.chain[position] : nullptr;
}

// Two names of one kind leave open which of them counts, so they match nothing.
bool isOnly(const std::vector<std::string>& names, std::string_view name) {
  return names.size() == 1 && names.front() == name;
}

struct Evaluator {
  const CodeFacts& code;

  bool operator()(const CodeRequirement::Anchor& anchor) const {
    if (!anchor.vendorsOwn) return !code.chain.empty();
    return code.chain.size() == 3 && isOnly(code.chain[0].commonNames, kVendorLeaf) &&
           isOnly(code.chain[1].commonNames, kVendorIntermediate);
  }
  bool operator()(const CodeRequirement::Identifier& identifier) const {
    return code.identifier == identifier.value;
  }
  bool operator()(const CodeRequirement::Field& field) const {
    const CertificateFacts* certificate = certificateAt(code, field.position);
    if (certificate == nullptr) return false;
    const std::vector<std::string>& extensions = certificate->extensions;
    return std::find(extensions.begin(), extensions.end(), field.oid) != extensions.end();
  }
  bool operator()(const CodeRequirement::Subject& subject) const {
    const CertificateFacts* certificate = certificateAt(code, subject.position);
    return certificate != nullptr && isOnly(certificate->*subject.key, subject.value);
  }
};

std::string_view withinBounds(std::string_view text) {
  if (text.size() > CodeRequirement::kMaxLength)
    throw CodeRequirementError("code requirement: the text is too long");
  return text;
}

}  // namespace

CodeRequirement::CodeRequirement(std::string_view text) : clauses_(Parser(withinBounds(text)).parse()) {}

std::string CodeRequirement::unsatisfiedClause(const CodeFacts& code) const {
  for (const Clause& clause : clauses_) {
    if (!std::visit(Evaluator{code}, clause.condition)) return clause.text;
  }
  return {};
}

}  // namespace molvane
