// Batch mode of picturehost call and run: several inputs by pattern or by
// repeated --on, outputs named by %n, progress, failures reported at the end,
// inputs never overwritten.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "tests/host/picturehost_runner.h"
#include "tests/support/host_fixture.h"

namespace {

namespace fs = std::filesystem;

class Batch : public HostTest {
 protected:
  // Saves a picture of the given pixels as a PNG (or BMP, by the extension).
  void Save(const std::string& path, int32_t w, int32_t h, const std::vector<uint32_t>& pixels) {
    ph::Ref p = Picture(w, h, pixels);
    std::string error;
    ASSERT_TRUE(host().SavePicture(p, path, &error)) << error;
  }
  void SaveSample(const std::string& path, int32_t w, int32_t h) { Save(path, w, h, ph::SamplePixels(w, h)); }

  std::vector<uint32_t> Load(const std::string& path, int32_t* w, int32_t* h) {
    ph::Ref p = host().LoadPicture(path);
    *w = host().Width(p);
    *h = host().Height(p);
    return host().Pixels(p);
  }

  TempDir dir_{"batch"};
};

// A quarter turn counter-clockwise, written independently of the plug-in:
// the result is H wide and W high, and result (x, y) is source (W-1-y, x).
std::vector<uint32_t> QuarterTurn(const std::vector<uint32_t>& src, int32_t w, int32_t h) {
  std::vector<uint32_t> out(src.size());
  for (int32_t y = 0; y < w; ++y) {
    for (int32_t x = 0; x < h; ++x) out[static_cast<size_t>(y) * h + x] = src[static_cast<size_t>(x) * w + (w - 1 - y)];
  }
  return out;
}

TEST_F(Batch, TwentyFilesGiveTwentyResultsWithProgress) {
  fs::create_directories(dir_ / "in");
  std::map<std::string, std::pair<int32_t, int32_t>> sizes;
  for (int i = 0; i < 20; ++i) {
    const std::string name = "photo" + std::to_string(i);
    const int32_t w = 5 + i, h = 3 + i % 4;
    SaveSample(dir_ / ("in/" + name + ".png"), w, h);
    sizes[name] = {w, h};
  }
  const Outcome run = Picturehost({"call", "--on", dir_ / "in/*.png", "Rotate90QVT", "--out", dir_ / "out-%n-r90.png",
                               "--progress"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "");  // picture results go to files only
  for (const auto& [name, size] : sizes) {
    int32_t w = 0, h = 0;
    const std::vector<uint32_t> result = Load(dir_ / ("out-" + name + "-r90.png"), &w, &h);
    EXPECT_EQ(w, size.second) << name;
    EXPECT_EQ(h, size.first) << name;
    EXPECT_EQ(result, QuarterTurn(ph::SamplePixels(size.first, size.second), size.first, size.second)) << name;
  }
  // The bar counts up to all twenty, with a rate and the time left on the way.
  EXPECT_NE(run.err.find("20/20"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("1/20"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("files/s"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("left"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("20 of 20 file(s) processed"), std::string::npos) << run.err;
}

TEST_F(Batch, ProgressOnlyOnATerminalUnlessForced) {
  SaveSample(dir_ / "a.png", 6, 4);
  SaveSample(dir_ / "b.png", 7, 4);
  // Standard error is a file here, not a terminal.
  const Outcome run = Picturehost({"call", "--on", dir_ / "a.png", "--on", dir_ / "b.png", "HMirrorQVT", "--out",
                               dir_ / "%n-m.png"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err.find("2/2"), std::string::npos) << run.err;
  EXPECT_TRUE(fs::exists(dir_ / "a-m.png"));
  EXPECT_TRUE(fs::exists(dir_ / "b-m.png"));
}

TEST_F(Batch, AnUnreadableFileIsReportedAndTheOthersAreWritten) {
  for (int i = 0; i < 4; ++i) SaveSample(dir_ / ("good" + std::to_string(i) + ".png"), 8, 6);
  {
    std::ofstream broken(dir_ / "broken.png", std::ios::binary);
    broken << "this is no picture";
  }
  fs::create_directories(dir_ / "out");
  const Outcome run = Picturehost({"call", "--on", dir_ / "*.png", "VMirrorQVT", "--out", dir_ / "out/%n.png"});
  EXPECT_EQ(run.status, 1);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(fs::exists(dir_ / ("out/good" + std::to_string(i) + ".png"))) << i;
  EXPECT_FALSE(fs::exists(dir_ / "out/broken.png"));
  // Reported once, at the end, after the last file was processed.
  const size_t report = run.err.find("1 input(s) could not be processed");
  ASSERT_NE(report, std::string::npos) << run.err;
  EXPECT_NE(run.err.find("broken.png", report), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("4 of 5 file(s) processed"), std::string::npos) << run.err;
}

TEST_F(Batch, NeverOverwritesAnInputFile) {
  SaveSample(dir_ / "a.png", 9, 5);
  SaveSample(dir_ / "b.bmp", 9, 5);
  const std::string before = Slurp(dir_ / "a.png");
  // a.png would be written over itself; b.bmp becomes the new file b.png.
  const Outcome run = Picturehost({"call", "--on", dir_ / "a.png", "--on", dir_ / "b.bmp", "Rotate180QVT", "--out",
                               dir_ / "%n.png"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Slurp(dir_ / "a.png"), before);
  EXPECT_NE(run.err.find("refusing to overwrite the input file"), std::string::npos) << run.err;
  int32_t w = 0, h = 0;
  const std::vector<uint32_t> turned = Load(dir_ / "b.png", &w, &h);
  std::vector<uint32_t> expected = ph::SamplePixels(9, 5);
  std::reverse(expected.begin(), expected.end());  // a half turn reverses the pixel order
  EXPECT_EQ(turned, expected);

  // The same file reached through another spelling of its path is still the input.
  const Outcome again = Picturehost({"call", "--on", dir_ / "*.png", "--on", dir_ / "b.bmp", "CloneQVT", "--out",
                                 (dir_.path() / "." / "%n.png").string()});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(Slurp(dir_ / "a.png"), before);
}

TEST_F(Batch, TwoInputsWithOneBaseNameDoNotOverwriteEachOther) {
  fs::create_directories(dir_ / "x");
  fs::create_directories(dir_ / "y");
  SaveSample(dir_ / "x/p.png", 4, 4);
  SaveSample(dir_ / "y/p.png", 5, 5);
  const Outcome run = Picturehost({"call", "--on", dir_ / "x/p.png", "--on", dir_ / "y/p.png", "CloneQVT", "--out",
                               dir_ / "%n-c.png"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("the result of"), std::string::npos) << run.err;
  int32_t w = 0, h = 0;
  Load(dir_ / "p-c.png", &w, &h);
  EXPECT_EQ(w, 4);  // the first input's result stays
}

TEST_F(Batch, UnmatchedPatternsAndBadOutputPatternsAreReported) {
  SaveSample(dir_ / "a.png", 4, 3);
  const Outcome run = Picturehost({"call", "--on", dir_ / "*.png", "--on", dir_ / "none/*.jpg", "CloneQVT", "--out",
                               dir_ / "%n-c.png"});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(fs::exists(dir_ / "a-c.png"));
  EXPECT_NE(run.err.find("none/*.jpg: no file matches"), std::string::npos) << run.err;

  // Without %n every result would land in one file: refused before any work.
  const Outcome one = Picturehost({"call", "--on", dir_ / "*.png", "CloneQVT", "--out", dir_ / "single.png"});
  EXPECT_EQ(one.status, 1);
  EXPECT_FALSE(fs::exists(dir_ / "single.png"));
  // An unknown method is found before the first file, once.
  const Outcome unknown = Picturehost({"call", "--on", dir_ / "*.png", "NoSuchQVT", "--out", dir_ / "%n-x.png"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_NE(unknown.err.find("unknown method NoSuchQVT"), std::string::npos) << unknown.err;
}

TEST_F(Batch, NumbersArePrintedWithTheirInput) {
  // Picture i is 4 x 4 white with i + 1 black pixels.
  for (int i = 0; i < 3; ++i) {
    std::vector<uint32_t> pixels(16, 0xFFFFFF);
    for (int k = 0; k <= i; ++k) pixels[static_cast<size_t>(k) * 5] = 0;
    Save(dir_ / ("n" + std::to_string(i) + ".png"), 4, 4, pixels);
  }
  const Outcome run = Picturehost({"call", "--on", dir_ / "n*.png", "CountColorQVT", "&c000000"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, (dir_ / "n0.png") + ": 1\n" + (dir_ / "n1.png") + ": 2\n" + (dir_ / "n2.png") + ": 3\n");
}

TEST_F(Batch, RunGivesEachInputToTheInstance) {
  // Flat pictures: the finder reports their colour; the sepia filter keeps their size.
  const uint32_t colours[] = {0x102030, 0xC08040, 0x00FF7F};
  for (int i = 0; i < 3; ++i) {
    Save(dir_ / ("f" + std::to_string(i) + ".png"), 3 + i, 2, std::vector<uint32_t>(static_cast<size_t>(6 + 2 * i), colours[i]));
  }
  const Outcome found = Picturehost({"run", "PictureMinMaxQVT", "--on", dir_ / "f*.png", "FindAll(%i)"});
  ASSERT_EQ(found.status, 0) << found.err;
  for (int i = 0; i < 3; ++i) {
    const std::string file = dir_ / ("f" + std::to_string(i) + ".png");
    EXPECT_NE(found.out.find(file + ": FindAll(%i) = true\n"), std::string::npos) << found.out;
    EXPECT_NE(found.out.find(file + ": RedMax=" + std::to_string(colours[i] >> 16) + "\n"), std::string::npos) << found.out;
    EXPECT_NE(found.out.find(file + ": BlueMin=" + std::to_string(colours[i] & 0xFF) + "\n"), std::string::npos)
        << found.out;
  }
  const Outcome sepia = Picturehost({"run", "PictureSepiaQVT", "--on", dir_ / "f*.png", "Run", "--out", dir_ / "%n-s.png"});
  ASSERT_EQ(sepia.status, 0) << sepia.err;
  for (int i = 0; i < 3; ++i) {
    int32_t w = 0, h = 0;
    Load(dir_ / ("f" + std::to_string(i) + "-s.png"), &w, &h);
    EXPECT_EQ(w, 3 + i);
    EXPECT_EQ(h, 2);
  }
}

TEST_F(Batch, OneFileKeepsTheSingleFileBehaviour) {
  SaveSample(dir_ / "one.png", 6, 4);
  const Outcome number = Picturehost({"call", "--on", dir_ / "one.png", "HasMaskQVT", "--progress"});
  EXPECT_EQ(number.status, 0);
  EXPECT_EQ(number.out, "false\n");  // no file name before it
  EXPECT_EQ(number.err, "");         // and no progress bar
  const Outcome nil = Picturehost({"call", "--on", dir_ / "one.png", "PicHandleQVT"});
  EXPECT_EQ(nil.status, 3);
  // A graphics method is called on the picture's graphics; --out saves the picture.
  const Outcome paint = Picturehost({"call", "--on", dir_ / "one.png", "PaintDesktopQVT", "--out", dir_ / "painted.png"});
  ASSERT_EQ(paint.status, 0) << paint.err;
  int32_t w = 0, h = 0;
  EXPECT_EQ(Load(dir_ / "painted.png", &w, &h), ph::SamplePixels(6, 4));
}

}  // namespace
