#include "Core/PathAllowlist.hpp"

#include <gtest/gtest.h>

namespace molvane {
namespace {

TEST(PathAllowlistTest, HoldsRootsAndWhatLiesBelowThem) {
  const PathAllowlist list({"/nowhere/home//Library/Caches/", "/nowhere/home/Library/Logs"});
  EXPECT_EQ(list.allowedPrefixes(),
            (std::vector<std::string>{"/nowhere/home/Library/Caches", "/nowhere/home/Library/Logs"}));

  EXPECT_EQ(list.rootContaining("/nowhere/home/Library/Caches//x/./y/"), "/nowhere/home/Library/Caches");
  EXPECT_EQ(list.rootContaining("/nowhere/home/Library/Logs/"), "/nowhere/home/Library/Logs");
  for (const char* outside :
       {"", "/", "//", "/nowhere/home/Library", "/nowhere/home/Library/CachesOld/a",
        "/nowhere/home/Library/Caches/../Preferences/a", "nowhere/home/Library/Caches/a",
        "/nowhere/home/library/caches/a", "/nowhere/home/Library/Caches\n"}) {
    EXPECT_FALSE(list.allows(outside)) << outside;
  }
}

TEST(PathAllowlistTest, TheRootFolderAllowsEverythingButItself) {
  const PathAllowlist list({"/"});
  EXPECT_TRUE(list.allows("/anything/at/all"));
  EXPECT_FALSE(list.allows("/"));
  EXPECT_FALSE(list.allows("relative"));
}

TEST(PathAllowlistTest, TheErrorCarriesThePathAsItCame) {
  const PathAllowlist list({"/nowhere/root"});
  list.assertAllowed("/nowhere/root/../root/a");
  try {
    list.assertAllowed("/elsewhere/./x/");
    FAIL() << "not refused";
  } catch (const PathAllowlistError& error) {
    EXPECT_EQ(error.payload(), "/elsewhere/./x/");
    EXPECT_EQ(error.errorDescription(), "Path not allowed: /elsewhere/./x/");
  }
}

}  // namespace
}  // namespace molvane
