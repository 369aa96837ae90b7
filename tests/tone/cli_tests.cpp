// Every tone and colour method through `picturehost call`, as a user runs it.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>

#include "host/demo_calls.h"
#include "tests/tone/tone_test_support.h"

using namespace tone_test;

namespace {

namespace fs = std::filesystem;

struct CliResult {
  int status;
  std::string output;
};

std::string Quote(const std::string& s) { return "'" + s + "'"; }

CliResult Picturehost(const std::vector<std::string>& words) {
  // From the source tree, where the demo lines find their data files.
  std::string command = "cd " + Quote(PICTURE_SOURCE_DIR) + " && " + Quote(PICTUREHOST_PATH) + " --plugin " + Quote(PluginPath());
  for (const std::string& w : words) command += " " + Quote(w);
  CliResult run{-1, {}};
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return run;
  char buffer[512];
  while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) run.output.append(buffer, n);
  const int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

class ToneCommandLine : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    dir_ = fs::temp_directory_path() / ("tone-cli-" + std::to_string(getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override {
    fs::remove_all(dir_);
    HostTest::TearDown();
  }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  fs::path dir_;
};

const std::set<std::string> kToneMethods = {
    "HasMaskQVT",         "ChangeBrightnessAbsoluteQVT", "ChangeBrightnessLinearQVT", "ChangeCustomQVT",
    "ChangeContrastQVT",  "InvertQVT",                   "EmbeddedMaskQVT",           "AutoLevelQVT",
    "CountColorQVT",      "CountColorsQVT",              "TransformColorsQVT",        "CombinePicturesQVT",
    "BlendPicturesQVT",   "BlendPicturesWithMaskQVT",    "TintPictureQVT"};
const std::set<std::string> kGlobal = {"CombinePicturesQVT", "BlendPicturesQVT", "BlendPicturesWithMaskQVT",
                                       "TintPictureQVT"};
const std::set<std::string> kNoPicture = {"HasMaskQVT", "CountColorQVT", "CountColorsQVT"};

TEST_F(ToneCommandLine, EveryDemoCallOfTheSubsystemRuns) {
  std::set<std::string> seen;
  int n = 0;
  for (const std::vector<std::string>& line : ph::kDemoCalls) {
    if (line.size() < 2 || line[0] != "call" || !kToneMethods.count(line[1])) continue;
    seen.insert(line[1]);
    std::vector<std::string> words{"call"};
    if (!kGlobal.count(line[1])) words.insert(words.end(), {"--on", "sample:16x12"});
    for (size_t i = 1; i < line.size(); ++i) words.push_back(line[i] == "$SAMPLE" ? "sample:16x12" : line[i]);
    const std::string out = Path("r" + std::to_string(n++) + ".png");
    if (!kNoPicture.count(line[1])) words.insert(words.end(), {"--out", out});
    const CliResult run = Picturehost(words);
    EXPECT_EQ(run.status, 0) << line[1] << ": " << run.output;
    if (!kNoPicture.count(line[1])) {
      ph::Ref p = host().LoadPicture(out);
      EXPECT_EQ(host().Width(p), 16) << line[1];
      EXPECT_EQ(host().Height(p), 12) << line[1];
    }
  }
  EXPECT_EQ(seen, kToneMethods) << "every method has a demo line";
}

TEST_F(ToneCommandLine, ByrefHistogramsAreWrittenNextToOut) {
  const std::string out = Path("hist");
  const CliResult run = Picturehost({"call", "--on", "sample:16x12", "CountColorsQVT", "zeros:0", "zeros:0", "zeros:0", "0",
                               "--out", out});
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("count=192"), std::string::npos) << run.output;
  const std::vector<uint32_t> sample = ph::SamplePixels(16, 12);
  for (const char* channel : {"red", "blue", "green"}) {
    std::ifstream f(out + "." + channel, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    ASSERT_EQ(bytes.size(), 1024u) << channel;
    // Counter 0 of each channel against the sample's own pixels.
    const uint32_t shift = channel[0] == 'r' ? 16 : channel[0] == 'g' ? 8 : 0;
    const auto zeros = std::count_if(sample.begin(), sample.end(), [shift](uint32_t c) { return ((c >> shift) & 0xFF) == 0; });
    EXPECT_EQ(bytes[0] | bytes[1] << 8 | bytes[2] << 16 | bytes[3] << 24, zeros) << channel;
  }
}

}  // namespace
