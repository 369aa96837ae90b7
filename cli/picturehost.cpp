#include <string>
#include <vector>

#include "cli/cli.h"

// In a sanitizer build an error report ends the process with its own status,
// kExitSanitizer, apart from bad input (1). The runtimes ask these hooks for
// their default options as they start, before main and before any plug-in is
// loaded, so no environment has to be set up and a leak report at exit is
// covered too; an exitcode in ASAN_OPTIONS or UBSAN_OPTIONS still wins. In
// other builds nothing calls them.
static_assert(ph::kExitSanitizer == 5, "the options below name the status");
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() { return "exitcode=5"; }
extern "C" __attribute__((visibility("default"))) const char* __ubsan_default_options() { return "exitcode=5"; }

int main(int argc, char** argv) { return ph::RunCommandLine(std::vector<std::string>(argv + 1, argv + argc)); }
