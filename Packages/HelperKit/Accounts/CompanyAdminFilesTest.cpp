#include "HelperKit/Accounts/CompanyAdminFiles.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "Platform/testing/FileSizeLimit.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using Trust = CompanyAdminFiles::Trust;

const CompanyAdminState kState{"itadmin", "s3cret", Date::fromUnixSeconds(1'800'000'000)};
const CompanyAdminState kOther{"itadmin", "0ther", Date::fromUnixSeconds(1'800'000'001)};

class CompanyAdminFilesTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path(const std::string& name = "company-admin.json") const {
    return folder_ + "/" + name;
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }
  void put(const std::string& bytes, mode_t mode = 0600) const {
    fs::remove_all(path());
    std::ofstream(path()) << bytes;
    ::chmod(path().c_str(), mode);
  }
  [[nodiscard]] std::string content(const std::string& name = "company-admin.json") const {
    std::ifstream file(path(name));
    return {std::istreambuf_iterator<char>(file), {}};
  }

  TemporaryFolder temporary_;
  const std::string folder_ = temporary_.path() + "/above/com.molvane.helper";
  const CompanyAdminFiles files_{folder_};
};

TEST_F(CompanyAdminFilesTest, KeepsStateAndPendingApart) {
  EXPECT_EQ(files_.state().trust, Trust::absent);
  EXPECT_FALSE(fs::exists(temporary_.path() + "/above")) << "made before it was needed";
  files_.saveState(kState);
  files_.savePending(kOther);
  EXPECT_EQ(files_.state().trust, Trust::believed);
  EXPECT_EQ(files_.state().state, kState);
  EXPECT_EQ(files_.pending().state, kOther);
  EXPECT_EQ(content(), R"({"name":"itadmin","password":"s3cret","rotatedAt":"2027-01-15T08:00:00Z"})");
  files_.removePending();
  files_.removePending();
  EXPECT_EQ(files_.pending().trust, Trust::absent);
  files_.removeState();
  EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(CompanyAdminFilesTest, IsClosedToOthersWhateverItWasBefore) {
  const mode_t mask = ::umask(0);
  files_.saveState(kState);
  EXPECT_EQ(modeOf(path()), 0600U);
  EXPECT_EQ(modeOf(temporary_.path() + "/above"), 0700U);
  ::chmod(folder_.c_str(), 0755);
  ::chmod(path().c_str(), 0644);
  fs::create_hard_link(path(), path("other-name"));
  // What others could only read is believed, and they can no longer.
  EXPECT_EQ(files_.state().state, kState);
  EXPECT_EQ(modeOf(path()), 0600U);
  EXPECT_EQ(modeOf(path("other-name")), 0644U) << "the mode of somebody's file was changed";
  files_.saveState(kOther);
  EXPECT_EQ(modeOf(folder_), 0700U);
  EXPECT_EQ(modeOf(path()), 0600U);
  ::umask(mask);
}

// The doubt outlives the wide mode, until the file is saved anew.
TEST_F(CompanyAdminFilesTest, DoubtsWhatOthersCouldChange) {
  files_.saveState(kState);
  for (const mode_t mode : {0620, 0602, 0666, 0777}) {
    put(R"({"name":"itadmin","password":"0ther","rotatedAt":"2027-01-15T08:00:01Z"})", mode);
    ::chmod(folder_.c_str(), 0777);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(files_.state().trust, Trust::doubted) << std::oct << mode;
      EXPECT_EQ(files_.state().state, kOther);
      EXPECT_EQ(modeOf(path()), 0400U);
      EXPECT_EQ(modeOf(folder_), 0700U);
    }
  }
  files_.saveState(kOther);
  EXPECT_EQ(files_.state().trust, Trust::believed);
  EXPECT_EQ(modeOf(path()), 0600U);
  EXPECT_FALSE(fs::exists(path("company-admin.json.broken"))) << "a copy of a password that is believed";
  ::chmod(path().c_str(), 0666);
  files_.saveState(kState);
  EXPECT_EQ(modeOf(path("company-admin.json.broken")), 0400U);
}

TEST_F(CompanyAdminFilesTest, BelievesNothingThatSomebodyElseMayHaveWritten) {
  files_.saveState(kState);
  const std::string good = content();
  const auto expectSetAside = [&](const char* what) {
    EXPECT_EQ(files_.state().trust, Trust::notBelieved) << what;
    files_.saveState(kOther);
    EXPECT_EQ(files_.state().state, kOther) << what;
    EXPECT_TRUE(fs::exists(fs::symlink_status(path("company-admin.json.broken")))) << what;
    fs::remove_all(path("company-admin.json.broken"));
  };
  for (const std::string& broken : {good.substr(0, 40), std::string(), std::string("null"), "\xFF" + good,
                                    std::string(100'000, ' ') + good}) {
    put(broken);
    expectSetAside("content");
  }
  fs::remove(path());
  std::ofstream(path("elsewhere")) << good;
  fs::create_symlink(path("elsewhere"), path());
  expectSetAside("link");
  EXPECT_EQ(content("elsewhere"), good);
  fs::remove(path());
  fs::create_directory(path());
  expectSetAside("folder");
  fs::remove(path());
  ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  expectSetAside("pipe");
  if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
  put(good);
  ASSERT_EQ(::chown(path().c_str(), 501, 20), 0);
  expectSetAside("owner");
}

TEST_F(CompanyAdminFilesTest, TrustsNoFolderOfSomebodyElse) {
  files_.saveState(kState);
  fs::rename(folder_, temporary_.path() + "/moved");
  fs::create_directory_symlink(temporary_.path() + "/moved", folder_);
  EXPECT_EQ(files_.state().trust, Trust::notBelieved);
  EXPECT_THROW(files_.saveState(kOther), std::system_error);
  fs::remove(folder_);
  if (::geteuid() != 0) GTEST_SKIP() << "giving folders away needs root";
  fs::rename(temporary_.path() + "/moved", folder_);
  ASSERT_EQ(::chown(folder_.c_str(), 501, 20), 0);
  EXPECT_EQ(files_.state().trust, Trust::notBelieved);
  EXPECT_THROW(files_.saveState(kOther), std::system_error);
  files_.removeState();
  EXPECT_TRUE(fs::exists(path()));
}

TEST_F(CompanyAdminFilesTest, IsNeverTorn) {
  files_.saveState(kState);
  {
    const testing::FileSizeLimit full(20);
    EXPECT_THROW(files_.saveState(kOther), std::system_error);
  }
  CompanyAdminState undated = kOther;
  undated.rotatedAt = Date::fromUnixSeconds(1e15);
  EXPECT_THROW(files_.saveState(undated), std::out_of_range);
  EXPECT_EQ(files_.state().state, kState);
  // As a helper that is killed leaves them.
  std::ofstream(path(".company-admin.json.abcdefghij23")) << "half";
  std::ofstream(path(".company-admin.pending.json.abcdefghij23")) << "half";
  files_.clearUp();
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 1);
}

}  // namespace
}  // namespace molvane
