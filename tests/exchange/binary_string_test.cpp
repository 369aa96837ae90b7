// The "PPIC" binary string form through the emulated host: the written bytes,
// round trips, and the strings the reader must refuse.
#include "tests/support/host_fixture.h"
#include "tests/support/pixels.h"

namespace {

using Bytes = std::vector<uint8_t>;

void PutWord(Bytes& s, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) s[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

// A string laid out by hand: header fields as given, then `pixels` at `offset`.
Bytes Handmade(uint32_t width, uint32_t height, uint32_t offset, const Bytes& pixels, uint32_t format = 32) {
  Bytes s = {'P', 'P', 'I', 'C'};
  s.resize(offset + pixels.size(), 0);
  for (auto [at, v] : {std::pair{4, uint32_t(s.size())}, {8, width}, {12, height}, {16, format}, {20, offset}}) PutWord(s, at, v);
  std::copy(pixels.begin(), pixels.end(), s.begin() + offset);
  return s;
}

class BinaryStrings : public HostTest {
 protected:
  Bytes Write(const ph::Ref& picture) {
    ph::Value s = host().CallGlobal("PicturetoBinaryStringQVT", {picture});
    EXPECT_FALSE(s.IsNil());
    return s.IsNil() ? Bytes{} : host().Bytes(s.AsRef());
  }
  ph::Value Read(const Bytes& bytes) {
    return host().CallGlobal("BinaryStringtoPictureQVT", {host().NewString(std::string(bytes.begin(), bytes.end()))});
  }
};

TEST_F(BinaryStrings, WrittenBytesAndRoundTrips) {
  // The 46-byte example, big-endian.
  Bytes example = {'P', 'P', 'I', 'C', 0, 0, 0, 46, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 32, 0, 0, 0, 40};
  example.resize(40, 0);  // 16 reserved bytes
  example.insert(example.end(), {0xFF, 0, 0, 0, 0, 0xFF});
  EXPECT_EQ(Write(Picture(2, 1, {0xFF0000, 0x0000FF})), example);
  for (auto [w, h] : {std::pair{1, 1}, {13, 7}, {64, 3}}) {
    const std::vector<uint32_t> pixels = testpix::RandomPixels(size_t(w) * h, 11 + w);
    const Bytes s = Write(Picture(w, h, pixels));
    // Pixel data from offset 40, rows without padding, red green blue.
    Bytes data;
    for (uint32_t c : pixels) data.insert(data.end(), {uint8_t(c >> 16), uint8_t(c >> 8), uint8_t(c)});
    ASSERT_EQ(s.size(), 40u + data.size());
    EXPECT_EQ(Bytes(s.begin() + 40, s.end()), data);
    ph::Ref back = AsPicture(Read(s));
    EXPECT_EQ(host().Width(back), w);
    EXPECT_EQ(host().Pixels(back), pixels);
  }
  // A picture read through its clone is written too; no picture, no string.
  ph::Ref foreign = host().NewForeignPicture(2, 1, std::vector<uint32_t>{0x010203, 0x040506});
  EXPECT_EQ(Write(foreign), Handmade(2, 1, 40, {1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(host().CallGlobal("PicturetoBinaryStringQVT", {ph::Ref()}).IsNil());
}

TEST_F(BinaryStrings, DataOffsetAndFormatFieldAsTheStringSays) {
  // Four spare bytes after the header, counted in the length; any format value.
  Bytes s = Handmade(2, 1, 44, {10, 20, 30, 40, 50, 60}, 0xDEADBEEF);
  s[40] = s[41] = s[42] = s[43] = 0x77;
  s[30] = 0x99;  // reserved bytes are not examined either
  EXPECT_EQ(host().Pixels(AsPicture(Read(s))), (std::vector<uint32_t>{0x0A141E, 0x28323C}));
}

// (Empty and bare strings, wrong lengths and wide or negative widths are the
// sweep's.)
TEST_F(BinaryStrings, MalformedStringsGiveNil) {
  const Bytes good = Handmade(2, 1, 40, {0xFF, 0, 0, 0, 0, 0xFF});
  ASSERT_FALSE(Read(good).IsNil());
  std::vector<Bytes> bad(5, good);
  for (size_t i = 0; i < 4; ++i) bad[i][i] ^= 0x20;  // "pPIC", "PpIC", ...
  PutWord(bad[4], 20, 0xFFFFFFF0u);  // data far beyond the end
  bad.insert(bad.end(), {Handmade(3, 0, 40, {}),
                         // headers claiming more pixels than the string holds
                         Handmade(3, 1, 40, Bytes(6)), Handmade(2, 1, 41, Bytes(5)),
                         Handmade(0x55555556u, 1, 40, Bytes(6)),  // 3 w wraps in 32 bits
                         Handmade(0x7FFFFFFF, 0x7FFFFFFF, 40, Bytes(6))});
  for (size_t i = 0; i < bad.size(); ++i) EXPECT_TRUE(Read(bad[i]).IsNil()) << "case " << i;
}

}  // namespace
