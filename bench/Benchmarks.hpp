#pragma once

#include <vector>

#include "Report.hpp"

namespace molvane::bench {

// Every benchmark file defines one function here and main.cpp lists it. A function makes what it needs in
// temporary folders, leaves nothing behind, and throws when it cannot measure.

std::vector<Comparison> benchAccounts();
std::vector<Comparison> benchApplications();
std::vector<Comparison> benchChildProcess();
std::vector<Comparison> benchConnection();
std::vector<Comparison> benchCore();
std::vector<Comparison> benchDaemon();
std::vector<Comparison> benchDevices();
std::vector<Comparison> benchPrompts();
std::vector<Comparison> benchTrees();

}  // namespace molvane::bench
