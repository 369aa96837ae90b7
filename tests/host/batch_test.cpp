// Batch mode of picturehost call and run: several inputs by pattern or by
// repeated --on, outputs named by %n, progress, failures reported at the end,
// inputs never overwritten.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"
#include "tests/support/pixels.h"

namespace {

namespace fs = std::filesystem;

class Batch : public HostTest {
 protected:
  // Saves a picture (PNG or BMP, by the extension); the sample picture by default.
  void Save(const std::string& name, int32_t w, int32_t h, std::vector<uint32_t> pixels = {}) {
    if (pixels.empty()) pixels = ph::SamplePixels(w, h);
    std::string error;
    ASSERT_TRUE(host().SavePicture(Picture(w, h, pixels), dir_ / name, &error)) << error;
  }
  ph::Ref Load(const std::string& name) { return host().LoadPicture(dir_ / name); }
  bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

  TempDir dir_{"batch"};
};

// The output folders do not exist yet: they are made.
TEST_F(Batch, TwentyFilesGiveTwentyResultsWithProgress) {
  fs::create_directories(dir_ / "in");
  for (int i = 0; i < 20; ++i) Save("in/photo" + std::to_string(i) + ".png", 5 + i, 3 + i % 4);
  const Outcome run =
      Picturehost({"call", "--on", dir_ / "in/*.png", "Rotate90QVT", "--out", dir_ / "thumbs/new/%n-r90.png", "--progress"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "");  // picture results go to files only
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(host().Pixels(Load("thumbs/new/photo" + std::to_string(i) + "-r90.png")),
              testpix::QuarterTurn(ph::SamplePixels(5 + i, 3 + i % 4), 5 + i, 3 + i % 4)) << i;
  // The bar counts up to all twenty, with a rate and the time left on the way.
  for (const char* part : {"1/20", "20/20", "files/s", "left", "20 of 20 file(s) processed"})
    EXPECT_TRUE(Has(run.err, part)) << part << " in " << run.err;
}

TEST_F(Batch, BadInputsAreReportedAtTheEndAndTheOthersWritten) {
  for (int i = 0; i < 4; ++i) Save("good" + std::to_string(i) + ".png", 8, 6);
  std::ofstream(dir_ / "broken.png") << "this is no picture";
  fs::create_directories(dir_ / "out");
  // Standard error is a file here, not a terminal: no progress bar.
  const Outcome run = Picturehost(
      {"call", "--on", dir_ / "*.png", "--on", dir_ / "none/*.jpg", "VMirrorQVT", "--out", dir_ / "out/%n.png"});
  EXPECT_EQ(run.status, 1);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(fs::exists(dir_ / ("out/good" + std::to_string(i) + ".png"))) << i;
  EXPECT_FALSE(fs::exists(dir_ / "out/broken.png"));
  EXPECT_FALSE(Has(run.err, "1/5")) << run.err;
  EXPECT_TRUE(Has(run.err, "none/*.jpg: no file matches") && Has(run.err, "4 of 5 file(s) processed")) << run.err;
  // Reported once, at the end, after the last file was processed.
  const size_t report = run.err.find("could not be processed");
  EXPECT_TRUE(report != std::string::npos && run.err.find("broken.png", report) != std::string::npos) << run.err;

  // Without %n every result would land in one file; an unknown method is
  // found before the first file: both refused before any work.
  EXPECT_EQ(Picturehost({"call", "--on", dir_ / "*.png", "CloneQVT", "--out", dir_ / "single.png"}).status, 1);
  EXPECT_FALSE(fs::exists(dir_ / "single.png"));
  const Outcome unknown = Picturehost({"call", "--on", dir_ / "*.png", "NoSuchQVT", "--out", dir_ / "%n-x.png"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_TRUE(Has(unknown.err, "unknown method NoSuchQVT")) << unknown.err;
}

TEST_F(Batch, NeverOverwritesAnInputOrAnEarlierResult) {
  Save("a.png", 9, 5);
  Save("b.bmp", 9, 5);
  const std::string before = Slurp(dir_ / "a.png");
  // a.png would be written over itself; b.bmp becomes the new file b.png.
  const Outcome run =
      Picturehost({"call", "--on", dir_ / "a.png", "--on", dir_ / "b.bmp", "Rotate180QVT", "--out", dir_ / "%n.png"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Slurp(dir_ / "a.png"), before);
  EXPECT_TRUE(Has(run.err, "refusing to overwrite the input file")) << run.err;
  std::vector<uint32_t> expected = ph::SamplePixels(9, 5);
  std::reverse(expected.begin(), expected.end());  // a half turn reverses the pixel order
  EXPECT_EQ(host().Pixels(Load("b.png")), expected);
  // The same file reached through another spelling of its path is still the input.
  EXPECT_EQ(Picturehost({"call", "--on", dir_ / "*.png", "CloneQVT", "--out", (dir_.path() / "." / "%n.png").string()})
                .status,
            1);
  EXPECT_EQ(Slurp(dir_ / "a.png"), before);

  // Two inputs with one base name: the first one's result stays.
  for (const char* sub : {"x", "y"}) fs::create_directories(dir_ / sub);
  Save("x/p.png", 4, 4);
  Save("y/p.png", 5, 5);
  const Outcome same =
      Picturehost({"call", "--on", dir_ / "x/p.png", "--on", dir_ / "y/p.png", "CloneQVT", "--out", dir_ / "%n-c.png"});
  EXPECT_EQ(same.status, 1);
  EXPECT_TRUE(Has(same.err, "the result of")) << same.err;
  EXPECT_EQ(host().Width(Load("p-c.png")), 4);
}

TEST_F(Batch, ValuesArePrintedWithTheirInputAndRunTakesEachInput) {
  // Picture i is 3 + i wide, 2 high, white with i + 1 black pixels.
  for (int i = 0; i < 3; ++i) {
    std::vector<uint32_t> pixels(size_t(6 + 2 * i), 0xFFFFFF);
    std::fill(pixels.begin(), pixels.begin() + i + 1, 0);
    Save("n" + std::to_string(i) + ".png", 3 + i, 2, pixels);
  }
  const Outcome run = Picturehost({"call", "--on", dir_ / "n*.png", "CountColorQVT", "&c000000"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, (dir_ / "n0.png") + ": 1\n" + (dir_ / "n1.png") + ": 2\n" + (dir_ / "n2.png") + ": 3\n");

  const Outcome found = Picturehost({"run", "PictureMinMaxQVT", "--on", dir_ / "n*.png", "FindAll(%i)"});
  ASSERT_EQ(found.status, 0) << found.err;
  for (int i = 0; i < 3; ++i) {
    const std::string file = dir_ / ("n" + std::to_string(i) + ".png");
    for (const std::string& line :
         {std::string(": FindAll(%i) = true\n"), std::string(": RedMinX=0\n"), ": RedMaxX=" + std::to_string(i + 1) + "\n"})
      EXPECT_TRUE(Has(found.out, file + line)) << found.out;
  }
  const Outcome sepia = Picturehost({"run", "PictureSepiaQVT", "--on", dir_ / "n*.png", "Run", "--out", dir_ / "%n-s.png"});
  ASSERT_EQ(sepia.status, 0) << sepia.err;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(host().Width(Load("n" + std::to_string(i) + "-s.png")), 3 + i);
}

TEST_F(Batch, OneFileKeepsTheSingleFileBehaviour) {
  Save("one.png", 6, 4);
  const Outcome value = Picturehost({"call", "--on", dir_ / "one.png", "HasMaskQVT", "--progress"});
  EXPECT_EQ(value.status, 0);
  EXPECT_EQ(value.out, "false\n");  // no file name before it
  EXPECT_EQ(value.err, "");         // and no progress bar
  EXPECT_EQ(Picturehost({"call", "--on", dir_ / "one.png", "PicHandleQVT"}).status, 3);
  // A graphics method is called on the picture's graphics; --out saves the picture.
  const Outcome paint = Picturehost({"call", "--on", dir_ / "one.png", "PaintDesktopQVT", "--out", dir_ / "painted.png"});
  ASSERT_EQ(paint.status, 0) << paint.err;
  EXPECT_EQ(host().Pixels(Load("painted.png")), ph::SamplePixels(6, 4));
}

}  // namespace
