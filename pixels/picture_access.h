// Pixel access to host pictures.
//
// A PictureReader locks a picture and holds a GDK-PixBuf copy of its pixels:
// 3 bytes per pixel (red, green, blue) at base + y * rowBytes + 3 * x, rows
// padded as the pixbuf pads them. A PictureWriter is a zero-filled buffer of
// little-endian 32-bit words 0x00RRGGBB (bytes blue, green, red, 0), rowBytes
// = 4 * width, with one spare row, turned into a new host picture at the end.
// There is no in-place pixel access on this platform.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "plugin/host_interface.h"

struct _GdkPixbuf;

// A reader owns what it holds: the lock on the picture, the pixbuf copy and
// the clone, released when it goes out of scope (or is opened again).
struct PictureReader {
  int32_t rowBytes = 0;
  uint8_t* base = nullptr;
  int32_t width = 0;
  int32_t height = 0;
  REALpictureStruct* picture = nullptr;  // locked while the reader is open
  REALpictureStruct* clone = nullptr;    // our own copy when the picture could not be read directly
  REALpictureDescription description{};
  _GdkPixbuf* pixbuf = nullptr;

  PictureReader() = default;
  PictureReader(const PictureReader&) = delete;
  PictureReader& operator=(const PictureReader&) = delete;
  ~PictureReader() { Release(); }
  void Release();
};

// A writer owns its buffer until it is rendered; an unrendered writer frees
// it when it goes out of scope.
struct PictureWriter {
  int32_t rowBytes = 0;
  uint8_t* base = nullptr;
  int32_t width = 0;
  int32_t height = 0;
  uint8_t* buffer = nullptr;  // the allocation; only this is rendered and freed

  PictureWriter() = default;
  PictureWriter(const PictureWriter&) = delete;
  PictureWriter& operator=(const PictureWriter&) = delete;
  ~PictureWriter() { Release(); }
  void Release();
};

// In-place access to a picture's own pixels (4 bytes a pixel). This platform
// never grants it: GetPictureEditor always fails and leaves the record zero.
struct PictureEditor {
  int32_t rowBytes;
  uint8_t* base;
  int32_t width;
  int32_t height;
  REALpictureStruct* picture;
  REALpictureStruct* clone;
};
bool GetPictureEditor(PictureEditor& editor, REALpictureStruct* picture);
void ClosePictureEditor(PictureEditor& editor);

// Opens `reader` on `picture` (releasing whatever it held before); false,
// with the reader empty, when the picture cannot be read. GetPictureReader
// reads through a host-drawn clone when the picture's own pixels cannot be
// copied.
bool LockPictureReader(PictureReader& reader, REALpictureStruct* picture, bool allowClone);
bool GetPictureReader(PictureReader& reader, REALpictureStruct* picture);
inline void ClosePictureReader(PictureReader& reader) { reader.Release(); }

// A host picture is an X pixmap: at most 32767 pixels a side. A result of
// any other size could never be handed back, so it is refused before any
// memory is taken for it.
constexpr int32_t kLargestPictureSide = 32767;
inline bool FitsHostPicture(int64_t width, int64_t height) {
  return width >= 1 && height >= 1 && width <= kLargestPictureSide && height <= kLargestPictureSide;
}

// A zero-filled pixel buffer of `bytes` bytes (nil when there is no memory),
// released with std::free; large ones are backed by large pages.
void* CallocPixels(size_t bytes);

// A writer of width x height; `bytes`, when larger than the writer's rows
// and spare row, asks for a buffer of that many bytes (room a handler uses
// for its own work before the rows are written).
bool NewPictureWriter(PictureWriter& writer, int32_t width, int32_t height, uint64_t bytes = 0);
// Hands the writer's pixels to the host as a new picture and empties the
// writer; nil when the host makes none.
REALpictureStruct* RenderPictureWriter(PictureWriter& writer);
inline void FreePictureWriter(PictureWriter& writer) { writer.Release(); }

// Row addressing.
inline const uint8_t* ReaderRow(const PictureReader& r, int32_t y) {
  return r.base + static_cast<intptr_t>(y) * r.rowBytes;
}
inline uint32_t* WriterRow(const PictureWriter& w, int32_t y) {
  return reinterpret_cast<uint32_t*>(w.base + static_cast<intptr_t>(y) * w.rowBytes);
}

// The frame of the handlers that make a new picture from one picture: a
// reader on `picture`, a writer of the size `size(reader)` gives (a pair),
// `fill(reader, writer)` to make its pixels, and the rendered writer. Nil,
// with nothing left open, when the picture cannot be read or the writer made.
template <typename Size, typename Fill>
REALpictureStruct* RenderFromReader(REALpictureStruct* picture, Size size, Fill fill) {
  PictureReader reader;
  if (!GetPictureReader(reader, picture)) return nullptr;
  const auto [width, height] = size(reader);
  PictureWriter writer;
  if (!NewPictureWriter(writer, width, height)) return nullptr;
  fill(static_cast<const PictureReader&>(reader), writer);
  reader.Release();  // the source's copy is not needed while the host builds
  return RenderPictureWriter(writer);
}

// The same with a writer of the picture's own size.
template <typename Fill>
REALpictureStruct* RenderFromReader(REALpictureStruct* picture, Fill fill) {
  return RenderFromReader(
      picture,
      [](const PictureReader& r) {
        return std::pair{r.width, r.height};
      },
      fill);
}

// The frame of the handlers that make a new picture from one, two or three
// pictures of one size: readers on `pictures`, opened in the order given, a
// writer of their size filled row by row by `row(readerRows, writerRow,
// width)`, and the rendered writer. Nil, with nothing left open, when a
// picture is nil, cannot be read or differs in size from the first, or the
// writer cannot be made.
template <size_t N, typename Row>
REALpictureStruct* RenderFromReaders(const std::array<REALpictureStruct*, N>& pictures, Row row) {
  for (REALpictureStruct* p : pictures)
    if (!p) return nullptr;
  std::array<PictureReader, N> readers;  // closed last opened first
  for (size_t i = 0; i < N; ++i)
    if (!GetPictureReader(readers[i], pictures[i])) return nullptr;
  const int32_t width = readers[0].width;
  const int32_t height = readers[0].height;
  for (const PictureReader& r : readers)
    if (r.width != width || r.height != height) return nullptr;
  PictureWriter writer;
  if (!NewPictureWriter(writer, width, height)) return nullptr;
  std::array<const uint8_t*, N> rows;
  for (int32_t y = 0; y < height; ++y) {
    for (size_t i = 0; i < N; ++i) rows[i] = ReaderRow(readers[i], y);
    row(rows, WriterRow(writer, y), width);
  }
  for (size_t i = N; i-- > 0;) readers[i].Release();  // not needed while the host builds
  return RenderPictureWriter(writer);
}

// One reference to a host picture, released when the holder goes out of scope.
class HeldPicture {
 public:
  explicit HeldPicture(REALpictureStruct* picture) : picture_(picture) {}
  HeldPicture(const HeldPicture&) = delete;
  HeldPicture& operator=(const HeldPicture&) = delete;
  ~HeldPicture();

 private:
  REALpictureStruct* picture_;
};

// Takes over the reference `held` (nil allowed), reads the picture and hands
// the reader to `use`; the reader is closed and the reference released
// afterwards. Nil, with nothing kept, when there is no picture or it cannot
// be read.
template <typename Use>
REALpictureStruct* ReadHeldPicture(REALpictureStruct* held, Use use) {
  const HeldPicture picture(held);
  PictureReader reader;
  if (!held || !GetPictureReader(reader, held)) return nullptr;
  return use(static_cast<const PictureReader&>(reader));
}

// Pixel conversions between the two layouts. A reader pixel is always read as
// its three bytes, never as a word.
inline uint32_t PackRGB(uint32_t r, uint32_t g, uint32_t b) { return (r << 16) | (g << 8) | b; }
inline uint32_t ReaderPixel(const uint8_t* rgb) { return PackRGB(rgb[0], rgb[1], rgb[2]); }
inline uint32_t RedOf(uint32_t word) { return (word >> 16) & 0xFF; }
inline uint32_t GreenOf(uint32_t word) { return (word >> 8) & 0xFF; }
inline uint32_t BlueOf(uint32_t word) { return word & 0xFF; }

// Spreads `width` 3-byte pixels into 4-byte cells, four pixels at a time:
// `shuffle(in, fill)` makes the 16 bytes of four cells from 16 loaded bytes
// (the four pixels and 4 unused bytes) and a vector of the `fill` byte, and
// `single(pixel)` one cell as a little-endian word. Vectors are used while
// all 16 loaded bytes lie in the row, the last pixels go one by one.
using ByteVector16 = uint8_t __attribute__((vector_size(16)));
template <typename Shuffle, typename Single>
inline void SpreadPixels(const uint8_t* __restrict src, uint8_t* __restrict dst, int32_t width, uint8_t fill,
                         Shuffle shuffle, Single single) {
  ByteVector16 fills;
  __builtin_memset(&fills, fill, sizeof fills);
  int32_t x = 0;
  for (; x + 6 <= width; x += 4) {  // 3 * x + 16 <= 3 * width
    ByteVector16 in;
    __builtin_memcpy(&in, src + 3 * static_cast<intptr_t>(x), sizeof in);
    const ByteVector16 out = shuffle(in, fills);
    __builtin_memcpy(dst + 4 * static_cast<intptr_t>(x), &out, sizeof out);
  }
  for (; x < width; ++x) {
    const uint32_t cell = single(src + 3 * static_cast<intptr_t>(x));
    __builtin_memcpy(dst + 4 * static_cast<intptr_t>(x), &cell, sizeof cell);
  }
}

// Converts one reader row of `width` pixels into writer words: the frame's own
// conversion between its two layouts, which kernels of every subsystem use.
// The fast variant gives the same words (see pixels/kernel_choice.h); this
// pass alone is the memory limit every pointwise kernel is measured against.
void Rgb24ToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width);
void Rgb24ToXrgbRowFast(const uint8_t* src, uint32_t* dst, int32_t width);
