// The stand-ins for the account tools, on their own: what they do to the root's user database, how they ask,
// and that they can be made to fail.

#include <crypt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Terminal.hpp"

namespace molvane::e2e {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kAnnsPassword = "tangerine-for-ann";
constexpr const char* kBobsPassword = "tangerine-for-bob";
const std::string kAdd = "sysadminctl -addUser carol -fullName 'Carol: \"C\" <&>' -password - ";
const std::string kShow = "; dscl . -read /Users/carol; getent shadow carol; ";

Outcome enter(const std::string& script) { return run({MACROOT_ENTER, "--bare", "/bin/bash", "-c", script}); }

// The root with a script in it that is run on a terminal.
class Screen : public Terminal {
 public:
  explicit Screen(const std::string& script)
      : Terminal({MACROOT_ENTER, "--bare", "/bin/bash", "-c", script}) {}
};

// The hash in the shadow line of `name` that the screen shows.
std::string hashOf(const std::string& name, const std::string& screen) {
  const auto line = screen.find("\n" + name + ":");
  if (line == std::string::npos) return {};
  const auto begin = line + name.size() + 2;
  return screen.substr(begin, screen.find(':', begin) - begin);
}

bool isPassword(const std::string& password, const std::string& hash) {
  const char* result = crypt(password.c_str(), hash.c_str());
  return !hash.empty() && result != nullptr && hash == result;
}

TEST(AccountTools, NewAccountHasThePasswordThatWasTyped) {
  const std::string secret = R"( p\a$s "ü" 'w`)";
  Screen screen(kAdd + "-admin -adminUser ann -adminPassword -" + kShow +
                "id carol; stat -c '%a %U' /Users/carol; dscl . -read /Groups/admin GroupMembership;"
                "cat /var/log/macroot/tools.log");
  screen.answer("Enter password for ann :", kAnnsPassword);
  screen.answer("New password:", secret);
  screen.answer("Retype new password:", secret);
  const Outcome outcome = screen.wait();
  EXPECT_THAT(outcome.out, Not(HasSubstr(secret))) << "the terminal echoed";
  EXPECT_THAT(outcome.out, Not(HasSubstr(kAnnsPassword)));
  EXPECT_TRUE(isPassword(secret, hashOf("carol", outcome.out))) << outcome.out;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr(";SecureToken;\nRealName: Carol: \"C\" <&>\n"),
                    HasSubstr("uid=503(carol) gid=20(staff)"), HasSubstr("\n750 carol\n"),
                    HasSubstr("GroupMembership: root ann carol\n"), HasSubstr("-password - -admin")));
}

TEST(AccountTools, PasswordsCanBeChangedAndChecked) {
  // More than crypt(3) takes.
  std::string longest;
  for (int i = 0; i < 128; ++i) longest += "\xF0\x9F\x8D\x8A";
  Screen screen(
      "sysadminctl -resetPasswordFor bob -newPassword -; for i in 1 2 3; do dscl . -authonly bob; echo =$?; "
      "done;"
      "sysadminctl -resetPasswordFor bob -newPassword -; getent shadow bob");
  screen.answer("New password:", longest);
  screen.answer("Retype new password:", longest);
  screen.answer("Password:", longest);
  screen.waitFor("=0");
  screen.answer("Password:", longest.substr(4));
  screen.waitFor("eDSAuthFailed");
  screen.answer("Password:", kBobsPassword);
  screen.waitFor("eDSAuthFailed");
  screen.answer("New password:", "short and sweet");
  screen.answer("Retype new password:", "short and sweet");
  EXPECT_TRUE(isPassword("short and sweet", hashOf("bob", screen.wait().out)));
}

TEST(AccountTools, WhatIsWrongIsTold) {
  {
    Screen screen(kAdd + "-adminUser ann -adminPassword -" + kShow);
    screen.answer("for ann :", "a wrong one");
    const Outcome outcome = screen.wait();
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("### Error:-14090"), Not(HasSubstr("carol:"))));
  }
  {
    Screen screen(kAdd + "-adminUser bob -adminPassword -" + kShow);
    screen.answer("for bob :", kBobsPassword);
    screen.answer("New password:", "password1");
    screen.answer("Retype new password:", "password1");
    const Outcome outcome = screen.wait();
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("not permitted without secure token"),
                                   HasSubstr("RecordName: carol"), Not(HasSubstr(";SecureToken;"))));
  }
  {
    Screen screen(kAdd + kShow);
    screen.answer("New password:", "password1");
    screen.answer("Retype new password:", "password2");
    EXPECT_THAT(screen.wait().out,
                AllOf(HasSubstr("Error: the passwords do not match"), Not(HasSubstr("carol:"))));
  }
  EXPECT_THAT(run({"/usr/bin/setsid", "-w", MACROOT_ENTER, "--bare", "/bin/bash", "-c", kAdd}).err,
              HasSubstr("Error: a password has to be typed on a terminal"));
  EXPECT_THAT(enter("sysadminctl -deleteUser nobody-there -keepHome").err,
              HasSubstr("Error: there is no user"));
}

TEST(AccountTools, MarksGroupsAndDeletion) {
  const Outcome outcome = enter(
      "set -e; pwpolicy -u bob -disableuser; pwpolicy -u bob -setpolicy newPasswordRequired=1;"
      "dscl . -create /Users/bob IsHidden 1; dseditgroup -o edit -a bob -t user admin;"
      "dscl . -read /Users/bob AuthenticationAuthority IsHidden; dscl -plist . -read /Groups/admin "
      "GroupMembership;"
      "getent shadow bob | cut -d: -f2 | cut -c1-4; getent shadow bob | cut -d: -f3;"
      "pwpolicy -u bob -enableuser; dseditgroup -o edit -d bob -t user admin; getent group admin;"
      "getent shadow bob | cut -d: -f2 | cut -c1-3; fdesetup isactive; rm /var/db/FileVault; fdesetup "
      "isactive || true;"
      "sysadminctl -deleteUser bob -keepHome; test -d /Users/bob; grep -c bob /etc/passwd /etc/shadow "
      "/etc/group");
  EXPECT_EQ(outcome.out,
            "Disabling account for user <bob>\nSetting policy for user <bob>\n"
            "AuthenticationAuthority: "
            ";DisabledUser;;ShadowHash;HASHLIST:<SALTED-SHA512-PBKDF2,SRP-RFC5054-4096-SHA512-PBKDF2>"
            "\nIsHidden: 1\n"
            R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
	<dict>
		<key>dsAttrTypeStandard:GroupMembership</key>
		<array>
			<string>root</string>
			<string>ann</string>
			<string>bob</string>
		</array>
	</dict>
</plist>
)"
            "!$6$\n0\nEnabling account for user <bob>\nadmin:x:80:root,ann\n$6$\ntrue\nfalse\n"
            "/etc/passwd:0\n/etc/shadow:0\n/etc/group:0\n");
}

TEST(AccountTools, JudgeTheirArgumentsAndTheCaller) {
  const std::string ann = "setpriv --reuid ann --clear-groups ";
  std::string script;
  for (const std::string bad :
       {"dscl",
        "dscl . -explode /Users",
        "dscl . -create /Users/bob UserShell /bin/sh",
        "dscl . -create /Users/nobody-there IsHidden 1",
        "dscl . -authonly bob tangerine-for-bob",
        "dscl -plist . -read /Groups/none GroupMembership",
        "fdesetup",
        "fdesetup disable",
        "pwpolicy -u bob",
        "pwpolicy -u nobody-there -disableuser",
        "pwpolicy -u bob -explode",
        "dseditgroup -o edit bob -t user admin",
        "dseditgroup -o edit -a bob -t user none",
        "dseditgroup -o edit -a none -t user admin",
        "sysadminctl -addUser carol -password secret",
        "sysadminctl -addUser carol",
        "sysadminctl -deleteUser bob",
        "sysadminctl -resetPasswordFor bob -newPassword secret",
        "sysadminctl -addUser a -deleteUser b -keepHome",
        "sysadminctl -addUser carol -password - -adminUser ann -adminPassword secret"}) {
    script.append("if ").append(bad).append(" 2>/dev/null; then echo '").append(bad).append("'; fi;");
  }
  for (const std::string denied :
       {"sysadminctl -deleteUser bob -keepHome", "pwpolicy -u bob -disableuser",
        "dseditgroup -o edit -a bob -t user admin", "dscl . -create /Users/bob IsHidden 1"}) {
    script.append("if ")
        .append(ann)
        .append(denied)
        .append(" 2>/dev/null; then echo '")
        .append(denied)
        .append("'; fi;");
  }
  EXPECT_EQ(enter(script).out, "") << "taken, though wrong";
}

TEST(AccountTools, AskAsTold) {
  const auto behave = [](const std::string& directives, const std::string& script) {
    return "cat >/etc/macroot/behaviour/sysadminctl@carol <<'END'\n" + directives + "\nEND\n" + script;
  };
  {
    Screen screen(behave("ask 7\nslow-prompt\necho\ntell-split", kAdd + kShow));
    screen.answer("New password:", "correct horse");
    for (int i = 0; i < 6; ++i) screen.answer("Retype new password:", "correct horse");
    const Outcome outcome = screen.wait();
    EXPECT_THAT(outcome.out, HasSubstr("New password:correct horse")) << "no echo";
    EXPECT_THAT(outcome.out, HasSubstr("The password is correct horse.\n"));
    EXPECT_TRUE(isPassword("correct horse", hashOf("carol", outcome.out)));
  }
  {
    Screen screen(behave("prompt Word of passage?\nno-effect", kAdd + kShow));
    screen.answer("Word of passage?", "correct horse");
    screen.answer("Word of passage?", "correct horse");
    const Outcome outcome = screen.wait();
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("Creating user record"), Not(HasSubstr("RecordName: carol"))));
  }
  {
    Screen screen(
        behave("at recorded print Error: halfway\nat recorded exit 3", kAdd + "; echo =$?" + kShow));
    screen.answer("New password:", "correct horse");
    screen.answer("Retype new password:", "correct horse");
    const Outcome outcome = screen.wait();
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("Error: halfway\n=3\n"), HasSubstr("RecordName: carol")));
    EXPECT_EQ(hashOf("carol", outcome.out), "!");
  }
}

TEST(AccountTools, HoldAtAPointUntilLetGo) {
  const Outcome outcome = enter(
      "held() { until [ $(grep -c ^holding /var/log/macroot/tools.log) = $1 ]; do :; done; };"
      "look() { getent shadow bob | cut -d: -f2 | cut -c1-2; };"
      "cd /etc/macroot/behaviour; echo 'at asked hold' >pwpolicy; echo 'at changed hold' >pwpolicy@bob;"
      "pwpolicy -u bob -disableuser &"
      "held 1; look; : >/run/macroot/hold; held 2; look; : >/run/macroot/hold; wait; echo $?");
  EXPECT_EQ(outcome.out, "$6\nDisabling account for user <bob>\n!$\n0\n") << outcome.err;
}

}  // namespace
}  // namespace molvane::e2e
