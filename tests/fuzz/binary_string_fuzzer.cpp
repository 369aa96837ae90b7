// "BinaryStringtoPictureQVT(data as String) as Picture" on arbitrary bytes.
//
// The input is the string. Beside the plug-in's answer the target reads the
// string itself, by the format's rules, and requires the same verdict: a
// picture exactly when the header is well formed and the pixel data lies
// inside the string, with the pixels the string holds; and a picture that
// is written back with "PicturetoBinaryStringQVT" gives the canonical string.
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_support.h"
#include "tests/support/api_table.h"

namespace {

uint32_t BigEndian(const uint8_t* p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

struct Expected {
  bool valid = false;
  int32_t width = 0, height = 0;
  std::vector<uint32_t> pixels;
  std::vector<uint8_t> canonical;
};

// The format read by hand: "PPIC", the length field equal to the length, a
// width and height of at least 1 and the pixels inside the string.
Expected Read(const uint8_t* data, size_t size) {
  Expected e;
  if (size < 40 || data[0] != 'P' || data[1] != 'P' || data[2] != 'I' || data[3] != 'C') return e;
  if (BigEndian(data + 4) != size) return e;
  const auto width = static_cast<int32_t>(BigEndian(data + 8));
  const auto height = static_cast<int32_t>(BigEndian(data + 12));
  const uint64_t offset = BigEndian(data + 20);
  if (width < 1 || height < 1) return e;
  const uint64_t count = uint64_t(width) * uint64_t(height);
  if (offset + 3 * count > size) return e;
  // Strings hold few enough pixels for any host picture except very long sides.
  if (width > 32767 || height > 32767) return e;
  e.valid = true;
  e.width = width;
  e.height = height;
  // Drawn from exactly as many bytes as it needs, FillFrom copies them.
  e.pixels = fuzz::Pixels({data + offset, static_cast<size_t>(3 * count)}, count);  // at most `size` bytes
  // Written back: the 40-byte header of format 32 with the data at 40 (the
  // header of a 0-pixel-wide string with the length and width fields of this).
  const std::string header = api::PpicString(0, height, static_cast<int32_t>(3 * count), static_cast<uint32_t>(width));
  e.canonical.assign(header.begin(), header.end());
  e.canonical.insert(e.canonical.end(), data + offset, data + offset + 3 * count);
  return e;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  ph::Host& host = fuzz::TheHost();
  const uint64_t mark = host.Mark();
  {
    const Expected expected = Read(data, size);
    ph::Ref text = host.NewString(std::string_view(reinterpret_cast<const char*>(data), size));
    ph::Value result = host.CallGlobal("BinaryStringtoPictureQVT", {text});
    fuzz::ExpectNoProblems("BinaryStringtoPictureQVT");
    if (result.IsNil() == expected.valid)
      fuzz::Fail(std::string("BinaryStringtoPictureQVT gave ") + (result.IsNil() ? "nil" : "a picture") +
                 " for a string that is " + (expected.valid ? "valid" : "malformed"));
    if (expected.valid) {
      const ph::Ref& picture = result.AsRef();
      if (host.Width(picture) != expected.width || host.Height(picture) != expected.height)
        fuzz::Fail("BinaryStringtoPictureQVT made a picture of the wrong size");
      if (host.Pixels(picture) != expected.pixels) fuzz::Fail("BinaryStringtoPictureQVT: wrong pixels");
      ph::Value written = host.CallGlobal("PicturetoBinaryStringQVT", {picture});
      fuzz::ExpectNoProblems("PicturetoBinaryStringQVT");
      if (written.IsNil() || host.Bytes(written.AsRef()) != expected.canonical)
        fuzz::Fail("PicturetoBinaryStringQVT does not give the canonical string back");
    }
    if (size == 0) {
      // A nil string counts as the empty string.
      ph::Value none = host.CallGlobal("BinaryStringtoPictureQVT", {ph::Ref()});
      if (!none.IsNil()) fuzz::Fail("BinaryStringtoPictureQVT made a picture from nil");
    }
  }
  fuzz::ExpectClean(mark, "BinaryStringtoPictureQVT");
  return 0;
}
