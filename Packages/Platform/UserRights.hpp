#pragma once

#include <sys/types.h>

#include <functional>

namespace molvane {

/// Runs `body` with no more than that user's rights to files: what it opens, creates and looks up is allowed
/// or refused as it would be for a program of the user's, by the user's own identifier and the groups that
/// the user database gives them. A user without an entry there has no group.
///
/// `body` runs on a thread of its own, which ends with it; no other thread's rights change. For the user that
/// this process runs as it is just called. Waits for its end and rethrows what it threw. Throws
/// std::system_error when the rights cannot be had (EPERM), or no thread; then nothing has run. Any thread.
void withRightsOf(uid_t user, const std::function<void()>& body);

}  // namespace molvane
