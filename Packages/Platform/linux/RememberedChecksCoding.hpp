#pragma once

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/linux/RememberedChecks.hpp"

// The file in which checks outlive the process: a JSON document that names the run of the system it is good
// for.

namespace molvane {

/// Names this run of the system: another one after each start of it. Throws std::system_error.
[[nodiscard]] std::string bootIdentifier();

[[nodiscard]] std::string encodedChecks(const std::list<std::shared_ptr<const RememberedCheck>>& checks,
                                        const std::string& boot);

/// Throws DecodingError for any other document; one of another `boot` holds no checks.
[[nodiscard]] std::vector<RememberedCheck> decodedChecks(std::string_view document, std::string_view boot);

}  // namespace molvane
