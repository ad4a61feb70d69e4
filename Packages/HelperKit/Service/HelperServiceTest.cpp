#include "HelperKit/Service/HelperService.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "HelperKit/Devices/DeviceJobRunner.hpp"
#include "HelperKit/Service/HelperPathPolicy.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"
#include "HelperKit/Service/PeerScopedHelper.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

const std::string kDomain = "com.molvane.helper";

// Everything below goes through the wrapper that a connection exports.
class HelperServiceTest : public ::testing::Test {
 protected:
  HelperServiceTest() {
    for (const char* folder : {"root", "outside"}) fs::create_directory(scratch_.path() + "/" + folder);
  }

  [[nodiscard]] std::string root() const { return scratch_.path() + "/root"; }
  [[nodiscard]] std::string outside() const { return scratch_.path() + "/outside"; }

  static void write(const std::string& path, std::size_t bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << std::string(bytes, 'x');
  }

  OptionalError remove(const std::string& path) {
    bool ok = false;
    OptionalError error;
    int replies = 0;
    helper().removeAllowedItem(path, [&](bool succeeded, const OptionalError& failure) {
      ok = succeeded;
      error = failure;
      ++replies;
    });
    EXPECT_EQ(replies, 1);
    EXPECT_EQ(ok, !error.has_value());
    return error;
  }

  // The size, or the error where there is one.
  std::pair<std::int64_t, OptionalError> size(const std::string& path) {
    std::pair<std::int64_t, OptionalError> answer{0, std::nullopt};
    int replies = 0;
    helper().sizeOfAllowedDirectory(path, [&](std::int64_t bytes, const OptionalError& failure) {
      answer = {bytes, failure};
      ++replies;
    });
    EXPECT_EQ(replies, 1);
    EXPECT_EQ(answer.first == -1, answer.second.has_value());
    return answer;
  }

  MolvaneHelperXPCProtocol& helper() { return *helper_; }

  TemporaryFolder scratch_;
  std::shared_ptr<MolvaneHelperXPCProtocol> helper_ = std::make_shared<PeerScopedHelper>(
      std::make_shared<HelperService>(HelperPathPolicy::fixtureAllowlist(scratch_.path() + "/root"),
                                      HelperPathPolicy::defaultDeniedBasenames(),
                                      std::make_unique<DeviceJobRunner>([] { return DevicePolicy(); }),
                                      std::make_unique<CompanyAdminKeeper>(scratch_.path() + "/state")),
      501);
};

NSError error(std::int64_t code, const std::string& description) { return {kDomain, code, description}; }

TEST_F(HelperServiceTest, AnAccountRefusalIsATextAndAMalformedRequestAnError) {
  using Answer = std::tuple<std::optional<Data>, std::optional<std::string>, OptionalError>;
  const auto manage = [&](const std::string& document) {
    std::vector<Answer> answers;
    helper().manageLocalAccount({document.begin(), document.end()},
                                [&](auto... values) { answers.emplace_back(values...); });
    EXPECT_EQ(answers.size(), 1U);
    return answers.at(0);
  };
  // Nothing here can be allowed on any machine.
  EXPECT_EQ(manage(R"({"delete":{"name":"no such account"}})"),
            Answer(std::nullopt, "not-found", std::nullopt));
  EXPECT_EQ(manage(R"({"create":{"name":"root","fullName":"R","password":"12345678","admin":true,)"
                   R"("mustChange":false}})"),
            Answer(std::nullopt, "invalid-name", std::nullopt));
  for (const char* malformed : {"", "{}", R"({"delete":{}})", R"({"rename":{"name":"ann"}})"}) {
    EXPECT_EQ(manage(malformed), Answer(std::nullopt, "", error(7, "Bad device job: account"))) << malformed;
  }
}

TEST_F(HelperServiceTest, RefusesWithTheSentenceOfTheFirstCheckThatFails) {
  write(root() + "/a/CloudKit/file", 1);
  write(root() + "/CloudKitX", 1);
  write(outside() + "/file", 1);

  const std::pair<std::string, NSError> refused[] = {
      {outside() + "/file", error(1, "Path not allowed: " + outside() + "/file")},
      {root() + "/../outside/file", error(1, "Path not allowed: " + outside() + "/file")},
      {root() + "Old/a", error(1, "Path not allowed: " + root() + "Old/a")},
      {"", error(1, "Path not allowed: ")},
      {"/", error(1, "Path not allowed: /")},
      {"root/a", error(1, "Path not allowed: root/a")},
      {root() + "/a//CloudKit/", error(3, "Refusing to delete denied item: CloudKit")},
      {root() + "/none/com.apple.Safari", error(3, "Refusing to delete denied item: com.apple.Safari")},
      {root() + "/./none/", error(4, "Path not found: " + root() + "/none")},
      {root() + "/CloudKitX/below", error(4, "Path not found: " + root() + "/CloudKitX/below")},
  };
  for (const auto& [path, expected] : refused) {
    EXPECT_EQ(remove(path), expected) << path;
    EXPECT_EQ(size(path).second, expected) << path;
  }
  for (const std::string& path : {root(), root() + "/", root() + "//./"}) {
    EXPECT_EQ(remove(path), error(2, "Refusing to delete allowlist root: " + root()));
    EXPECT_EQ(size(path).second, std::nullopt);
  }
  EXPECT_TRUE(fs::exists(root() + "/a/CloudKit/file") && fs::exists(outside() + "/file"));
  EXPECT_EQ(remove(root() + "/CloudKitX"), std::nullopt);
}

TEST_F(HelperServiceTest, RemovesFilesTreesAndLinksButNothingBehindLinks) {
  write(outside() + "/kept/file", 1);
  write(root() + "/tree/deep/er/file", 1);
  write(root() + "/file", 1);
  fs::create_directory_symlink(outside() + "/kept", root() + "/tree/link");
  fs::create_directory_symlink(outside() + "/kept", root() + "/link");
  fs::create_symlink(outside() + "/missing", root() + "/dangling");

  EXPECT_EQ(remove(root() + "/dangling"), error(4, "Path not found: " + root() + "/dangling"));
  EXPECT_EQ(remove(root() + "/link/file"), error(1, "Path not allowed: " + root() + "/link/file"));
  EXPECT_EQ(size(root() + "/link/file").second, error(1, "Path not allowed: " + root() + "/link/file"));

  EXPECT_EQ(remove(root() + "//tree/./"), std::nullopt);
  EXPECT_EQ(remove(root() + "/link"), std::nullopt);
  EXPECT_EQ(remove(root() + "/file"), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(root() + "/dangling"));
  EXPECT_TRUE(fs::exists(outside() + "/kept/file"));
  EXPECT_EQ(std::distance(fs::directory_iterator(root()), {}), 1);
}

TEST_F(HelperServiceTest, MeasuresTheRegularFilesThatAreSeen) {
  write(root() + "/a/one", 100);
  write(root() + "/a/b/two", 20);
  write(root() + "/a/.hidden/file", 1'000);
  write(root() + "/a/.file", 1'000);
  write(root() + "/a/Game.app/Contents/MacOS/Game", 1'000);
  fs::create_symlink(root() + "/a/one", root() + "/a/link");
  fs::create_directory_symlink(root() + "/a", root() + "/folder-link");
  ASSERT_EQ(mkfifo((root() + "/a/fifo").c_str(), 0600), 0);

  EXPECT_EQ(size(root() + "/a").first, 120);
  EXPECT_EQ(size(root()).first, 120);
  EXPECT_EQ(size(root() + "/a/one").first, 100);
  EXPECT_EQ(size(root() + "/a/.file").first, 1'000);
  // A link is measured as the link that it is, wherever it leads.
  EXPECT_EQ(size(root() + "/a/link").first, static_cast<std::int64_t>((root() + "/a/one").size()));
  EXPECT_EQ(size(root() + "/folder-link").first, 0);
}

TEST_F(HelperServiceTest, FindsNothingWhereNothingCanBe) {
  write(root() + "/file", 1);
  const std::string tooLong(300, 'x');
  fs::create_symlink("file/below", root() + "/through-file");
  fs::create_symlink(tooLong, root() + "/to-too-long");
  fs::create_symlink("circle", root() + "/circle");
  for (const std::string& name :
       {std::string("file/below"), tooLong, tooLong + "/below", std::string("through-file"),
        std::string("to-too-long"), std::string("circle")}) {
    const std::string path = root() + "/" + name;
    EXPECT_EQ(size(path).second, error(4, "Path not found: " + path));
    EXPECT_EQ(remove(path), error(4, "Path not found: " + path));
  }
}

// The roots are where people's programs put things; nobody has to have made them.
TEST_F(HelperServiceTest, RootMayBeMissingOrNoFolder) {
  fs::remove(root());
  EXPECT_EQ(size(root()).second, error(4, "Path not found: " + root()));
  EXPECT_EQ(size(root() + "/item").second, error(4, "Path not found: " + root() + "/item"));
  EXPECT_EQ(remove(root()), error(2, "Refusing to delete allowlist root: " + root()));
  write(root(), 7);
  EXPECT_EQ(size(root()).first, 7);
}

// What is measured becomes a link, a file or nothing between being looked at and being opened.
TEST_F(HelperServiceTest, MeasuringWhatIsSwappedAnswersASizeOrARefusal) {
  write(outside() + "/secret", 1'000);
  write(root() + "/item/file", 10);
  fs::create_directory_symlink(outside(), root() + "/other");
  std::atomic<bool> stop = false;
  std::thread attacker([&] {
    const std::string item = root() + "/item";
    const std::string other = root() + "/other";
    while (!stop) renameat2(AT_FDCWD, item.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
  });
  for (int i = 0; i < 5'000; ++i) {
    const auto [bytes, failure] = size(root() + "/item");
    EXPECT_TRUE(bytes == 10 || bytes == 0)
        << bytes << ' ' << failure.value_or(NSError{}).localizedDescription;
  }
  stop = true;
  attacker.join();
}

TEST_F(HelperServiceTest, TwoRemovalsOfOneItemEndInOneSuccess) {
  for (int round = 0; round < 50; ++round) {
    for (int i = 0; i < 20; ++i) write(root() + "/tree/" + std::to_string(i) + "/file", 1);
    OptionalError other;
    std::thread rival([&] { other = remove(root() + "/tree"); });
    const OptionalError mine = remove(root() + "/tree");
    rival.join();
    EXPECT_TRUE(!mine || !other);
    EXPECT_FALSE(fs::exists(root() + "/tree"));
  }
}

// While a folder on the way is swapped for a link and back, the item behind the link must survive.
TEST_F(HelperServiceTest, ASwappedFolderNeverLeadsOutside) {
  write(outside() + "/victim/file", 1);
  fs::create_directory(root() + "/way");
  fs::create_directory_symlink(outside(), root() + "/link");
  std::atomic<bool> stop = false;
  std::thread attacker([&] {
    const std::string way = root() + "/way";
    const std::string link = root() + "/link";
    while (!stop) {
      // Exchanging the two names is atomic, so `way` is always one or the other.
      renameat2(AT_FDCWD, way.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
    }
  });
  int refusedAsLink = 0;
  for (int i = 0; i < 2'000; ++i) {
    const OptionalError refused = remove(root() + "/way/victim");
    ASSERT_TRUE(refused.has_value());
    refusedAsLink += refused->code == 1 ? 1 : 0;
  }
  stop = true;
  attacker.join();
  EXPECT_GT(refusedAsLink, 0);
  EXPECT_TRUE(fs::exists(outside() + "/victim/file"));
}

TEST_F(HelperServiceTest, RunsOnlyTheCatalogueTasksThatNeedRoot) {
  const auto refusal = [&](const std::string& id) {
    OptionalError answer;
    helper().runMaintenanceTask(id, [&](bool ok, const std::string& message, const OptionalError& failure) {
      EXPECT_FALSE(ok);
      EXPECT_EQ(message, "");
      answer = failure;
    });
    return answer;
  };
  EXPECT_EQ(refusal("Flush-dns"), error(5, "Unknown maintenance task: Flush-dns"));
  EXPECT_EQ(refusal(" flush-dns"), error(5, "Unknown maintenance task:  flush-dns"));
  EXPECT_EQ(refusal("restart-dock"), error(6, "Task restart-dock does not need root; run it from the app."));
  EXPECT_EQ(HelperService::validateMaintenanceTask("purge-memory"), MaintenanceTask::purgeMemory);
}

TEST_F(HelperServiceTest, AnswersPongAndSaysWhatIsNotThere) {
  std::string pong;
  helper().ping([&](const std::string& text) { pong = text; });
  EXPECT_EQ(pong, "pong");

  OptionalError unknown;
  helper().deviceJobStatus("x", [&](const auto&, const OptionalError& failure) { unknown = failure; });
  EXPECT_EQ(unknown, error(8, "Unknown job: x"));
}

TEST_F(HelperServiceTest, AnswersForTheCompanyAdministrator) {
  const auto apply = [&](const std::string& document) {
    std::pair<std::string, OptionalError> answer;
    helper().applyCompanyAdmin(Data(document.begin(), document.end()),
                               [&](const std::optional<Data>& status, const OptionalError& failure) {
                                 if (status) answer.first.assign(status->begin(), status->end());
                                 answer.second = failure;
                               });
    return answer;
  };
  for (const std::string document : {"", "{}", "[]", R"({"enabled":true,"name":"itadmin"})"}) {
    EXPECT_EQ(apply(document).second, error(7, "Bad device job: company admin")) << document;
  }
  const CompanyAdminConfig refused{true, "root", "", 7, {}};
  const auto [status, failure] = apply(encodedJson(refused));
  EXPECT_EQ(failure, std::nullopt);
  EXPECT_EQ(decodedJson<CompanyAdminStatus>(status),
            (CompanyAdminStatus{refused, false, std::nullopt, "invalid-name"}));

  using Text = std::optional<std::string>;
  std::tuple<Text, Text, OptionalError> handedOut;
  const auto keep = [&](const Text& name, const Text& password, const OptionalError& without) {
    handedOut = {name, password, without};
  };
  helper().companyAdminPassword(keep);
  EXPECT_EQ(handedOut, std::make_tuple(Text(), Text(), OptionalError()));
  CompanyAdminFiles(scratch_.path() + "/state").saveState({"itadmin", "s3cret", {}});
  helper().companyAdminPassword(keep);
  EXPECT_EQ(handedOut, std::make_tuple(Text("itadmin"), Text("s3cret"), OptionalError()));
  CompanyAdminFiles(scratch_.path() + "/state").savePending({"itadmin", "other", {}});
  helper().companyAdminPassword(keep);
  EXPECT_EQ(std::get<0>(handedOut), std::nullopt);
  EXPECT_NE(std::get<2>(handedOut).value_or(NSError{}).localizedDescription.find("is not known: "),
            std::string::npos);
}

}  // namespace
}  // namespace molvane
