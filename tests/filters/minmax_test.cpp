// PictureMinMaxQVT through the host: strict comparisons, the first pixel on
// ties, the -1 positions, reset values on nil, and which triples each Find
// method writes.
#include <array>
#include <map>
#include <tuple>

#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

const char* const kQuantities[4] = {"Red", "Green", "Blue", "Sum"};

// The 24 property values, by name.
using Fields = std::map<std::string, int32_t>;

// A search: the maximum or minimum of quantity q.
struct Search { int q; bool max; };

// What one search finds: strictly greater (or less) replaces, in reading
// order; maxima start at 0 and minima at 255 (the sum's above any sum).
void Expect(Fields& f, const std::vector<uint32_t>& pixels, int32_t w, Search s) {
  int32_t bestX = -1, bestY = -1, best = s.max ? 0 : (s.q == 3 ? 766 : 255);
  for (size_t i = 0; i < pixels.size(); ++i) {
    const uint32_t p = pixels[i];
    const int32_t v = static_cast<int32_t>(s.q == 3 ? R(p) + G(p) + B(p) : Channel(p, s.q));
    if (s.max ? v > best : v < best) best = v, bestX = static_cast<int32_t>(i % w), bestY = static_cast<int32_t>(i / w);
  }
  const std::string prefix = std::string(kQuantities[s.q]) + (s.max ? "Max" : "Min");
  f[prefix + "X"] = bestX, f[prefix + "Y"] = bestY, f[prefix] = best;
}

class MinMax : public FilterTest {
 protected:
  Fields Read(const ph::Ref& o) {
    Fields f;
    for (const char* q : kQuantities)
      for (const char* m : {"Max", "Min"})
        for (const char* x : {"X", "Y", ""}) f[std::string(q) + m + x] = host().GetProperty(o, std::string(q) + m + x).AsInt();
    return f;
  }
  bool Find(const ph::Ref& o, const std::string& method, const ph::Ref& picture) { return Call(o, method, {picture}); }
};

// X, Y and value of one extreme.
std::array<int32_t, 3> Triple(const Fields& f, const std::string& name) {
  return {f.at(name + "X"), f.at(name + "Y"), f.at(name)};
}

TEST_F(MinMax, StrictComparisonsKeepTheFirstPixel) {
  // Largest red 200 at (5, 0) and (2, 1): the top row is walked first.
  // Smallest green 3 at (1, 1) and (4, 1); the sum's extremes tie as well.
  const std::vector<uint32_t> pixels = {
      Rgb(10, 50, 50), Rgb(20, 50, 50), Rgb(30, 50, 50), Rgb(40, 50, 50), Rgb(50, 50, 50), Rgb(200, 50, 9),
      Rgb(60, 50, 50), Rgb(70, 3, 50),  Rgb(200, 50, 9), Rgb(80, 50, 50), Rgb(90, 3, 50),  Rgb(100, 5, 5)};
  ph::Ref o = Make("PictureMinMaxQVT", {});
  EXPECT_TRUE(Find(o, "FindAll", Picture(6, 2, pixels)));
  const Fields f = Read(o);
  const std::pair<const char*, std::array<int32_t, 3>> handmade[] = {
      {"RedMax", {5, 0, 200}}, {"GreenMin", {1, 1, 3}}, {"SumMax", {5, 0, 259}}, {"RedMin", {0, 0, 10}}, {"SumMin", {0, 0, 110}}};
  for (const auto& [name, triple] : handmade) EXPECT_EQ(Triple(f, name), triple) << name;
  // Extremes no pixel passes have no position: red 0 is never above the
  // starting maximum 0, red 255 never below the starting minimum 255; the
  // sum's minimum starts above 765.
  const std::tuple<uint32_t, const char*, std::array<int32_t, 3>> flats[] = {
      {Rgb(0, 10, 10), "RedMax", {-1, -1, 0}},    {Rgb(0, 10, 10), "RedMin", {0, 0, 0}},
      {Rgb(255, 10, 10), "RedMax", {0, 0, 255}},  {Rgb(255, 10, 10), "RedMin", {-1, -1, 255}},
      {0xFFFFFF, "SumMax", {0, 0, 765}},          {0xFFFFFF, "SumMin", {0, 0, 765}}};
  for (const auto& [colour, name, triple] : flats) {
    EXPECT_TRUE(Find(o, "FindAll", Flat(3, 2, colour)));
    EXPECT_EQ(Triple(Read(o), name), triple) << name << " on " << colour;
  }
}

// Each method makes its own searches (against the rule on random pictures)
// and writes only their triples; with a nil picture it writes their reset
// values and returns false.
TEST_F(MinMax, EachMethodWritesOnlyItsOwnTriples) {
  // Find and FindMax methods search both extremes of their quantities,
  // FindMin methods only the minima; "All" is all four quantities.
  std::map<std::string, std::vector<Search>> methods;
  for (int q = 0; q <= 4; ++q) {
    const std::string what = q < 4 ? kQuantities[q] : "All";
    for (int k = q < 4 ? q : 0; k <= (q < 4 ? q : 3); ++k) {
      for (const std::string& name : {"Find" + what, "FindMax" + what}) methods[name].insert(methods[name].end(), {{k, true}, {k, false}});
      methods["FindMin" + what].push_back({k, false});
    }
  }
  const std::vector<Search>& all = methods["FindAll"];
  const std::vector<uint32_t> first = RandomPixels(6 * 4, 11);
  const std::vector<uint32_t> second = RandomPixels(5 * 3, 12);
  Fields before;
  for (const Search& s : all) Expect(before, first, 6, s);
  ph::Ref a = Picture(6, 4, first), b = Picture(5, 3, second);
  for (const auto& [method, searches] : methods) {
    for (bool nil : {false, true}) {
      ph::Ref o = Make("PictureMinMaxQVT", {});
      ASSERT_TRUE(Find(o, "FindAll", a));
      ASSERT_EQ(Read(o), before);
      Fields expected = before;
      for (const Search& s : searches) {
        // On nil: no position, maxima 0 and minima 255 (the sum's too).
        Expect(expected, nil ? std::vector<uint32_t>{} : second, 5, s);
        if (nil && !s.max) expected[std::string(kQuantities[s.q]) + "Min"] = 255;
      }
      EXPECT_EQ(Find(o, method, nil ? ph::Ref{} : b), !nil) << method;
      EXPECT_EQ(Read(o), expected) << method << (nil ? " on nil" : "");
    }
  }
}

}  // namespace
