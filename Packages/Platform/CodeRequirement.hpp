#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace molvane {

/// What a requirement may ask about one certificate. Texts are UTF-8, in the order of the subject.
struct CertificateFacts {
  std::vector<std::string> commonNames;
  std::vector<std::string> organizations;
  std::vector<std::string> organizationalUnits;
  std::vector<std::string> extensions;  ///< object identifiers in dotted form
};

/// What a verified signature says about code: its identifier, and the signer's certificates from the leaf to
/// the trusted root. Whoever fills it in has verified the chain; a requirement only reads it.
struct CodeFacts {
  std::string identifier;
  std::vector<CertificateFacts> chain;
};

/// The text is no requirement that this parser understands.
class CodeRequirementError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A code-signing requirement: clauses that must all hold, joined by `and`.
///
/// The part of the platform's requirement language that is understood:
///
///     anchor apple generic                    the chain ends at the trusted root
///     anchor apple                            and besides, the code is the platform vendor's own
///     identifier TEXT                         the code's identifier, byte for byte
///     certificate POSITION[field.OID]         the certificate has an extension of that identifier
///     certificate POSITION[subject.KEY] = TEXT    its subject has exactly one CN, O or OU, and it is TEXT
///
/// POSITION is `leaf`, `root`, or a number counted from the leaf, which is 0. TEXT stands between double
/// quotes, where a backslash takes the next character as it is, or bare when it is letters, digits and
/// periods, begins with a letter and is no keyword. Everything else, such as `or`, `!`, hashes and comments,
/// is refused.
class CodeRequirement {
 public:
  static constexpr std::size_t kMaxLength = 4096;  ///< bytes of text

  /// Throws CodeRequirementError for a text that is empty, too long, malformed or has a clause that is not
  /// understood.
  explicit CodeRequirement(std::string_view text);

  /// The first clause that `code` does not satisfy, as it was written; empty when it satisfies all.
  [[nodiscard]] std::string unsatisfiedClause(const CodeFacts& code) const;

  struct Anchor {
    bool vendorsOwn;  ///< `anchor apple`, not `anchor apple generic`
  };
  struct Identifier {
    std::string value;
  };
  /// Counts from the leaf; kRoot is the last certificate, wherever that is.
  using Position = std::size_t;
  static constexpr Position kRoot = static_cast<Position>(-1);
  struct Field {
    Position position;
    std::string oid;
  };
  struct Subject {
    Position position;
    std::vector<std::string> CertificateFacts::*key;
    std::string value;
  };
  using Condition = std::variant<Anchor, Identifier, Field, Subject>;
  struct Clause {
    Condition condition;
    std::string text;
  };

 private:
  std::vector<Clause> clauses_;
};

}  // namespace molvane
