// The host's own checks, through picturehost: sizes beyond the host's
// pictures refused before anything is allocated or decoded, and the faults
// of a plug-in built for the purpose (tests/host/faulty_plugin.cpp) each
// reported with its own exit status.
#include <sys/resource.h>

#include <fstream>

#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"

namespace {

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

Outcome Faulty(std::vector<std::string> words) {
  words.insert(words.end(), {"--plugin", FAULTY_PLUGIN_PATH});
  return Picturehost(words);
}

class StrictHost : public HostTest {
 protected:
  // A small picture saved as `name`, its header then overwritten at `at`
  // (counted from the first `marker`) so that it claims another size.
  std::string Claiming(const std::string& name, const std::string& marker, size_t at, const std::string& size) {
    std::string error;
    EXPECT_TRUE(host().SavePicture(Flat(8, 8, 0x808080), dir_ / name, &error)) << error;
    std::string file = Slurp(dir_ / name);
    file.replace(file.find(marker) + at, size.size(), size);
    std::ofstream(dir_ / name, std::ios::binary) << file;
    return dir_ / name;
  }

  TempDir dir_{"strict"};
};

// Each fault of the plug-in with its status and report. The caller holds the
// picture twice (as the input and as the receiver): one release too many is
// found after the call; two end the picture during it, and the caller's own
// releases then find its tombstone. Blocks, strings and instance data are
// exactly as long as asked, so the sanitizers see a one-byte overrun.
TEST_F(StrictHost, EachFaultOfAPlugInIsReportedWithItsOwnStatus) {
  std::ofstream(dir_ / "abc") << "abc";
  const std::string picture = "released twice: picture #1 (8x8) made by NewPicture for the caller; ";
  const struct {
    std::vector<std::string> words;
    int status;
    std::string report;
  } faults[] = {
      {{"call", "--on", "sample:8x8", "ReleaseQVT", "1"}, 4,
       picture + "after ReleaseQVT it has 1 reference(s) while the caller holds 2"},
      {{"call", "--on", "sample:8x8", "ReleaseQVT", "2"}, 4,
       picture + "last released by REALUnlockObject in ReleaseQVT, then again by caller after the call"},
      {{"call", "WritePastBlockQVT", "zeros:16"}, 5, "heap-buffer-overflow"},
      {{"call", "ReadPastStringQVT", dir_ / "abc"}, 5, "heap-buffer-overflow"},
      {{"run", "OverrunQVT"}, 5, "heap-buffer-overflow"},
      {{"call", "AddOneQVT", "2147483647"}, 5, "signed integer overflow"},
  };
  for (const auto& [words, status, report] : faults) {
#ifndef __SANITIZE_ADDRESS__
    if (status == 5) continue;  // a sanitizer build only
#endif
    const Outcome run = Faulty(words);
    const std::string what = words[words.size() - 2] + " " + words.back() + ": ";
    EXPECT_EQ(run.status, status) << what << run.err;
    EXPECT_TRUE(Has(run.err, report)) << what << run.err;
  }
}

}  // namespace
