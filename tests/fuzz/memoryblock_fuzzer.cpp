// The memory-block exchange: the three "Memoryblock…toPictureQVT" globals and
// the five "Copy…toMemoryblockQVT" methods with arbitrary block contents,
// block sizes, offsets, widths, heights, strides, byte orders and alpha values.
//
// Input layout (little-endian), then the remaining bytes as content:
//   0 kind (mod 8: copy RGB, ARGB, R, G, B; build RGB, ARGB, grey)
//   1 flags: 1 nil block, 2 nil picture, 4 foreign picture, 8 offset from the
//     table, 16 width and height from the table, 32 stride from the table,
//     64 alpha from the table, 128 block size = bytes the layout needs + delta
//   2 block size (u32), 6 offset, 10 width, 14 height, 18 stride (i32),
//  22 little endian (u8), 23 alpha (i32), 27 picture width, 28 picture height
//     (u8, 1 to 48)
//
// Beside the plug-in the target computes, by the layout rules, whether the
// call must succeed and what it must write or build; any difference, any
// byte changed outside the layout, or a block changed by a refused call fails.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_support.h"

namespace {

const char* const kNames[] = {"CopyRGBtoMemoryblockQVT",     "CopyARGBtoMemoryblockQVT",
                              "CopyRtoMemoryblockQVT",       "CopyGtoMemoryblockQVT",
                              "CopyBtoMemoryblockQVT",       "MemoryblockRGBtoPictureQVT",
                              "MemoryblockARGBtoPictureQVT", "MemoryblockGrayToPictureQVT"};

const int32_t kEdges[] = {0,          1,          -1,         2,          3,         4,
                          5,          7,          255,        256,        4095,      32767,
                          32768,      65535,      65536,      0x7FFFFFFF, INT32_MIN, INT32_MIN + 1,
                          0x40000000, 0x7FFFFFF0, 0x20000000, 0x10000,    -65536,    0x55555555};

int32_t FromTable(int32_t raw) { return kEdges[static_cast<uint32_t>(raw) % std::size(kEdges)]; }

struct Layout {
  int64_t stride;    // bytes from one pixel to the next
  int64_t lastCell;  // bytes the last pixel needs
};

// Bytes the layout needs, or -1 when the arguments allow no layout.
int64_t Needed(int64_t offset, int64_t w, int64_t h, const Layout& l) {
  if (offset < 0 || w < 0 || h < 0 || l.stride < 1) return -1;
  // w and h are 32-bit values, so w * h fits; the rest may overflow (no
  // 128-bit integers on 32-bit x86).
  const int64_t pixels = w * h;
  if (pixels == 0) return offset;
  int64_t n;
  if (__builtin_mul_overflow(pixels - 1, l.stride, &n) || __builtin_add_overflow(n, offset, &n) ||
      __builtin_add_overflow(n, l.lastCell, &n)) {
    return -1;
  }
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::Start();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  const int kind = in.Byte() % 8;
  const uint8_t flags = in.Byte();
  uint32_t blockSize = in.U32();
  int32_t offset = in.I32();
  int32_t width = in.I32();
  int32_t height = in.I32();
  int32_t stride = in.I32();
  const bool little = in.Byte() & 1;
  int32_t alpha = in.I32();
  const int32_t pictureWidth = std::max(1, in.Byte() % 49);
  const int32_t pictureHeight = std::max(1, in.Byte() % 49);
  const auto content = in.Take(1 << 16);

  if (flags & 8) offset = FromTable(offset);
  if (flags & 16) width = FromTable(width), height = FromTable(height);
  if (flags & 32) stride = FromTable(stride);
  if (flags & 64) alpha = FromTable(alpha);
  const bool copy = kind < 5;
  const bool argb = kind == 1 || kind == 6;
  const bool channel = kind >= 2 && kind <= 4;
  const bool grey = kind == 7;
  const Layout layout = argb ? Layout{4, 4} : (channel || grey) ? Layout{stride, 1} : Layout{3, 3};
  const int64_t w = copy ? pictureWidth : width;
  const int64_t h = copy ? pictureHeight : height;
  const int64_t needed = Needed(offset, w, h, layout);
  if (flags & 128) {
    const int64_t delta = static_cast<int8_t>(blockSize & 0xFF) % 4;
    if (needed >= 0 && needed + delta >= 0 && needed + delta <= (1 << 18)) blockSize = static_cast<uint32_t>(needed + delta);
  }
  blockSize %= (1u << 18) + 1;  // at most 256 KiB per block

  ph::Host& host = fuzz::TheHost();
  const uint64_t mark = host.Mark();
  {
    std::vector<uint8_t> before(blockSize);
    fuzz::FillFrom(content, before.data(), before.size());
    ph::Ref block = (flags & 1) ? ph::Ref() : host.NewMemoryBlock(before);

    if (copy) {
      std::vector<uint32_t> pixels(static_cast<size_t>(pictureWidth) * pictureHeight);
      std::vector<uint8_t> bytes(pixels.size() * 3);
      fuzz::FillFrom(content.subspan(content.size() / 2), bytes.data(), bytes.size());
      for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = uint32_t{bytes[3 * i]} << 16 | uint32_t{bytes[3 * i + 1]} << 8 | bytes[3 * i + 2];
      }
      ph::Ref picture;
      if (!(flags & 2)) {
        picture = (flags & 4) ? host.NewForeignPicture(pictureWidth, pictureHeight, pixels)
                              : host.NewPicture(pictureWidth, pictureHeight, pixels);
      }
      std::vector<ph::Value> args{block, offset};
      if (kind == 1) args.insert(args.end(), {little, alpha});
      if (channel) args.push_back(stride);
      const ph::Value result = host.Call(picture, kNames[kind], args);
      fuzz::ExpectNoProblems(kNames[kind]);

      const bool valid = picture && block && needed >= 0 && needed <= int64_t{blockSize};
      if (result.AsBool() != valid) {
        fuzz::Fail(std::string(kNames[kind]) + (valid ? " refused a valid call" : " accepted an invalid call"));
      }
      std::vector<uint8_t> expected = before;
      if (valid) {
        const bool writeAlpha = static_cast<uint32_t>(alpha) <= 255;
        for (size_t i = 0; i < pixels.size(); ++i) {
          const uint8_t rgb[3] = {bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2]};
          uint8_t* cell = expected.data() + offset + static_cast<int64_t>(i) * layout.stride;
          switch (kind) {
            case 0: cell[0] = rgb[0], cell[1] = rgb[1], cell[2] = rgb[2]; break;
            case 1:
              if (little) {
                cell[0] = rgb[2], cell[1] = rgb[1], cell[2] = rgb[0];
                if (writeAlpha) cell[3] = static_cast<uint8_t>(alpha);
              } else {
                cell[1] = rgb[0], cell[2] = rgb[1], cell[3] = rgb[2];
                if (writeAlpha) cell[0] = static_cast<uint8_t>(alpha);
              }
              break;
            default: cell[0] = rgb[kind - 2]; break;
          }
        }
      }
      if (block && host.Bytes(block) != expected) fuzz::Fail(std::string(kNames[kind]) + ": wrong block bytes");
    } else {
      std::vector<ph::Value> args{block, offset, width, height};
      if (argb) args.push_back(little);
      if (grey) args.push_back(stride);
      const ph::Value result = host.CallGlobal(kNames[kind], args);
      fuzz::ExpectNoProblems(kNames[kind]);

      // Valid layouts fit the block, so a picture needs at most 2^18 pixels;
      // only the host's limit of 32767 pixels a side can still refuse it.
      const bool valid = block && width >= 1 && height >= 1 && needed >= 0 && needed <= int64_t{blockSize} &&
                         width <= 32767 && height <= 32767;
      if (result.IsNil() == valid) {
        fuzz::Fail(std::string(kNames[kind]) + (valid ? " refused a valid call" : " accepted an invalid call"));
      }
      if (block && host.Bytes(block) != before) fuzz::Fail(std::string(kNames[kind]) + " changed its source block");
      if (valid) {
        const ph::Ref& picture = result.AsRef();
        if (host.Width(picture) != width || host.Height(picture) != height) {
          fuzz::Fail(std::string(kNames[kind]) + " made a picture of the wrong size");
        }
        std::vector<uint32_t> expected(static_cast<size_t>(width) * height);
        for (size_t i = 0; i < expected.size(); ++i) {
          const uint8_t* cell = before.data() + offset + static_cast<int64_t>(i) * layout.stride;
          switch (kind) {
            case 5: expected[i] = uint32_t{cell[0]} << 16 | uint32_t{cell[1]} << 8 | cell[2]; break;
            case 6:
              expected[i] = little ? uint32_t{cell[2]} << 16 | uint32_t{cell[1]} << 8 | cell[0]
                                   : uint32_t{cell[1]} << 16 | uint32_t{cell[2]} << 8 | cell[3];
              break;
            default: expected[i] = uint32_t{cell[0]} * 0x010101u; break;
          }
        }
        if (host.Pixels(picture) != expected) fuzz::Fail(std::string(kNames[kind]) + ": wrong pixels");
      }
    }
  }
  fuzz::ExpectClean(mark, kNames[kind]);
  return 0;
}
