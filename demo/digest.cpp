#include "demo/digest.h"

#include <glib.h>
#include <stdlib.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "cli/call.h"
#include "cli/cli.h"
#include "demo/calls.h"

namespace ph {

namespace {

namespace fs = std::filesystem;

// Status, printed text and written files, each file by its name in the
// call's directory: a picture as its size and its pixels (red, green, blue),
// anything else as its bytes.
std::string Fingerprint(const Host& host, int status, const std::string& printed, const std::vector<Written>& written) {
  GChecksum* sum = g_checksum_new(G_CHECKSUM_SHA256);
  auto add = [&](const void* data, size_t size) {
    g_checksum_update(sum, static_cast<const guchar*>(data), static_cast<gssize>(size));
  };
  auto text = [&](const std::string& t) { add(t.data(), t.size()); };
  text("status " + std::to_string(status) + "\nprinted " + std::to_string(printed.size()) + "\n" + printed);
  for (const Written& w : written) {
    const std::string name = fs::path(w.path).filename().string();
    if (w.picture) {
      text(name + " picture " + std::to_string(host.Width(w.picture)) + "x" + std::to_string(host.Height(w.picture)) +
           "\n");
      for (uint32_t p : host.Pixels(w.picture)) text({char(p >> 16), char(p >> 8), char(p)});
    } else {
      text(name + " bytes " + std::to_string(w.bytes.size()) + "\n");
      add(w.bytes.data(), w.bytes.size());
    }
  }
  const std::string hex = g_checksum_get_string(sum);
  g_checksum_free(sum);
  return hex;
}

std::string Key(const std::string& owner, const MethodInfo& m, bool setter) {
  return (setter ? "setter " : "") + owner + "." + m.declaration.text;
}

// Every registered method a listed call must reach: methods of the extensions,
// global methods, and methods of classes called and (when they can be)
// assigned. The command line cannot assign to an extension method.
std::vector<std::string> Uncovered(const Host& host, const std::set<std::string>& covered) {
  std::vector<std::string> missing;
  auto check = [&](const std::string& key) {
    if (!covered.count(key)) missing.push_back(key);
  };
  for (const ClassInfo& c : host.Classes()) {
    for (const MethodInfo& m : c.methods) {
      check(Key(c.name, m, false));
      if (m.setter && !c.extension) check(Key(c.name, m, true));
    }
  }
  for (const MethodInfo& m : host.GlobalMethods()) check(Key("global", m, false));
  return missing;
}

}  // namespace

int Digest(Host& host, const Options& o) {
  std::string dir;
  if (o.outDir) {
    dir = *o.outDir;
  } else {
    char pattern[] = "/tmp/picture-digests.XXXXXX";  // under /tmp, which the i386 root shares
    if (!mkdtemp(pattern)) throw HostError("cannot make a work directory under /tmp");
    dir = pattern;
  }
  struct Remove {
    std::string dir;
    ~Remove() {
      std::error_code ec;
      if (!dir.empty()) fs::remove_all(dir, ec);
    }
  } remove{o.outDir ? "" : dir};  // --out-dir keeps every call's files and printed text
  fs::create_directories(dir + "/in");
  std::map<std::string, std::string> files;  // what @NAME stands for
  for (const auto& [name, bytes] : ListedInputs()) {
    files[name] = dir + "/in/" + name;
    WriteFile(files[name], bytes);
  }

  std::set<std::string> covered;
  bool failed = false;
  int number = 0;
  for (const ListedCall& c : ListedCalls()) {
    const std::string callDir = dir + "/" + (c.label.empty() ? "call" + std::to_string(++number) : c.label);
    fs::create_directories(callDir);
    std::vector<std::string> words;
    for (const std::string& w : c.words) {
      words.push_back(w == "OUT" ? callDir + "/r.bmp" : w[0] == '@' ? files.at(w.substr(1)) : w);
    }
    if (!c.label.empty()) files[c.label] = callDir + "/r.bmp";

    const uint64_t mark = host.Mark();
    std::ostringstream printed;
    std::vector<Written> written;
    int status = kExitOk;
    {
      Execution e;
      try {
        const Options call = ParseOptions(words);
        Execute(host, call, e);
        Deliver(host, call, e, printed, &written);
      } catch (const NilResult&) {
        status = kExitNil;
      } catch (const std::exception& x) {
        std::cerr << "digest: " << c.text << ": " << x.what() << "\n";
        status = kExitBadInput;
      }
      for (const Invoked& i : e.invoked) covered.insert(Key(i.owner, *i.method, i.setter));
    }
    std::string text = printed.str();
    if (c.address) text = std::regex_replace(text, std::regex("-?[0-9]+"), "ADDRESS");
    const std::string digest = Fingerprint(host, status, text, written);
    written.clear();
    std::vector<std::string> problems = host.TakeProblems();
    for (const std::string& leak : host.LeaksSince(mark)) problems.push_back(leak);
    for (const std::string& p : problems) std::cerr << "digest: " << c.text << ": accounting: " << p << "\n";
    if (!problems.empty()) status = kExitAccounting;
    failed |= status != kExitOk && status != kExitNil;
    if (o.outDir) WriteFile(callDir + "/stdout", std::vector<uint8_t>(text.begin(), text.end()));
    std::cout << digest << "  " << status << "  " << c.text << "\n";
  }
  const std::vector<std::string> missing = Uncovered(host, covered);
  for (const std::string& m : missing) std::cerr << "digest: no listed call reaches " << m << "\n";
  return failed || !missing.empty() ? kExitBadInput : kExitOk;
}

}  // namespace ph
