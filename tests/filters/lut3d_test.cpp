// PictureLut3DQVT through the host, against a reference that finds the
// tetrahedron by sorting the three fractions and walks the cell's corners in
// that order (no case table, no trilinear weights).
#include <algorithm>
#include <array>
#include <cmath>

#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

constexpr int32_t kNodes = 18;

size_t Index(int32_t r, int32_t g, int32_t b, int32_t x) {
  return static_cast<size_t>(((r * kNodes + g) * kNodes + b) * 3 + x);
}

uint32_t Component(double v) { return std::isnan(v) || v < 0 ? 0 : v > 255 ? 255 : static_cast<uint32_t>(std::trunc(v)); }

// The three fractions sorted from the largest; ties keep the axis order
// red, green, blue (with equal fractions the order does not change the sum).
std::array<int, 3> Order(const double f[3]) {
  std::array<int, 3> order = {0, 1, 2};
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return f[a] > f[b]; });
  return order;
}

uint32_t Reference(const std::vector<double>& table, uint32_t colour) {
  int32_t low[3], high[3];
  double f[3];
  for (int k = 0; k < 3; ++k) {
    const int32_t c = static_cast<int32_t>(Channel(colour, k));
    low[k] = c / 17;
    high[k] = std::min(low[k] + 1, 15);
    f[k] = static_cast<double>(c - 17 * low[k]) / 17.0;
  }
  const std::array<int, 3> order = Order(f);
  // Corners A, B, C, D: from the lower corner, raise one axis at a time.
  int32_t corner[4][3];
  std::copy(low, low + 3, corner[0]);
  for (int step = 0; step < 3; ++step) {
    std::copy(corner[step], corner[step] + 3, corner[step + 1]);
    corner[step + 1][order[step]] = high[order[step]];
  }
  const double weight[4] = {1.0 - f[order[0]], f[order[0]] - f[order[1]],
                            f[order[1]] - f[order[2]], f[order[2]]};
  uint32_t out = 0;
  for (int x = 0; x < 3; ++x) {
    double v = 0;
    for (int n = 0; n < 4; ++n) v += weight[n] * table[Index(corner[n][0], corner[n][1], corner[n][2], x)];
    out |= Component(v) << (16 - 8 * x);
  }
  return out;
}

class Lut3D : public FilterTest {
 protected:
  // An object holding `table` (the zero entries are the host's zeros).
  ph::Ref WithTable(const std::vector<double>& table) {
    ph::Ref o = Make("PictureLut3DQVT", {});
    for (int32_t i = 0; i < int32_t(table.size()); ++i)
      if (table[i] != 0.0) Apply(o, {{"Table", {i / 972, i / 54 % 18, i / 3 % 18, i % 3}, table[i]}});
    return o;
  }
  std::vector<uint32_t> Map(const ph::Ref& o, const std::vector<uint32_t>& pixels) {
    Set(o, "SourcePicture", Picture(int32_t(pixels.size()), 1, pixels));
    return RunOn(o);
  }
};

TEST_F(Lut3D, InterpolatesInsideOneTetrahedronPerPixel) {
  // Random entries from -20 to 275 at the nodes a run uses; nodes 16 and 17
  // hold values that would show if they were ever read.
  std::mt19937 engine(1234);
  std::uniform_real_distribution<double> entry(-20.0, 275.0);
  std::vector<double> table(static_cast<size_t>(kNodes) * kNodes * kNodes * 3);
  for (size_t i = 0; i < table.size(); ++i) {
    const bool used = i / 972 < 16 && i / 54 % 18 < 16 && i / 3 % 18 < 16;  // r, g and b below node 16
    table[i] = used ? entry(engine) : (i % 3 == 1 ? NAN : 1e9);
  }
  ph::Ref o = WithTable(table);

  // Colours between the nodes: one of each fraction order, with and without
  // ties, then random colours.
  // Node colours (255 is node 15) sit on one node with weight 1.
  std::vector<uint32_t> colours = {
      Rgb(22, 26, 19), Rgb(19, 26, 22), Rgb(17, 18, 20), Rgb(20, 17, 22),  // g>=r>=b, g>=b>r, b>g>=r, b>=r>g
      Rgb(22, 17, 20), Rgb(22, 20, 18), Rgb(25, 25, 25), Rgb(25, 25, 20),  // r>b>=g, r>g>b, ties
      Rgb(20, 25, 25), Rgb(25, 20, 25), Rgb(254, 253, 252), Rgb(255, 8, 254),
      Rgb(8, 0, 0),    Rgb(0, 8, 0),    Rgb(0, 0, 8),    Rgb(238, 239, 240)};
  for (uint32_t n = 0; n < 16 * 16 * 16; ++n) colours.push_back(Rgb(17 * (n / 256), 17 * (n / 16 % 16), 17 * (n % 16)));
  const std::vector<uint32_t> random = RandomPixels(3000, 99);
  colours.insert(colours.end(), random.begin(), random.end());
  const std::vector<uint32_t> result = Map(o, colours);
  for (size_t i = 0; i < colours.size(); ++i) EXPECT_EQ(result[i], Reference(table, colours[i])) << std::hex << colours[i];
}

// (8, 0, 0) lies on the r > b >= g tetrahedron: nodes (0,0,0), (1,0,0),
// (1,0,1), (1,1,1), the last two with weight 0. Infinite entries elsewhere in
// the cell would turn any other choice into not-a-number, hence 0.
TEST_F(Lut3D, PixelEightZeroZeroReadsOnlyItsTetrahedron) {
  std::vector<double> table(static_cast<size_t>(kNodes) * kNodes * kNodes * 3, 0.0);
  const double a[3] = {0, 100, 200}, b[3] = {170, 100, 0};
  for (int x = 0; x < 3; ++x) {
    table[Index(0, 0, 0, x)] = a[x];
    table[Index(1, 0, 0, x)] = b[x];
    table[Index(1, 0, 1, x)] = 50;
    table[Index(1, 1, 1, x)] = 60;
    for (auto [r, g, bl] : {std::array{0, 1, 0}, std::array{0, 0, 1}, std::array{0, 1, 1},
                            std::array{1, 1, 0}})
      table[Index(r, g, bl, x)] = INFINITY;
  }
  ph::Ref o = WithTable(table);
  // (9/17) * A + (8/17) * B: red 80, green 100, blue 105.88 -> 105.
  EXPECT_EQ(Map(o, {Rgb(8, 0, 0)}), std::vector<uint32_t>{Rgb(80, 100, 105)});
}

TEST_F(Lut3D, EntriesAreClampedToTheChannelRange) {
  auto entry = [](int32_t r, int32_t g, int32_t b, int32_t x, double v) { return Setting{"Table", {r, g, b, x}, v}; };
  ph::Ref o = Make("PictureLut3DQVT", {}, {entry(15, 15, 15, 0, 300.0), entry(15, 15, 15, 1, -5.0), entry(15, 15, 15, 2, NAN),
                                           entry(0, 0, 0, 0, 254.9)});
  EXPECT_EQ(Map(o, {0xFFFFFF, 0}), (std::vector<uint32_t>{Rgb(255, 0, 0), Rgb(254, 0, 0)}));
}

}  // namespace
