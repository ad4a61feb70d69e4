#pragma once

namespace molvane {

/// Starts the helper and serves until the idle exit or a signal that asks for the end; returns the process's
/// exit status. Takes no arguments and no configuration but the bundle's Info.plist.
int helperMain();

}  // namespace molvane
