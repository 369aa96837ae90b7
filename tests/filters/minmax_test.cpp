// PictureMinMaxQVT through the host: strict comparisons, the first pixel on
// ties, the -1 positions, reset values on nil, and which triples each Find
// method writes.
#include <array>
#include <map>

#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

const char* const kQuantities[4] = {"Red", "Green", "Blue", "Sum"};

// The 24 property values, by name.
using Fields = std::map<std::string, int32_t>;

// A search: the maximum or minimum of quantity q.
struct Search {
  int q;
  bool max;
};

// What one search finds: strictly greater (or less) replaces, in reading
// order; maxima start at 0 and minima at 255 (the sum's above any sum).
void Expect(Fields& f, const std::vector<uint32_t>& pixels, int32_t w, Search s) {
  int32_t bestX = -1, bestY = -1, best = s.max ? 0 : (s.q == 3 ? 766 : 255);
  for (size_t i = 0; i < pixels.size(); ++i) {
    const uint32_t p = pixels[i];
    const int32_t v = static_cast<int32_t>(s.q == 3 ? R(p) + G(p) + B(p) : Channel(p, s.q));
    if (s.max ? v > best : v < best) {
      best = v;
      bestX = static_cast<int32_t>(i % w);
      bestY = static_cast<int32_t>(i / w);
    }
  }
  const std::string prefix = std::string(kQuantities[s.q]) + (s.max ? "Max" : "Min");
  f[prefix + "X"] = bestX;
  f[prefix + "Y"] = bestY;
  f[prefix] = best;
}

class MinMax : public FilterTest {
 protected:
  Fields Read(const ph::Ref& o) {
    Fields f;
    for (const char* q : kQuantities)
      for (const char* m : {"Max", "Min"})
        for (const char* suffix : {"X", "Y", ""}) {
          const std::string name = std::string(q) + m + suffix;
          f[name] = Int(o, name);
        }
    return f;
  }
  bool Find(const ph::Ref& o, const std::string& method, const ph::Ref& picture) {
    return Call(o, method, {picture});
  }
};

TEST_F(MinMax, StrictComparisonsKeepTheFirstPixel) {
  // Largest red 200 at (5, 0) and (2, 1): the top row is walked first.
  // Smallest green 3 at (1, 1) and (4, 1); the sum's extremes tie as well.
  const int32_t w = 6;
  const std::vector<uint32_t> pixels = {
      Rgb(10, 50, 50), Rgb(20, 50, 50), Rgb(30, 50, 50), Rgb(40, 50, 50), Rgb(50, 50, 50), Rgb(200, 50, 9),
      Rgb(60, 50, 50), Rgb(70, 3, 50),  Rgb(200, 50, 9), Rgb(80, 50, 50), Rgb(90, 3, 50),  Rgb(100, 5, 5)};
  ph::Ref o = Make("PictureMinMaxQVT", {});
  EXPECT_TRUE(Find(o, "FindAll", Picture(w, 2, pixels)));
  const Fields f = Read(o);
  EXPECT_EQ((std::array{f.at("RedMaxX"), f.at("RedMaxY"), f.at("RedMax")}), (std::array{5, 0, 200}));
  EXPECT_EQ((std::array{f.at("GreenMinX"), f.at("GreenMinY"), f.at("GreenMin")}), (std::array{1, 1, 3}));
  EXPECT_EQ((std::array{f.at("SumMaxX"), f.at("SumMaxY"), f.at("SumMax")}), (std::array{5, 0, 259}));
  EXPECT_EQ((std::array{f.at("RedMinX"), f.at("RedMinY"), f.at("RedMin")}), (std::array{0, 0, 10}));
  EXPECT_EQ((std::array{f.at("SumMinX"), f.at("SumMinY"), f.at("SumMin")}), (std::array{0, 0, 110}));

  // The same against the rule on random pictures.
  for (uint32_t seed = 1; seed <= 3; ++seed) {
    const std::vector<uint32_t> random = RandomPixels(7 * 5, seed);
    EXPECT_TRUE(Find(o, "FindAll", Picture(7, 5, random)));
    Fields expected;
    for (int q = 0; q < 4; ++q)
      for (bool max : {true, false}) Expect(expected, random, 7, {q, max});
    EXPECT_EQ(Read(o), expected) << "seed " << seed;
  }
}

TEST_F(MinMax, ExtremesThatNoPixelPassesHaveNoPosition) {
  ph::Ref o = Make("PictureMinMaxQVT", {});
  // Red 0 everywhere: no pixel is above the starting maximum 0.
  EXPECT_TRUE(Find(o, "FindRed", Flat(3, 2, Rgb(0, 10, 10))));
  Fields f = Read(o);
  EXPECT_EQ((std::array{f["RedMaxX"], f["RedMaxY"], f["RedMax"]}), (std::array{-1, -1, 0}));
  EXPECT_EQ((std::array{f["RedMinX"], f["RedMinY"], f["RedMin"]}), (std::array{0, 0, 0}));
  // Red 255 everywhere: none below the starting minimum 255.
  EXPECT_TRUE(Find(o, "FindRed", Flat(3, 2, Rgb(255, 10, 10))));
  f = Read(o);
  EXPECT_EQ((std::array{f["RedMaxX"], f["RedMaxY"], f["RedMax"]}), (std::array{0, 0, 255}));
  EXPECT_EQ((std::array{f["RedMinX"], f["RedMinY"], f["RedMin"]}), (std::array{-1, -1, 255}));
  // The sum's minimum starts above 765: white still has a position.
  EXPECT_TRUE(Find(o, "FindSum", Flat(3, 2, 0xFFFFFF)));
  f = Read(o);
  EXPECT_EQ((std::array{f["SumMaxX"], f["SumMaxY"], f["SumMax"]}), (std::array{0, 0, 765}));
  EXPECT_EQ((std::array{f["SumMinX"], f["SumMinY"], f["SumMin"]}), (std::array{0, 0, 765}));
}

// Each method makes its own searches and writes only their triples; with a
// nil picture it writes their reset values and returns false.
TEST_F(MinMax, EachMethodWritesOnlyItsOwnTriples) {
  const std::vector<Search> all = {{0, true}, {0, false}, {1, true}, {1, false},
                                   {2, true}, {2, false}, {3, true}, {3, false}};
  const std::map<std::string, std::vector<Search>> methods = {
      {"FindAll", all},
      {"FindMaxAll", all},
      {"FindMinAll", {{0, false}, {1, false}, {2, false}, {3, false}}},
      {"FindRed", {{0, true}, {0, false}}},
      {"FindGreen", {{1, true}, {1, false}}},
      {"FindBlue", {{2, true}, {2, false}}},
      {"FindSum", {{3, true}, {3, false}}},
      {"FindMaxRed", {{0, true}, {0, false}}},
      {"FindMaxGreen", {{1, true}, {1, false}}},
      {"FindMaxBlue", {{2, true}, {2, false}}},
      {"FindMaxSum", {{3, true}, {3, false}}},
      {"FindMinRed", {{0, false}}},
      {"FindMinGreen", {{1, false}}},
      {"FindMinBlue", {{2, false}}},
      {"FindMinSum", {{3, false}}},
  };
  const std::vector<uint32_t> first = RandomPixels(6 * 4, 11);
  const std::vector<uint32_t> second = RandomPixels(5 * 3, 12);
  Fields before, reset;
  for (const Search& s : all) {
    Expect(before, first, 6, s);
    Expect(reset, {}, 1, s);
    if (!s.max) reset[std::string(kQuantities[s.q]) + "Min"] = 255;  // the sum's too
  }
  ph::Ref a = Picture(6, 4, first), b = Picture(5, 3, second);
  for (const auto& [method, searches] : methods) {
    for (bool nil : {false, true}) {
      ph::Ref o = Make("PictureMinMaxQVT", {});
      ASSERT_TRUE(Find(o, "FindAll", a));
      ASSERT_EQ(Read(o), before);
      Fields expected = before;
      for (const Search& s : searches) {
        if (nil) {
          for (const char* suffix : {"X", "Y", ""}) {
            const std::string name = std::string(kQuantities[s.q]) + (s.max ? "Max" : "Min") + suffix;
            expected[name] = reset[name];
          }
        } else {
          Expect(expected, second, 5, s);
        }
      }
      EXPECT_EQ(Find(o, method, nil ? ph::Ref{} : b), !nil) << method;
      EXPECT_EQ(Read(o), expected) << method << (nil ? " on nil" : "");
    }
  }
}

}  // namespace
