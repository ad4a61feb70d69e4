#include "Platform/SecureRandom.hpp"

#include <gtest/gtest.h>

#include <set>

namespace molvane {
namespace {

TEST(SecureRandom, FillsEveryByteOfAnyLength) {
  for (const std::size_t count : {0U, 1U, 255U, 256U, 257U, 100'000U}) {
    EXPECT_EQ(secureRandomBytes(count).size(), count);
  }
  // That a value out of 256 is missing among 100 000 bytes has a probability below 10^-160.
  const std::vector<std::uint8_t> bytes = secureRandomBytes(100'000);
  EXPECT_EQ(std::set<std::uint8_t>(bytes.begin(), bytes.end()).size(), 256U);
  EXPECT_EQ(std::set<std::uint8_t>(bytes.end() - 10'000, bytes.end()).size(), 256U)
      << "the end is filled too";
}

}  // namespace
}  // namespace molvane
