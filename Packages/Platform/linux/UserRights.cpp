#include "Platform/UserRights.hpp"

#include <grp.h>
#include <linux/capability.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <system_error>
#include <vector>

#include "Base/NSError.hpp"
#include "Platform/Thread.hpp"
#include "Platform/Users.hpp"

namespace molvane {
namespace {

struct Groups {
  gid_t primary = 65534;  // "nogroup", to which no file belongs
  std::vector<gid_t> all;
};

Groups groupsOf(uid_t uid) {
  constexpr std::size_t kMost = 65536;  // the kernel's own bound
  const auto user = userWithID(uid);
  if (!user) return {};
  Groups groups{user->gid, std::vector<gid_t>(64)};
  while (true) {
    int count = static_cast<int>(groups.all.size());
    const int found = ::getgrouplist(user->name.c_str(), user->gid, groups.all.data(), &count);
    if (found < 0 && groups.all.size() >= kMost) return {user->gid, {user->gid}};
    groups.all.resize(found < 0 ? groups.all.size() * 2 : static_cast<std::size_t>(count));
    if (found >= 0) return groups;
  }
}

// All of the calling thread's, and of no other's.
void dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  if (::syscall(SYS_capset, &header, none.data()) != 0) throwErrno("capset");
}

// Sets the calling thread's rights, once and for all. The C library's setgroups would set every thread's; its
// two others set the calling thread's alone and report no failure, so the outcome is asked for. With the
// user's identifier the kernel takes root's capabilities over files away, but not the one by which links
// below /proc lead into other people's processes.
void takeRights(uid_t uid, const Groups& groups) {
  if (::syscall(SYS_setgroups, groups.all.size(), groups.all.data()) != 0) throwErrno("setgroups");
  constexpr auto kNoID = static_cast<uid_t>(-1);  // changes nothing
  ::setfsgid(groups.primary);
  ::setfsuid(uid);
  if (static_cast<gid_t>(::setfsgid(kNoID)) != groups.primary ||
      static_cast<uid_t>(::setfsuid(kNoID)) != uid) {
    throw std::system_error(EPERM, std::generic_category(), "setfsuid");
  }
  dropCapabilities();
}

}  // namespace

void withRightsOf(uid_t user, const std::function<void()>& body) {
  if (user == ::geteuid()) return body();
  const Groups groups = groupsOf(user);
  std::exception_ptr failure;
  Thread thread([&] {
    try {
      takeRights(user, groups);
      body();
    } catch (...) {
      failure = std::current_exception();
    }
  });
  thread.join();
  if (failure) std::rethrow_exception(failure);
}

}  // namespace molvane
