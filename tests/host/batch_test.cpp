// The picturehost command line as its users meet it: batch mode (several
// inputs by pattern or by repeated --on, outputs named by %n, progress,
// failures reported at the end, inputs never overwritten, interruption and
// resumption, worker processes), the README's examples, the help against the
// reference, arguments as people write them and the reasons for refusals.
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>


#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"
#include "tests/support/pixels.h"

extern char** environ;

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

// Every command line of the README runs as written, in order, in a fresh
// folder: the tour makes its own photos, the batch example its folder.
TEST_F(Batch, EveryReadmeExampleRunsAsWritten) {
  fs::create_directories(dir_ / "build");
  std::ofstream(dir_ / "build/picturehost") << "#!/bin/sh\nLSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=" PICTURE_SOURCE_DIR
                                               "/tools/lsan.supp} exec '" PICTUREHOST_PATH "' --plugin '"
                                            << PluginPath() << "' \"$@\"\n";
  fs::permissions(dir_ / "build/picturehost", fs::perms::owner_all);
  std::ifstream readme(PICTURE_SOURCE_DIR "/README.md");
  int lines = 0;
  for (std::string line; std::getline(readme, line);) {
    if (line.rfind("    build/picturehost ", 0) != 0) continue;
    ++lines;
    const std::string command = "cd '" + dir_.path().string() + "' && " + line.substr(4) + " >out.txt 2>err.txt";
    EXPECT_EQ(std::system(command.c_str()), 0) << line << "\n" << Slurp(dir_ / "err.txt");
  }
  EXPECT_GE(lines, 12);
  // Thumbnails within 160 x 160 keep their photo's proportions; the palette's picture is saved.
  EXPECT_EQ(host().Width(Load("thumbs/landscape.png")) * 100 + host().Height(Load("thumbs/landscape.png")), 16120);
  EXPECT_EQ(host().Width(Load("thumbs/portrait.png")) * 1000 + host().Height(Load("thumbs/portrait.png")), 120160);
  EXPECT_EQ(host().Width(Load("web.png")), 16);
}

// The help, the version and the list of members that match a pattern.
TEST_F(Batch, HelpVersionAndList) {
  const Outcome top = Picturehost({"--help"}), version = Picturehost({"--version"}), list = Picturehost({"list", "rotate9"});
  EXPECT_TRUE(top.status == 0 && Has(top.out, "--skip-existing") && version.status == 0) << top.err;
  // One member matches, under its class, with the first sentence of its entry.
  const std::string head = "extension Picture\n  method Rotate90QVT as picture\n      ";
  EXPECT_EQ(list.out.substr(0, head.size()), head) << list.out;
  EXPECT_EQ(std::count(list.out.begin(), list.out.end(), '\n'), 3) << list.out;
}

// Colours, booleans and options as people write them; a reason for each refusal.
TEST_F(Batch, ArgumentsAsPeopleWriteThemAndReasonsForRefusals) {
  Save("w.png", 3, 2, {0xFFFFFF, 0, 0xFFFFFF, 0, 0, 0});
  for (const char* white : {"&cFFFFFF", "#FFFFFF", "ffffff", "White"})
    EXPECT_EQ(Picturehost({"call", "CountColorQVT", white, "--on", dir_ / "w.png"}).out, "2\n") << white;
  Save("tall.png", 48, 64);
  for (const char* yes : {"1", "yes", "TRUE"}) {
    const Outcome fit = Picturehost({"call", "--on", dir_ / "tall.png", "ScaleQVT", yes, "--fit", "16x12", "-o", dir_ / "f.png"});
    ASSERT_EQ(fit.status, 0) << fit.err;
    EXPECT_EQ(host().Width(Load("f.png")) * 100 + host().Height(Load("f.png")), 912);  // 48 x 64 times 12/64
  }
  const std::pair<std::vector<std::string>, std::string> refusals[] = {
      {{"call", "--on", "sample:8x8", "RotateQTV", "3"}, "did you mean RotateQVT?"},
      {{"call", "--on", "sample:8x8", "RotateQVT", "30"}, "takes 2 argument(s), not 1:\n  RotateQVT(angle as double,background as color)"},
      {{"call", "--on", "sample:8x8", "ScaleQVT", "0", "60", "true"}, "must be 1..32767, not 0 and 60"},
      {{"call", "--on", "sample:8x8", "ScaleQVT", "12000", "12000", "no"}, "larger than the host makes"},
      {{"run", "PictureSepiaQVT", "--on", "sample:8x8", "-o", dir_ / "s.png"}, "Run was not called"},
      {{"call", "--on", dir_ / "w.png", "CloneQVT", "-o", dir_ / "w.png"}, "refusing to overwrite the input file"},
      {{"call", "--on", dir_ / "w.png", "CloneQVT", "-o", dir_ / "w.gif"}, "must end in .png, .jpg"}};
  for (const auto& [words, reason] : refusals) {
    const Outcome r = Picturehost(words);
    EXPECT_TRUE((r.status == 1 || r.status == 3) && Has(r.err, reason)) << r.status << " " << r.err;
  }
  EXPECT_EQ(Picturehost({"call", "--on", dir_ / "w.png", "Rotate90QVT", "-o", dir_ / "w.png", "--force"}).status, 0);
  EXPECT_EQ(host().Width(Load("w.png")), 2);
  // Histograms as JSON: 6 pixels, red 0 four times and 255 twice.
  const Outcome json = Picturehost({"call", "--on", dir_ / "w.png", "CountColorsQVT", "zeros:0", "zeros:0", "zeros:0", "0", "--json"});
  EXPECT_TRUE(Has(json.out, "\"red\": [4, 0, 0") && Has(json.out, ", 0, 2], \"blue\"") && Has(json.out, "\"count\": 6}"))
      << json.out;
  // A truncated JPEG and a PNG with transparency are read with a warning.
  ASSERT_EQ(Picturehost({"call", "--on", "sample:200x150", "CloneQVT", "-o", dir_ / "t.jpg"}).status, 0);
  fs::resize_file(dir_ / "t.jpg", 1000);
  GdkPixbuf* alpha = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 4, 4);
  gdk_pixbuf_fill(alpha, 0xFF000080);
  ASSERT_TRUE(gdk_pixbuf_save(alpha, (dir_ / "a.png").c_str(), "png", nullptr, nullptr));
  g_object_unref(alpha);
  EXPECT_TRUE(Has(Picturehost({"call", "--on", dir_ / "t.jpg", "HasMaskQVT"}).err, "truncated or damaged"));
  EXPECT_TRUE(Has(Picturehost({"call", "--on", dir_ / "a.png", "HasMaskQVT"}).err, "transparency is dropped"));
}

// Interrupted by SIGINT (Ctrl-C) mid-batch, every result there is complete;
// --skip-existing then finishes the batch, in two worker processes, with the
// results one process gives.
TEST_F(Batch, InterruptedBatchLeavesNoPartialFileAndResumes) {
  fs::create_directories(dir_ / "in");
  for (int i = 0; i < 5; ++i) Save("in/p" + std::to_string(i) + ".png", 1200, 800);
  std::vector<std::string> words = {PICTUREHOST_PATH, "--plugin", PluginPath(), "call", "--on", dir_ / "in/*.png",
                                    "RotateQVT", "10", "white", "--out", dir_ / "out/%n.png"};
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ), 0);
  const auto start = std::chrono::steady_clock::now();
  while (!fs::exists(dir_ / "out/p0.png") && std::chrono::steady_clock::now() - start < std::chrono::seconds(120))
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  size_t done = 0;
  for (const fs::directory_entry& f : fs::directory_iterator(dir_ / "out")) {
    EXPECT_EQ(f.path().filename().string().find('.'), 2u) << f.path();  // p<i>.png only, no temporary name
    EXPECT_NO_THROW(host().LoadPicture(f.path()));
    ++done;
  }
  const Outcome resumed =
      Picturehost({"call", "--on", dir_ / "in/*.png", "RotateQVT", "10", "white", "--out", dir_ / "out/%n.png",
                   "--skip-existing", "-j", "2"});
  ASSERT_EQ(resumed.status, 0) << resumed.err;
  EXPECT_TRUE(Has(resumed.err, std::to_string(5 - done) + " of 5 file(s) processed, " + std::to_string(done) + " skipped"))
      << resumed.err;
  ASSERT_EQ(Picturehost({"call", "--on", dir_ / "in/p4.png", "RotateQVT", "10", "white", "-o", dir_ / "one.png"}).status, 0);
  EXPECT_EQ(host().Pixels(Load("out/p4.png")), host().Pixels(Load("one.png")));
}

}  // namespace
