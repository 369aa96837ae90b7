// The "PPIC" binary string form through the emulated host: the written bytes,
// round trips, and the strings the reader must refuse.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/support/host_fixture.h"

namespace {

using Bytes = std::vector<uint8_t>;

void PutWord(Bytes& s, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) s[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

// A string laid out by hand: header fields as given, then `pixels` at `offset`.
Bytes Handmade(uint32_t width, uint32_t height, uint32_t offset, const Bytes& pixels,
               uint32_t format = 32) {
  Bytes s(offset + pixels.size(), 0);
  s[0] = 'P';
  s[1] = 'P';
  s[2] = 'I';
  s[3] = 'C';
  PutWord(s, 4, static_cast<uint32_t>(s.size()));
  PutWord(s, 8, width);
  PutWord(s, 12, height);
  PutWord(s, 16, format);
  PutWord(s, 20, offset);
  std::copy(pixels.begin(), pixels.end(), s.begin() + offset);
  return s;
}

class BinaryStrings : public HostTest {
 protected:
  Bytes Write(const ph::Ref& picture) {
    ph::Value s = host().CallGlobal("PicturetoBinaryStringQVT", {picture});
    if (s.IsNil()) {
      ADD_FAILURE() << "no string";
      return {};
    }
    return host().Bytes(s.AsRef());
  }
  ph::Value Read(const Bytes& bytes) {
    ph::Ref s = host().NewString(std::string(bytes.begin(), bytes.end()));
    return host().CallGlobal("BinaryStringtoPictureQVT", {s});
  }
};

TEST_F(BinaryStrings, TheFortySixByteExample) {
  const Bytes expected = {0x50, 0x50, 0x49, 0x43, 0, 0, 0, 0x2E, 0, 0, 0, 2, 0, 0, 0, 1,
                          0,    0,    0,    0x20, 0, 0, 0, 0x28, 0, 0, 0, 0, 0, 0, 0, 0,
                          0,    0,    0,    0,    0, 0, 0, 0,    0xFF, 0, 0, 0, 0, 0xFF};
  EXPECT_EQ(Write(Picture(2, 1, {0xFF0000, 0x0000FF})), expected);
}

TEST_F(BinaryStrings, RoundTripsKeepEveryPixel) {
  std::mt19937 random(11);
  for (auto [w, h] : {std::pair{1, 1}, std::pair{13, 7}, std::pair{64, 3}}) {
    std::vector<uint32_t> pixels(static_cast<size_t>(w) * h);
    for (uint32_t& p : pixels) p = random() & 0xFFFFFF;
    const Bytes s = Write(Picture(w, h, pixels));
    ASSERT_EQ(s.size(), 40u + 3u * pixels.size());
    // Pixel data from offset 40, rows without padding, red green blue.
    for (size_t i = 0; i < pixels.size(); ++i) {
      ASSERT_EQ(s[40 + 3 * i], static_cast<uint8_t>(pixels[i] >> 16));
      ASSERT_EQ(s[40 + 3 * i + 1], static_cast<uint8_t>(pixels[i] >> 8));
      ASSERT_EQ(s[40 + 3 * i + 2], static_cast<uint8_t>(pixels[i]));
    }
    ph::Ref back = AsPicture(Read(s));
    EXPECT_EQ(host().Width(back), w);
    EXPECT_EQ(host().Height(back), h);
    EXPECT_EQ(host().Pixels(back), pixels);
  }
}

TEST_F(BinaryStrings, PicturesReadThroughTheirCloneAreWrittenToo) {
  ph::Ref foreign = host().NewForeignPicture(2, 1, std::vector<uint32_t>{0x010203, 0x040506});
  const Bytes s = Write(foreign);
  ASSERT_EQ(s.size(), 46u);
  EXPECT_EQ(Bytes(s.begin() + 40, s.end()), (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST_F(BinaryStrings, DataOffsetAndFormatFieldAsTheStringSays) {
  // Four spare bytes after the header, counted in the length; any format value.
  Bytes s = Handmade(2, 1, 44, {10, 20, 30, 40, 50, 60}, 0xDEADBEEF);
  s[40] = s[41] = s[42] = s[43] = 0x77;
  s[30] = 0x99;  // reserved bytes are not examined either
  ASSERT_EQ(s.size(), 50u);
  ph::Ref picture = AsPicture(Read(s));
  EXPECT_EQ(host().Pixels(picture), (std::vector<uint32_t>{0x0A141E, 0x28323C}));
}

TEST_F(BinaryStrings, MalformedStringsGiveNil) {
  const Bytes good = Write(Picture(2, 1, {0xFF0000, 0x0000FF}));
  ASSERT_FALSE(Read(good).IsNil());

  for (size_t i = 0; i < 4; ++i) {
    Bytes s = good;
    s[i] ^= 0x20;  // "pPIC", "PpIC", ...
    EXPECT_TRUE(Read(s).IsNil()) << "signature byte " << i;
  }
  Bytes longer = good;
  longer.push_back(0);
  EXPECT_TRUE(Read(longer).IsNil());
  Bytes shorter = good;
  shorter.pop_back();
  EXPECT_TRUE(Read(shorter).IsNil());

  // A picture of width or height 0 would be a bare header.
  EXPECT_TRUE(Read(Handmade(0, 3, 40, {})).IsNil());
  EXPECT_TRUE(Read(Handmade(3, 0, 40, {})).IsNil());
  EXPECT_TRUE(Read(Handmade(0x80000000u, 1, 40, Bytes(6))).IsNil());

  // Headers claiming more pixels than the string holds.
  EXPECT_TRUE(Read(Handmade(3, 1, 40, Bytes(6))).IsNil());
  EXPECT_TRUE(Read(Handmade(2, 1, 41, Bytes(5))).IsNil());
  EXPECT_TRUE(Read(Handmade(0x55555556u, 1, 40, Bytes(6))).IsNil());  // 3 w wraps in 32 bits
  EXPECT_TRUE(Read(Handmade(0x7FFFFFFF, 0x7FFFFFFF, 40, Bytes(6))).IsNil());
  Bytes farOffset = Handmade(2, 1, 40, Bytes(6));
  PutWord(farOffset, 20, 0xFFFFFFF0u);
  EXPECT_TRUE(Read(farOffset).IsNil());

  EXPECT_TRUE(Read(Bytes(good.begin(), good.begin() + 8)).IsNil());
  EXPECT_TRUE(Read({}).IsNil());
  EXPECT_TRUE(host().CallGlobal("BinaryStringtoPictureQVT", {ph::Ref()}).IsNil());
}

TEST_F(BinaryStrings, NoPictureGivesNoString) {
  EXPECT_TRUE(host().CallGlobal("PicturetoBinaryStringQVT", {ph::Ref()}).IsNil());
}

}  // namespace
