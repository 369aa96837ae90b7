// PictureMinMaxQVT through the host: strict comparisons, the first pixel on
// ties, the -1 positions and the reset values on nil.
#include <array>
#include <map>
#include <tuple>

#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

const char* const kQuantities[4] = {"Red", "Green", "Blue", "Sum"};

// The 24 property values, by name.
using Fields = std::map<std::string, int32_t>;

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

}  // namespace
