// The `picturehost` command line: list, call, run, demo and digest.
#pragma once

#include <string>
#include <vector>

namespace ph {

// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;
constexpr int kExitNil = 3;
constexpr int kExitAccounting = 4;
constexpr int kExitSanitizer = 5;  // set through the sanitizer runtimes' options (picturehost.cpp)

// Runs one command line (without the program name) and returns the exit status.
int RunCommandLine(const std::vector<std::string>& words);

}  // namespace ph
