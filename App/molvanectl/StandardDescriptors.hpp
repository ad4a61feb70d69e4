#pragma once

namespace molvane::ctl {

/// Occupies those of the three standard descriptors that the caller of the program left closed, so that no
/// socket or file gets their numbers and receives what is meant for a person. Reading from and writing to one
/// that was closed keeps failing. Call it before anything is opened.
void occupyStandardDescriptors();

}  // namespace molvane::ctl
