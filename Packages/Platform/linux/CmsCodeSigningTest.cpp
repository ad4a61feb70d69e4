#include "Platform/linux/CmsCodeSigning.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "Platform/linux/testing/CodeSigningTools.hpp"

namespace molvane::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string signatureOf(const std::string& executable) {
  return executable + std::string(CmsCodeSigning::kSignatureSuffix);
}

class CmsCodeSigningTest : public ::testing::Test {
 protected:
  std::string problem(const std::string& path, std::string_view requirement = kAppRequirement) {
    return checker_->checkFile(path, requirement).problem;
  }

  SigningFolder folder_;
  std::unique_ptr<CmsCodeSigning> checker_ = folder_.checker();
};

TEST_F(CmsCodeSigningTest, TheAppSatisfiesItsRequirementAndTheVendorsToolItsOwn) {
  const std::string app = folder_.addApp();
  EXPECT_EQ(problem(app), "");
  EXPECT_THAT(problem(app, "anchor apple"), HasSubstr("anchor apple"));

  const std::string tool = folder_.addExecutable("createinstallmedia");
  Authority::shared().sign(tool, "com.apple.createinstallmedia", {"vendor"});
  EXPECT_EQ(problem(tool, "anchor apple"), "");
  EXPECT_EQ(problem(tool, "anchor apple and identifier com.apple.createinstallmedia"), "");
  EXPECT_THAT(problem(tool), HasSubstr("identifier"));
}

TEST_F(CmsCodeSigningTest, WhoSignedAndWhatForDecides) {
  struct Case {
    std::string leaf;
    std::string identifier;
    std::string problem;
  };
  const std::string app = "com.molvane.app";
  for (const Case& tried :
       {Case{"other-team", app, "certificate leaf[subject.OU] = \"MOLVANEDEV\""},
        Case{"unmarked", app, "certificate leaf[field.1.2.840.113635.100.6.1.13]"},
        Case{"unmarked-ca", app, "certificate 1[field.1.2.840.113635.100.6.2.6]"},
        Case{"vendor", app, "certificate 1[field.1.2.840.113635.100.6.2.6]"},
        Case{"developer-id", "com.molvane.app2", "identifier \"com.molvane.app\""},
        Case{"developer-id", "com.molvane", "identifier \"com.molvane.app\""},
        Case{"tls", app, "not for signing code"}, Case{"expired", app, "certificate has expired"}}) {
    const std::string executable = folder_.addExecutable(tried.leaf + "." + tried.identifier);
    Authority::shared().sign(executable, tried.identifier, {tried.leaf});
    EXPECT_THAT(problem(executable), HasSubstr(tried.problem)) << tried.leaf;
  }
}

TEST_F(CmsCodeSigningTest, EverySignerMustBeGood) {
  const std::string app = folder_.addExecutable("app");
  const std::string anybodys = "anchor apple generic and identifier com.molvane.app";
  Authority::shared().sign(app, "com.molvane.app", {"developer-id", "other-team"});
  EXPECT_EQ(problem(app, anybodys), "");
  EXPECT_THAT(problem(app), HasSubstr("certificate leaf[subject.OU]"));
  for (const std::string bad : {"expired", "tls"}) {
    Authority::shared().sign(app, "com.molvane.app", {"developer-id", bad});
    EXPECT_NE(problem(app, anybodys), "") << bad;
    Authority::shared().sign(app, "com.molvane.app", {bad, "developer-id"});
    EXPECT_NE(problem(app, anybodys), "") << bad;
  }
}

TEST_F(CmsCodeSigningTest, RequirementsThatAreNotUnderstoodFail) {
  const std::string app = folder_.addApp();
  for (const std::string_view requirement :
       {"", "anchor apple generic and notarized", "anchor apple generic or always",
        "certificate leaf[subject.OU] = \"MOLVANEDEV"}) {
    EXPECT_THAT(problem(app, requirement), HasSubstr("code requirement")) << requirement;
  }
}

TEST_F(CmsCodeSigningTest, TheSignatureIsOfTheseVeryBytes) {
  const std::string app = folder_.addApp("app", "these");
  const std::string other = folder_.addApp("other", "those");
  ASSERT_EQ(problem(app), "");
  fs::copy_file(signatureOf(other), signatureOf(app), fs::copy_options::overwrite_existing);
  EXPECT_THAT(problem(app), HasSubstr("not what was signed"));

  ASSERT_EQ(problem(other), "");
  std::string bytes = contentsOf(other);
  bytes[bytes.size() / 2] ^= 1;
  write(other, bytes);
  EXPECT_THAT(problem(other), HasSubstr("not what was signed"));
  EXPECT_NE(problem(folder_.addExecutable("unsigned")), "");
  EXPECT_NE(problem(folder_.path("missing")), "");
}

TEST_F(CmsCodeSigningTest, DamagedSignaturesAreRefused) {
  const std::string app = folder_.addApp();
  const std::string good = contentsOf(signatureOf(app));
  ASSERT_GT(good.size(), 1000U);
  for (std::size_t size = 0; size < good.size(); size += 37) {
    write(signatureOf(app), good.substr(0, size));
    EXPECT_NE(problem(app), "") << size;
  }
  for (const std::string& behind :
       {std::string("\0", 1), good, std::string(CmsCodeSigning::kMaxSignatureSize, 'x')}) {
    write(signatureOf(app), good + behind);
    EXPECT_NE(problem(app), "") << behind.size();
  }
  // One bit of what was signed, or of the signature's value, which stands at the end.
  const std::size_t content = good.find("{\"identifier\"");
  ASSERT_NE(content, std::string::npos);
  std::vector<std::size_t> places;
  for (std::size_t at = content; good[at - 1] != '}'; ++at) places.push_back(at);
  for (std::size_t at = good.size() - 256; at < good.size(); at += 5) places.push_back(at);
  for (const std::size_t at : places) {
    std::string damaged = good;
    damaged[at] = static_cast<char>(damaged[at] ^ 1);
    write(signatureOf(app), damaged);
    EXPECT_THAT(problem(app), HasSubstr("signature that does not hold")) << at;
  }
  write(signatureOf(app), good);
  EXPECT_EQ(problem(app), "");
}

TEST_F(CmsCodeSigningTest, WeakDigestsAreRefused) {
  const std::string app = folder_.addExecutable("app");
  const Authority& authority = Authority::shared();
  const std::string content = folder_.path("content.json");
  const PlainFile file = openPlainFile(app, CmsCodeSigning::kMaxExecutableSize);
  write(content, R"({"identifier": "com.molvane.app", "sha256": ")" + hexText(sha256(file)) + "\"}");
  const auto signWith = [&](const std::string& digest) {
    run("/usr/bin/openssl",
        {"cms", "-sign", "-binary", "-nodetach", "-outform", "DER", "-md", digest, "-in", content, "-signer",
         authority.path("developer-id.pem"), "-inkey", authority.path("developer-id.key"), "-certfile",
         authority.path("developer-id.chain.pem"), "-out", signatureOf(app)});
    return problem(app);
  };
  EXPECT_THAT(signWith("md5"), HasSubstr("digest"));
  EXPECT_THAT(signWith("sha1"), HasSubstr("digest"));
  EXPECT_EQ(signWith("sha512"), "");
}

TEST_F(CmsCodeSigningTest, TheSignatureAndTheCodeArePlainFiles) {
  const std::string app = folder_.addApp();
  const std::string signature = signatureOf(app);
  fs::rename(signature, folder_.path("elsewhere"));
  const std::vector<std::function<void()>> replacements = {
      [&] { fs::create_symlink(folder_.path("elsewhere"), signature); },
      [&] { ASSERT_EQ(mkfifo(signature.c_str(), 0600), 0); },
      [&] { fs::create_directory(signature); },
      [&] { write(signature, ""); },
  };
  for (const auto& replace : replacements) {
    replace();
    EXPECT_NE(problem(app), "");
    fs::remove(signature);
  }
  fs::rename(folder_.path("elsewhere"), signature);
  EXPECT_EQ(problem(app), "");

  fs::create_symlink(app, folder_.path("link"));
  EXPECT_NE(problem(folder_.path("link")), "");
  EXPECT_NE(problem(folder_.path("trust")), "");
  ASSERT_EQ(mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  EXPECT_NE(problem(folder_.path("fifo")), "");

  const std::string huge = folder_.addExecutable("huge");
  fs::resize_file(huge, CmsCodeSigning::kMaxExecutableSize + 1);
  write(signatureOf(huge), contentsOf(signature));
  EXPECT_THAT(problem(huge), HasSubstr("too large"));
}

TEST_F(CmsCodeSigningTest, OnlyARootThatNobodyElseCanReplaceIsTrusted) {
  const std::string app = folder_.addApp();
  ASSERT_EQ(problem(app), "");
  const std::string anchor = folder_.anchor();
  const std::string trust = folder_.path("trust");
  const std::string root = contentsOf(anchor);

  // Of the same name, but with another key.
  run("/usr/bin/openssl",
      {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", folder_.path("foreign.key"), "-out",
       folder_.path("foreign.pem"), "-subj", "/CN=Molvane Development Root/O=Molvane"});

  struct Case {
    std::string name;
    std::function<void()> spoil;
  };
  std::vector<Case> cases = {
      {"missing", [&] { fs::remove(anchor); }},
      {"empty", [&] { write(anchor, ""); }},
      {"no certificate", [&] { write(anchor, "MOLVANEDEV\n"); }},
      {"broken", [&] { write(anchor, root.substr(0, root.size() / 2)); }},
      {"broken behind", [&] { write(anchor, root + root.substr(0, root.size() / 2)); }},
      {"huge", [&] { write(anchor, root + std::string(65536, '\n')); }},
      {"foreign",
       [&] { fs::copy_file(folder_.path("foreign.pem"), anchor, fs::copy_options::overwrite_existing); }},
      {"an intermediate",
       [&] { write(anchor, contentsOf(Authority::shared().path("developer-id-ca.pem"))); }},
      {"writable by its group", [&] { chmod(anchor.c_str(), 0664); }},
      {"writable by others", [&] { chmod(anchor.c_str(), 0646); }},
      {"in a folder writable by others", [&] { chmod(trust.c_str(), 0777); }},
      {"link", [&] { fs::rename(anchor, trust + "/real"), fs::create_symlink("real", anchor); }},
      {"below a link", [&] { fs::rename(trust, trust + "2"), fs::create_symlink(trust + "2", trust); }},
      {"folder", [&] { fs::remove(anchor), fs::create_directory(anchor); }},
      {"fifo", [&] { fs::remove(anchor), mkfifo(anchor.c_str(), 0600); }},
  };
  if (geteuid() == 0)
    cases.push_back({"somebody else's", [&] { ASSERT_EQ(chown(anchor.c_str(), 1, 1), 0); }});

  for (const Case& tried : cases) {
    tried.spoil();
    EXPECT_NE(problem(app), "") << tried.name;
    EXPECT_NE(folder_.checker()->checkFile(app, kAppRequirement).problem, "") << tried.name;
    fs::remove_all(trust);
    fs::remove_all(trust + "2");
    fs::create_directory(trust);
    write(anchor, root);
    EXPECT_EQ(problem(app), "") << "after " << tried.name;
  }

  // A sticky folder, such as /tmp itself, does not let others touch what is root's.
  chmod(trust.c_str(), 01777);
  EXPECT_EQ(folder_.checker()->checkFile(app, kAppRequirement).problem, "");
}

}  // namespace
}  // namespace molvane::testing
