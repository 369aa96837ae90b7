// picturehost demo on a small sample: every registration reached and shown,
// every image on the page present, and the shown values true to the input.
#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"
#include "tests/support/pixels.h"

namespace {

namespace fs = std::filesystem;

constexpr int32_t kW = 48, kH = 36;

// Every match of `pattern` on `text`, as its groups.
std::vector<std::smatch> All(const std::string& text, const std::string& pattern) {
  const std::regex re(pattern);
  return {std::sregex_iterator(text.begin(), text.end(), re), std::sregex_iterator()};
}

class Demo : public HostTest {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir("demo");
    run_ = new Outcome(Picturehost({"demo", "--on", "sample:48x36", "--out-dir", dir_->path().string()}));
    page_ = new std::string(Slurp(dir_->path() / "index.html"));
  }
  static void TearDownTestSuite() { delete page_, delete run_, delete dir_; }
  // The part of the page between a section's opening and its end.
  static std::string Section(const std::string& key) {
    const size_t at = page_->find("data-key=\"" + key + "\"");
    return at == std::string::npos ? "" : page_->substr(at, page_->find("</section>", at) - at);
  }
  ph::Ref Load(const std::string& name) { return host().LoadPicture((dir_->path() / name).string()); }

  static inline TempDir* dir_ = nullptr;
  static inline Outcome* run_ = nullptr;
  static inline std::string* page_ = nullptr;
};

// The run is clean; the gallery has one thumbnail for every picture result
// on the page, six a row, each cell 172 pixels wide and 166 high, under a
// 44-pixel title; every image and link on the page exists, images at their
// stated sizes.
TEST_F(Demo, RunsCleanlyAndWritesPageGalleryAndImages) {
  EXPECT_EQ(run_->status, 0) << run_->err;
  EXPECT_EQ(run_->err.find("accounting"), std::string::npos) << run_->err;
  const size_t pictures = All(*page_, "<figure><a href=").size();
  ASSERT_GT(pictures, 30u);
  ph::Ref gallery = Load("gallery.png");
  EXPECT_EQ(host().Width(gallery), 12 + 6 * 172);
  EXPECT_EQ(host().Height(gallery), static_cast<int32_t>(44 + (pictures + 5) / 6 * 166 + 6));
  const auto images = All(*page_, "<img src=\"([^\"]+)\" width=\"([0-9]+)\" height=\"([0-9]+)\"");
  EXPECT_GT(images.size(), 40u);
  for (const std::smatch& m : images) {
    ASSERT_TRUE(fs::exists(dir_->path() / m[1].str())) << m[1];
    ph::Ref p = Load(m[1]);
    EXPECT_EQ(std::pair(host().Width(p), host().Height(p)), std::pair(std::stoi(m[2]), std::stoi(m[3]))) << m[1];
  }
  for (const std::smatch& m : All(*page_, "<a href=\"([^\"#]+)\"")) EXPECT_TRUE(fs::exists(dir_->path() / m[1].str())) << m[1];
}

// Each registration has a section that a call reached and a summary line, the
// registrations counted as `picturehost list` prints them.
TEST_F(Demo, EveryRegistrationIsShownAndSummarised) {
  const Outcome list = Picturehost({"list"});
  ASSERT_EQ(list.status, 0);
  std::set<std::string> keys, names;
  std::string extension;
  const std::string lines = "\n" + list.out;  // the matches point into it
  for (const std::smatch& m : All(lines, "\n(class|extension|global|  method) ([^\n(]*)([^\n]*)")) {
    const std::string kind = m[1], name = m[2], rest = m[3];
    if (kind != "  method") extension = kind == "extension" ? name : "";
    if (kind == "class") keys.insert("class:" + name);
    if (kind == "global") keys.insert("global:" + name + rest);
    if (kind == "  method" && !extension.empty()) keys.insert(extension + ":" + name + rest);
    if (kind != "extension" && (kind != "  method" || !extension.empty())) names.insert(name.substr(0, name.find(' ')));
  }
  ASSERT_GT(keys.size(), 60u);
  std::map<std::string, int> onPage;
  for (const std::smatch& m : All(*page_, "data-key=\"([^\"]*)\" data-results=\"([0-9]+)\"")) onPage[m[1]] = std::stoi(m[2]);
  EXPECT_EQ(onPage.size(), keys.size());
  for (const std::string& key : keys) EXPECT_GE(onPage[key], 1) << "no call reached " << key;
  const size_t start = run_->out.find("\nresults in ");
  ASSERT_NE(start, std::string::npos) << run_->out;
  const std::string summary = run_->out.substr(start);
  for (const std::string& name : names) EXPECT_NE(summary.find(name), std::string::npos) << name << " not summarised";
  EXPECT_EQ(summary.find(" error: "), std::string::npos) << summary;
}

// Picture files are named after the call and hold its result; the shown
// histograms, marks and swatches are true to the input.
TEST_F(Demo, ShownResultsAreTrueToTheInput) {
  const std::vector<uint32_t> pixels = ph::SamplePixels(kW, kH);
  EXPECT_EQ(host().Pixels(Load("input.png")), pixels);
  EXPECT_EQ(host().Pixels(Load("Rotate90QVT.png")), testpix::QuarterTurn(pixels, kW, kH));

  // The bar of every level holds the number of input pixels at that level.
  const std::map<std::string, int> channel{{"red", 0}, {"green", 1}, {"blue", 2}};
  std::set<std::string> seen;
  for (const std::smatch& m : All(*page_, "<svg class=\"histogram\" data-channel=\"([a-z]+)\" data-total=\"([0-9]+)\"")) {
    ASSERT_TRUE(channel.count(m[1])) << m[1];
    seen.insert(m[1]);
    EXPECT_EQ(std::stoi(m[2]), kW * kH) << m[1];
    const std::string svg = page_->substr(m.position(0), page_->find("</svg>", m.position(0)) - m.position(0));
    std::map<uint32_t, int> expected;
    for (uint32_t p : pixels) ++expected[testpix::Channel(p, channel.at(m[1]))];
    for (const auto& [level, count] : expected)
      EXPECT_NE(svg.find("<title>" + std::to_string(level) + ": " + std::to_string(count) + "</title>"), std::string::npos)
          << m[1] << " level " << level;
  }
  EXPECT_EQ(seen.size(), 3u);

  // The marks show what the finder reports, and nothing where it reports no position.
  ph::Ref finder = host().NewInstance("PictureMinMaxQVT");
  ASSERT_TRUE(host().CallMethod(finder, "FindAll", {Picture(kW, kH, pixels)}).AsBool());
  std::map<std::string, std::string> marked;
  for (const std::smatch& m :
       All(*page_, "<g class=\"mark\" data-name=\"([A-Za-z]+)\" data-x=\"(-?[0-9]+)\" data-y=\"(-?[0-9]+)\" data-value=\"([0-9]+)\""))
    marked[m[1]] = m[2].str() + "," + m[3].str() + "=" + m[4].str();
  for (const char* q : {"Red", "Green", "Blue", "Sum"}) {
    for (const char* e : {"Max", "Min"}) {
      const std::string name = std::string(q) + e;
      auto get = [&](const std::string& p) { return std::to_string(host().GetProperty(finder, name + p).AsInt()); };
      EXPECT_EQ(marked.count(name) ? marked[name] : "none", get("X") == "-1" ? "none" : get("X") + "," + get("Y") + "=" + get(""))
          << name;
    }
  }

  // Palettes as swatches: the grey ramp, and the web palette from white down
  // to black over its first 216 entries.
  const std::string grey = Section("global:NewGrayPaletteQVT as PaletteQVT");
  const std::string web = Section("global:NewWebPaletteQVT as PaletteQVT");
  EXPECT_NE(grey.find("<svg class=\"palette\" data-count=\"256\""), std::string::npos);
  for (const auto& [section, swatch] : {std::pair{grey, "\"128\" data-colour=\"#808080\""}, {grey, "\"255\" data-colour=\"#FFFFFF\""},
                                        {web, "\"0\" data-colour=\"#FFFFFF\""}, {web, "\"5\" data-colour=\"#FFFF00\""},
                                        {web, "\"215\" data-colour=\"#000000\""}})
    EXPECT_NE(section.find(std::string("data-index=") + swatch), std::string::npos) << swatch;
}

}  // namespace
