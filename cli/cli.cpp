#include "cli/cli.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string_view>

#include "cli/batch.h"
#include "cli/call.h"
#include "cli/help.h"
#include "cli/output.h"
#include "demo/demo.h"
#include "demo/digest.h"

namespace ph {

namespace {

const char* const kCommandNames[] = {"list", "call", "run", "help", "demo", "digest"};

// Reports accounting problems and leaks; they override any other status.
int Finish(Host& host, int status) {
  std::vector<std::string> problems = host.TakeProblems();
  for (const std::string& leak : host.LeaksSince(0)) problems.push_back(leak);
  for (const std::string& p : problems) std::cerr << "accounting: " << p << "\n";
  return problems.empty() ? status : kExitAccounting;
}

std::unique_ptr<Host> MakeHost(const Options& o) {
  HostOptions ho;
  if (o.plugin) ho.pluginPath = *o.plugin;
  ho.version = o.version;
  ho.without = o.without;
  ho.display = o.command != "list";  // the registrations need no X server
  return std::make_unique<Host>(ho);
}

// `list PATTERN`: the members whose name matches (a shell pattern, or part of
// a name; any case), each under its class with what it does.
void ListMatching(const Host& host, const std::string& pattern) {
  const std::string glob = pattern.find_first_of("*?[") == std::string::npos ? "*" + pattern + "*" : pattern;
  auto matches = [&](const std::string& name) { return fnmatch(glob.c_str(), name.c_str(), FNM_CASEFOLD) == 0; };
  auto summary = [](const std::string& owner, const std::string& declaration) {
    for (const ReferenceEntry& e : ReferenceEntries()) {
      if (e.owner == owner && e.declaration == declaration) return "      " + Summary(e) + "\n";
    }
    return std::string();
  };
  size_t found = 0;
  for (const MethodInfo& m : host.GlobalMethods()) {
    if (!matches(m.declaration.name)) continue;
    std::cout << "global " << m.declaration.text << "\n" << summary("global", m.declaration.text);
    ++found;
  }
  for (const ClassInfo& c : host.Classes()) {
    std::string lines;
    const bool whole = !c.extension && matches(c.name);
    for (const MethodInfo& m : c.methods) {
      if (!whole && !matches(m.declaration.name)) continue;
      lines += "  method " + m.declaration.text + (m.setter ? "  (assignable)" : "") + "\n" +
               summary(c.name, m.declaration.text);
      ++found;
    }
    if (!lines.empty() || whole) std::cout << (c.extension ? "extension " : "class ") << c.name << "\n" << lines;
  }
  if (found == 0) {
    throw HostError("nothing registered matches " + pattern + DidYouMean(pattern, CallableNames(host)));
  }
}

int Help(const Options& o) {
  // help, --help, COMMAND --help, help NAME, call NAME --help.
  std::string topic;
  if (o.command == "help" && !o.arguments.empty()) topic = o.arguments[0];
  else if (o.command != "help" && !o.command.empty()) topic = o.arguments.empty() ? o.command : o.arguments[0];
  if (topic == "man") {
    std::cout << ManPage();
    return kExitOk;
  }
  if (topic == "completion") {
    for (const std::string& w : CompletionWords()) std::cout << w << "\n";
    return kExitOk;
  }
  if (topic.empty()) {
    std::cout << TopHelp();
    return kExitOk;
  }
  std::string text = HelpFor(topic);
  if (text.empty() && o.command != "help" && !o.arguments.empty()) text = HelpFor(o.command);
  if (text.empty()) {
    std::vector<std::string> names(std::begin(kCommandNames), std::end(kCommandNames));
    for (const std::string& w : CompletionWords()) names.push_back(w);
    throw HostError("no help for " + topic + DidYouMean(topic, names) + " (picturehost list PATTERN finds names)");
  }
  std::cout << text;
  return kExitOk;
}

// Single-file mode: the output may not be the input unless --force.
void RefuseOverwrite(const Options& o) {
  if (!o.out || !o.on || o.force) return;
  std::error_code ec;
  if (std::filesystem::equivalent(*o.on, *o.out, ec)) {
    throw HostError("refusing to overwrite the input file " + *o.on + " (--force allows it)");
  }
}

int Run(const Options& o) {
  if (o.showVersion) {
    std::cout << "picturehost " << kPicturehostVersion << ", an emulated REALbasic " << FormatDouble(o.version)
              << " host for the Picture plug-in\n";
    return kExitOk;
  }
  if (o.help || o.command == "help") return Help(o);
  if (o.command.empty()) {
    std::cerr << "usage: picturehost list | call | run | help | demo | digest  (picturehost --help for more)\n";
    return kExitBadInput;
  }
  const bool known = std::find(std::begin(kCommandNames), std::end(kCommandNames), std::string_view(o.command)) !=
                     std::end(kCommandNames);
  if (!known) {
    throw HostError(
        "unknown command " + o.command +
        DidYouMean(o.command, std::vector<std::string>(std::begin(kCommandNames), std::end(kCommandNames))) +
        " (picturehost --help)");
  }
  if ((o.command == "call" || o.command == "run") && o.arguments.empty()) {
    std::cerr << CommandHelp(o.command);
    return kExitBadInput;
  }
  const bool batch = (o.command == "call" || o.command == "run") &&
                     (o.inputs.size() > 1 || (o.inputs.size() == 1 && IsPattern(o.inputs[0])));
  if (!batch) RefuseOverwrite(o);
  InstallInterruptCleanup();
  auto host = MakeHost(o);
  int status = kExitOk;
  try {
    if (o.command == "list") {
      if (o.arguments.empty()) {
        for (const std::string& line : host->ListLines()) std::cout << line << "\n";
      } else {
        ListMatching(*host, o.arguments[0]);
      }
    } else if (batch) {
      status = Batch(*host, o);
    } else if (o.command == "call" || o.command == "run") {
      Perform(*host, o, std::cout);
    } else if (o.command == "demo") {
      status = Demo(*host, o);
    } else {
      status = Digest(*host, o);
    }
  } catch (const NilResult& e) {
    std::cout << std::flush;
    std::cerr << e.what() << "\n";
    status = kExitNil;
  } catch (const HostError& e) {
    // Names the host does not know: the nearest ones it does.
    std::string message = e.what();
    if (message.rfind("unknown class ", 0) == 0) message += DidYouMean(message.substr(14), CallableNames(*host));
    std::cout << std::flush;
    std::cerr << "picturehost: " << message << "\n";
    status = kExitBadInput;
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
