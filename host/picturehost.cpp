#include <string>
#include <vector>

#include "host/cli.h"

int main(int argc, char** argv) { return ph::RunCommandLine(std::vector<std::string>(argv + 1, argv + argc)); }
