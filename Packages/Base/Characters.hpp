#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Text rules that need the Unicode database. Texts are UTF-8; bytes that are no UTF-8 count as U+FFFD. All
// functions may be called from any thread. They throw std::runtime_error when the Unicode library is missing
// or cannot do its work.
//
// The library is loaded by the first call that needs it. characterCount, lowercased, canonicallyEqual and
// canonicalForm do not need it for ASCII.

namespace molvane {

/// How many characters a person sees: extended grapheme clusters. CR LF is one.
[[nodiscard]] std::size_t characterCount(std::string_view text);

/// The characters of `text`, in order, each as the bytes of its grapheme cluster. The views point into
/// `text`.
[[nodiscard]] std::vector<std::string_view> characters(std::string_view text);

/// `text` in lower case, scalar by scalar and in no language's manner: neither a final sigma nor a Turkish I
/// is special.
[[nodiscard]] std::string lowercased(std::string_view text);

/// Whether both texts are the same characters, however their accents are composed.
[[nodiscard]] bool canonicallyEqual(std::string_view a, std::string_view b);

/// A form that texts share exactly when they are canonically equal; for sets and hashes. ASCII comes back as
/// it is.
[[nodiscard]] std::string canonicalForm(std::string_view text);

/// `text` with the distinctions of case and of accents taken away: full case folding (“ß” gives “ss”),
/// decomposed, without nonspacing marks. Letters that do not decompose (“ø”, “ł”, “æ”) stay. For comparing,
/// not for showing.
[[nodiscard]] std::string foldingCaseAndDiacritics(std::string_view text);

}  // namespace molvane
