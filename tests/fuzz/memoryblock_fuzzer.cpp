// The memory-block exchange: the three "Memoryblock…toPictureQVT" globals and
// the five "Copy…toMemoryblockQVT" methods with arbitrary block contents,
// block sizes, offsets, widths, heights, strides, byte orders and alpha values.
//
// Input layout (little-endian), then the remaining bytes as content:
//   0 kind (mod 8: copy RGB, ARGB, R, G, B; build RGB, ARGB, grey)
//   1 flags: 1 nil block, 2 nil picture, 4 foreign picture, 8 offset from the
//     table of adversarial integers, 16 width and height from it, 32 stride
//     from it, 64 alpha from it, 128 block size = bytes the layout needs + delta
//   2 block size (u32), 6 offset, 10 width, 14 height, 18 stride (i32),
//  22 little endian (u8), 23 alpha (i32), 27 picture width, 28 picture height
//     (u8, 1 to 48)
//
// Beside the plug-in the target works out, by walking the layout, whether the
// call must succeed and what it must write or build; any difference, any
// byte changed outside the layout, or a block changed by a refused call fails.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_support.h"
#include "tests/support/api_table.h"
#include "tests/support/block_layout.h"

namespace {

const char* const kNames[] = {"CopyRGBtoMemoryblockQVT",     "CopyARGBtoMemoryblockQVT",
                              "CopyRtoMemoryblockQVT",       "CopyGtoMemoryblockQVT",
                              "CopyBtoMemoryblockQVT",       "MemoryblockRGBtoPictureQVT",
                              "MemoryblockARGBtoPictureQVT", "MemoryblockGrayToPictureQVT"};

constexpr int64_t kMaxBlock = 1 << 18;

// Where red, green and blue go in a cell of RGB, big-endian ARGB and
// little-endian ARGB.
constexpr int kOrder[3][3] = {{0, 1, 2}, {1, 2, 3}, {2, 1, 0}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  const int kind = in.Byte() % 8;
  const uint8_t flags = in.Byte();
  uint32_t blockSize = in.U32();
  auto integer = [&](uint8_t flag) {
    const int32_t raw = in.I32();
    return (flags & flag) ? api::kIntegers[static_cast<uint32_t>(raw) % api::kIntegers.size()] : raw;
  };
  const int32_t offset = integer(8), width = integer(16), height = integer(16), stride = integer(32);
  const bool little = in.Byte() & 1;
  const int32_t alpha = integer(64);
  const int32_t pictureWidth = std::max(1, in.Byte() % 49), pictureHeight = std::max(1, in.Byte() % 49);
  const auto content = in.Take(1 << 16);

  const std::string name = kNames[kind];
  const bool copy = kind < 5, argb = kind == 1 || kind == 6, channel = kind >= 2 && kind <= 4, grey = kind == 7;
  // Cells of 4 bytes (ARGB), 3 (RGB) or `stride` of which one is used.
  const int order = argb ? 1 + little : 0;
  const int64_t step = argb ? 4 : (channel || grey) ? stride : 3, used = argb ? 4 : (channel || grey) ? 1 : 3;
  const int64_t end = layout::End(offset, copy ? pictureWidth : width, copy ? pictureHeight : height, step, used, kMaxBlock);
  if ((flags & 128) && end >= 0) blockSize = static_cast<uint32_t>(std::clamp<int64_t>(end + static_cast<int8_t>(blockSize) % 4, 0, kMaxBlock));
  blockSize %= kMaxBlock + 1;
  const bool fits = end >= 0 && end <= int64_t{blockSize};

  ph::Host& host = fuzz::TheHost();
  const uint64_t mark = host.Mark();
  {
    std::vector<uint8_t> before(blockSize);
    fuzz::FillFrom(content, before.data(), before.size());
    ph::Ref block = (flags & 1) ? ph::Ref() : host.NewMemoryBlock(before);

    if (copy) {
      const std::vector<uint32_t> pixels = fuzz::Pixels(content.subspan(content.size() / 2), size_t(pictureWidth) * pictureHeight);
      ph::Ref picture;
      if (!(flags & 2)) picture = api::MakePicture(host, {pictureWidth, pictureHeight, (flags & 4) != 0, false}, pixels);
      std::vector<ph::Value> args{block, offset};
      if (kind == 1) args.insert(args.end(), {little, alpha});
      if (channel) args.push_back(stride);
      const bool valid = picture && block && fits;
      const bool done = host.Call(picture, name, args).AsBool();
      fuzz::ExpectNoProblems(name);
      if (done != valid) fuzz::Fail(name + (valid ? " refused a valid call" : " accepted an invalid call"));
      std::vector<uint8_t> expected = before;
      for (size_t i = 0; valid && i < pixels.size(); ++i) {
        const uint8_t rgb[3] = {uint8_t(pixels[i] >> 16), uint8_t(pixels[i] >> 8), uint8_t(pixels[i])};
        uint8_t* cell = expected.data() + offset + static_cast<int64_t>(i) * step;
        for (int j = 0; j < 3 && kind <= 1; ++j) cell[kOrder[order][j]] = rgb[j];
        // Alpha values outside 0 to 255 leave the alpha bytes as they were.
        if (kind == 1 && static_cast<uint32_t>(alpha) <= 255) cell[little ? 3 : 0] = static_cast<uint8_t>(alpha);
        if (channel) cell[0] = rgb[kind - 2];
      }
      if (block && host.Bytes(block) != expected) fuzz::Fail(name + ": wrong block bytes");
    } else {
      std::vector<ph::Value> args{block, offset, width, height};
      if (argb) args.push_back(little);
      if (grey) args.push_back(stride);
      // Valid layouts fit the block, so a picture needs at most 2^18 pixels;
      // only the host's limit of 32767 pixels a side can still refuse it.
      const bool valid = block && fits && width >= 1 && height >= 1 && width <= 32767 && height <= 32767;
      const ph::Value result = host.CallGlobal(name, args);
      fuzz::ExpectNoProblems(name);
      if (result.IsNil() == valid) fuzz::Fail(name + (valid ? " refused a valid call" : " accepted an invalid call"));
      if (block && host.Bytes(block) != before) fuzz::Fail(name + " changed its source block");
      if (valid) {
        const ph::Ref& picture = result.AsRef();
        if (host.Width(picture) != width || host.Height(picture) != height) fuzz::Fail(name + " made a picture of the wrong size");
        std::vector<uint32_t> expected(static_cast<size_t>(width) * height);
        for (size_t i = 0; i < expected.size(); ++i) {
          const uint8_t* c = before.data() + offset + static_cast<int64_t>(i) * step;
          const int* o = kOrder[order];
          expected[i] = grey ? c[0] * 0x010101u : uint32_t{c[o[0]]} << 16 | uint32_t{c[o[1]]} << 8 | c[o[2]];
        }
        if (host.Pixels(picture) != expected) fuzz::Fail(name + ": wrong pixels");
      }
    }
  }
  fuzz::ExpectClean(mark, name);
  return 0;
}
