#include "Base/Sha256.hpp"

#include <gtest/gtest.h>

namespace molvane {
namespace {

TEST(Sha256, KnownAnswers) {  // FIPS 180-4 examples
  EXPECT_EQ(hexText(sha256("")), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(hexText(sha256("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hexText(sha256(std::string(1'000'000, 'a'))),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, PiecesGiveTheDigestOfTheWhole) {
  std::string whole;
  Sha256 pieces;
  for (std::size_t size = 0; size < 200; ++size) {
    const std::string piece(size, static_cast<char>(size));
    pieces.update(piece);
    whole += piece;
  }
  Sha256 moved = std::move(pieces);
  EXPECT_EQ(moved.finish(), sha256(whole));
}

}  // namespace
}  // namespace molvane
