#include "cli/cli.h"

#include <iostream>
#include <memory>

#include "cli/batch.h"
#include "cli/call.h"
#include "demo/demo.h"
#include "demo/digest.h"

namespace ph {

namespace {

// Reports accounting problems and leaks; they override any other status.
int Finish(Host& host, int status) {
  std::vector<std::string> problems = host.TakeProblems();
  for (const std::string& leak : host.LeaksSince(0)) problems.push_back(leak);
  for (const std::string& p : problems) std::cerr << "accounting: " << p << "\n";
  return problems.empty() ? status : kExitAccounting;
}

int Run(const Options& o) {
  if (o.command.empty()) throw HostError("usage: picturehost list | call | run | demo | digest (see README.md)");
  HostOptions ho;
  if (o.plugin) ho.pluginPath = *o.plugin;
  ho.version = o.version;
  ho.without = o.without;
  auto host = std::make_unique<Host>(ho);
  int status = kExitOk;
  const bool batch = (o.command == "call" || o.command == "run") &&
                     (o.inputs.size() > 1 || (o.inputs.size() == 1 && IsPattern(o.inputs[0])));
  try {
    if (o.command == "list") {
      for (const std::string& line : host->ListLines()) std::cout << line << "\n";
    } else if (batch) {
      status = Batch(*host, o);
    } else if (o.command == "call" || o.command == "run") {
      Perform(*host, o, std::cout);
    } else if (o.command == "demo") {
      status = Demo(*host, o);
    } else if (o.command == "digest") {
      status = Digest(*host, o);
    } else {
      throw HostError("unknown command " + o.command);
    }
  } catch (const NilResult& e) {
    std::cout << std::flush;
    std::cerr << e.what() << "\n";
    status = kExitNil;
  }
  std::cout << std::flush;
  return Finish(*host, status);
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& words) {
  try {
    return Run(ParseOptions(words));
  } catch (const HostError& e) {
    std::cout << std::flush;
    std::cerr << "picturehost: " << e.what() << "\n";
    return kExitBadInput;
  }
}

}  // namespace ph
