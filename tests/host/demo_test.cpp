// picturehost demo on a small sample: every registration reached and shown,
// every image on the page present, and the shown values true to the input.
#include <cmath>
#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "tests/host/picturehost_runner.h"
#include "tests/support/host_fixture.h"

namespace {

namespace fs = std::filesystem;

constexpr int32_t kW = 48, kH = 36;

struct Registered {
  std::set<std::string> keys;   // as the page's sections name them
  std::set<std::string> names;  // method, global and class names
};

std::string NameOf(const std::string& declaration) {
  return declaration.substr(0, declaration.find_first_of("( "));
}

// The registrations as `picturehost list` prints them.
Registered FromList(const std::string& list) {
  Registered r;
  std::istringstream lines(list);
  std::string line, extension;
  while (std::getline(lines, line)) {
    if (line.rfind("class ", 0) == 0) {
      extension.clear();
      r.keys.insert("class:" + line.substr(6));
      r.names.insert(line.substr(6));
    } else if (line.rfind("extension ", 0) == 0) {
      extension = line.substr(10);
    } else if (line.rfind("global ", 0) == 0) {
      extension.clear();
      r.keys.insert("global:" + line.substr(7));
      r.names.insert(NameOf(line.substr(7)));
    } else if (!extension.empty() && line.rfind("  method ", 0) == 0) {
      r.keys.insert(extension + ":" + line.substr(9));
      r.names.insert(NameOf(line.substr(9)));
    }
  }
  return r;
}

class Demo : public HostTest {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir("demo");
    run_ = new Outcome(Picturehost({"demo", "--on", "sample:" + std::to_string(kW) + "x" + std::to_string(kH), "--out-dir",
                                dir_->path().string()}));
    list_ = new Outcome(Picturehost({"list"}));
    page_ = new std::string(Slurp(dir_->path() / "index.html"));
  }
  static void TearDownTestSuite() {
    delete page_;
    delete list_;
    delete run_;
    delete dir_;
  }

  // The part of the page between a section's opening and its end.
  static std::string Section(const std::string& key) {
    const size_t at = page_->find("data-key=\"" + key + "\"");
    if (at == std::string::npos) return "";
    return page_->substr(at, page_->find("</section>", at) - at);
  }

  static TempDir* dir_;
  static Outcome* run_;
  static Outcome* list_;
  static std::string* page_;
};

TempDir* Demo::dir_ = nullptr;
Outcome* Demo::run_ = nullptr;
Outcome* Demo::list_ = nullptr;
std::string* Demo::page_ = nullptr;

TEST_F(Demo, RunsCleanlyAndWritesPageAndGallery) {
  EXPECT_EQ(run_->status, 0) << run_->err;
  EXPECT_EQ(run_->err.find("accounting"), std::string::npos) << run_->err;
  ASSERT_FALSE(page_->empty());
  ph::Ref gallery = host().LoadPicture((dir_->path() / "gallery.png").string());
  // One thumbnail for every picture result on the page, six a row, each cell
  // 172 pixels wide and 166 high, under a 44-pixel title.
  size_t pictures = 0;
  for (size_t at = page_->find("<figure><a href="); at != std::string::npos; at = page_->find("<figure><a href=", at + 1)) {
    ++pictures;
  }
  ASSERT_GT(pictures, 30u);
  EXPECT_EQ(host().Width(gallery), 12 + 6 * 172);
  EXPECT_EQ(host().Height(gallery), static_cast<int32_t>(44 + (pictures + 5) / 6 * 166 + 6));
}

TEST_F(Demo, EveryRegistrationHasASectionThatACallReached) {
  ASSERT_EQ(list_->status, 0);
  const Registered registered = FromList(list_->out);
  ASSERT_GT(registered.keys.size(), 60u);  // the list was read
  std::map<std::string, int> onPage;
  const std::regex section("data-key=\"([^\"]*)\" data-results=\"([0-9]+)\"");
  for (auto it = std::sregex_iterator(page_->begin(), page_->end(), section); it != std::sregex_iterator(); ++it) {
    onPage[(*it)[1]] = std::stoi((*it)[2]);
  }
  EXPECT_EQ(onPage.size(), registered.keys.size());
  for (const std::string& key : registered.keys) {
    ASSERT_TRUE(onPage.count(key)) << "no section for " << key;
    EXPECT_GE(onPage[key], 1) << "no call reached " << key;
  }
}

TEST_F(Demo, SummaryHasALineForEveryMethodAndClass) {
  const Registered registered = FromList(list_->out);
  const size_t start = run_->out.find("\nresults in ");
  ASSERT_NE(start, std::string::npos) << run_->out;
  const std::string summary = run_->out.substr(start);
  for (const std::string& name : registered.names) {
    EXPECT_NE(summary.find(name), std::string::npos) << name << " missing from the summary";
  }
  EXPECT_EQ(summary.find(" error: "), std::string::npos) << summary;
}

TEST_F(Demo, EveryImageOnThePageExistsWithItsSize) {
  const std::regex image("<img src=\"([^\"]+)\" width=\"([0-9]+)\" height=\"([0-9]+)\"");
  int images = 0;
  for (auto it = std::sregex_iterator(page_->begin(), page_->end(), image); it != std::sregex_iterator(); ++it) {
    const fs::path file = dir_->path() / (*it)[1].str();
    ASSERT_TRUE(fs::exists(file)) << file;
    ph::Ref p = host().LoadPicture(file.string());
    EXPECT_EQ(host().Width(p), std::stoi((*it)[2])) << file;
    EXPECT_EQ(host().Height(p), std::stoi((*it)[3])) << file;
    ++images;
  }
  EXPECT_GT(images, 40);
  // Every link to a saved file leads to one.
  const std::regex link("<a href=\"([^\"#]+)\"");
  for (auto it = std::sregex_iterator(page_->begin(), page_->end(), link); it != std::sregex_iterator(); ++it) {
    EXPECT_TRUE(fs::exists(dir_->path() / (*it)[1].str())) << (*it)[1];
  }
}

// A quarter turn counter-clockwise: result (x, y) is source (W-1-y, x).
std::vector<uint32_t> QuarterTurn(const std::vector<uint32_t>& src, int32_t w, int32_t h) {
  std::vector<uint32_t> out(src.size());
  for (int32_t y = 0; y < w; ++y) {
    for (int32_t x = 0; x < h; ++x) out[static_cast<size_t>(y) * h + x] = src[static_cast<size_t>(x) * w + (w - 1 - y)];
  }
  return out;
}

TEST_F(Demo, PictureFilesAreNamedAfterTheCallAndHoldItsResult) {
  ph::Ref turned = host().LoadPicture((dir_->path() / "Rotate90QVT.png").string());
  EXPECT_EQ(host().Pixels(turned), QuarterTurn(ph::SamplePixels(kW, kH), kW, kH));
  // A rotation by 30 degrees is trunc(W cos + H sin) + 1 wide and trunc(H cos + W sin) + 1 high.
  const double t = 30 * 3.141592653589793 / 180;
  ph::Ref rotated = host().LoadPicture((dir_->path() / "RotateQVT_30_cFFFFFF.png").string());
  EXPECT_EQ(host().Width(rotated), static_cast<int32_t>(kW * std::cos(t) + kH * std::sin(t)) + 1);
  EXPECT_EQ(host().Height(rotated), static_cast<int32_t>(kH * std::cos(t) + kW * std::sin(t)) + 1);
  ph::Ref input = host().LoadPicture((dir_->path() / "input.png").string());
  EXPECT_EQ(host().Pixels(input), ph::SamplePixels(kW, kH));
}

TEST_F(Demo, HistogramsCountEveryPixelOfTheInput) {
  const std::vector<uint32_t> pixels = ph::SamplePixels(kW, kH);
  std::map<std::string, int> shift{{"red", 16}, {"green", 8}, {"blue", 0}};
  const std::regex chart("<svg class=\"histogram\" data-channel=\"([a-z]+)\" data-total=\"([0-9]+)\"");
  std::set<std::string> seen;
  for (auto it = std::sregex_iterator(page_->begin(), page_->end(), chart); it != std::sregex_iterator(); ++it) {
    const std::string channel = (*it)[1];
    ASSERT_TRUE(shift.count(channel)) << channel;
    seen.insert(channel);
    EXPECT_EQ(std::stoi((*it)[2]), kW * kH) << channel;
    // The bar of every level holds the number of input pixels at that level.
    const size_t from = static_cast<size_t>(it->position(0));
    const std::string svg = page_->substr(from, page_->find("</svg>", from) - from);
    std::map<int, int> expected;
    for (uint32_t p : pixels) ++expected[static_cast<int>((p >> shift[channel]) & 0xFF)];
    for (const auto& [level, count] : expected) {
      EXPECT_NE(svg.find("<title>" + std::to_string(level) + ": " + std::to_string(count) + "</title>"),
                std::string::npos)
          << channel << " level " << level;
    }
  }
  EXPECT_EQ(seen.size(), 3u);
}

TEST_F(Demo, MinimaAndMaximaAreMarkedWhereTheFirstSuchPixelIs) {
  // The finder's rule, written out: walk rows from the top, each from the
  // left; a maximum starts at 0, a channel minimum at 255, the sum's minimum
  // above every sum, and only a strictly better pixel replaces the one held.
  struct Held {
    int x = -1, y = -1, value;
  };
  const std::vector<uint32_t> pixels = ph::SamplePixels(kW, kH);
  std::map<std::string, Held> expected;
  const char* names[] = {"Red", "Green", "Blue", "Sum"};
  for (const char* n : names) {
    expected[std::string(n) + "Max"] = Held{-1, -1, 0};
    expected[std::string(n) + "Min"] = Held{-1, -1, std::string(n) == "Sum" ? 766 : 255};
  }
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      const uint32_t p = pixels[static_cast<size_t>(y) * kW + x];
      const int q[] = {static_cast<int>(p >> 16 & 0xFF), static_cast<int>(p >> 8 & 0xFF), static_cast<int>(p & 0xFF),
                       static_cast<int>((p >> 16 & 0xFF) + (p >> 8 & 0xFF) + (p & 0xFF))};
      for (int i = 0; i < 4; ++i) {
        Held& mx = expected[std::string(names[i]) + "Max"];
        Held& mn = expected[std::string(names[i]) + "Min"];
        if (q[i] > mx.value) mx = {x, y, q[i]};
        if (q[i] < mn.value) mn = {x, y, q[i]};
      }
    }
  }
  const std::regex mark("<g class=\"mark\" data-name=\"([A-Za-z]+)\" data-x=\"(-?[0-9]+)\" data-y=\"(-?[0-9]+)\" "
                        "data-value=\"([0-9]+)\"");
  std::map<std::string, Held> marked;
  for (auto it = std::sregex_iterator(page_->begin(), page_->end(), mark); it != std::sregex_iterator(); ++it) {
    marked[(*it)[1]] = Held{std::stoi((*it)[2]), std::stoi((*it)[3]), std::stoi((*it)[4])};
  }
  for (const auto& [name, held] : expected) {
    if (held.x < 0) {
      EXPECT_FALSE(marked.count(name)) << name << " has no position to mark";
      continue;
    }
    ASSERT_TRUE(marked.count(name)) << name;
    EXPECT_EQ(marked[name].x, held.x) << name;
    EXPECT_EQ(marked[name].y, held.y) << name;
    EXPECT_EQ(marked[name].value, held.value) << name;
  }
}

TEST_F(Demo, PalettesAreShownAsSwatches) {
  const std::string grey = Section("global:NewGrayPaletteQVT as PaletteQVT");
  ASSERT_FALSE(grey.empty());
  EXPECT_NE(grey.find("<svg class=\"palette\" data-count=\"256\""), std::string::npos);
  EXPECT_NE(grey.find("data-index=\"128\" data-colour=\"#808080\""), std::string::npos);
  EXPECT_NE(grey.find("data-index=\"255\" data-colour=\"#FFFFFF\""), std::string::npos);
  // The web palette runs from white down to black over its first 216 entries.
  const std::string web = Section("global:NewWebPaletteQVT as PaletteQVT");
  EXPECT_NE(web.find("data-index=\"0\" data-colour=\"#FFFFFF\""), std::string::npos);
  EXPECT_NE(web.find("data-index=\"5\" data-colour=\"#FFFF00\""), std::string::npos);
  EXPECT_NE(web.find("data-index=\"215\" data-colour=\"#000000\""), std::string::npos);
}

}  // namespace
