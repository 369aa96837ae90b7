// Colour counting and remapping: the pixels of one colour, the three channel
// histograms handed back as memory blocks, and the remapping of every channel
// through a caller's table of 256 bytes.
//
// Histogram block: 256 little-endian 32-bit counters, counter i at byte 4 × i.
// Table block: byte i is the new value of channel value i; bytes from 256 on
// are not read.
#include <cstdint>
#include <cstring>

#include "pixels/kernel_choice.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"
#include "tone/handlers.h"
#include "tone/kernels.h"

namespace {

constexpr int32_t kHistogramBytes = 1024;
constexpr int32_t kTableBytes = 256;

// Releases the block a byref variable holds and leaves the variable nil.
void ReleaseBlock(REALmemoryBlockStruct** variable) {
  if (*variable) REALUnlockObject(AsObject(*variable));
  *variable = nullptr;
}

// Stores 256 counters into a histogram block as little-endian words.
void StoreCounters(uint8_t* block, const uint32_t counters[256]) {
  for (int32_t i = 0; i < 256; ++i) {
    const uint32_t c = counters[i];
    uint8_t* p = block + 4 * i;
    p[0] = static_cast<uint8_t>(c);
    p[1] = static_cast<uint8_t>(c >> 8);
    p[2] = static_cast<uint8_t>(c >> 16);
    p[3] = static_cast<uint8_t>(c >> 24);
  }
}

// The data of a table block, or null when the block is nil, has no data or is
// too short to hold 256 entries.
const uint8_t* TableData(REALmemoryBlockStruct* block) {
  if (!block || REALMemoryBlockGetSize(block) < kTableBytes) return nullptr;
  return static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
}

}  // namespace

uint32_t CountColorRow(const uint8_t* src, int32_t width, uint32_t col) {
  uint32_t n = 0;
  for (int32_t x = 0; x < width; ++x, src += 3) n += ReaderPixel(src) == col;
  return n;
}

PICTURE_VECTOR_CLONES
uint32_t CountColorRowFast(const uint8_t* __restrict src, int32_t width, uint32_t col) {
  uint32_t n = 0;
  for (int32_t x = 0; x < width; ++x) {
    const uint32_t p = (uint32_t{src[3 * x]} << 16) | (uint32_t{src[3 * x + 1]} << 8) | src[3 * x + 2];
    n += p == col ? 1u : 0u;
  }
  return n;
}

void ChannelHistogramRow(const uint8_t* src, int32_t width, uint32_t red[256], uint32_t green[256],
                         uint32_t blue[256]) {
  for (int32_t x = 0; x < width; ++x, src += 3) {
    ++red[src[0]];
    ++green[src[1]];
    ++blue[src[2]];
  }
}

int32_t CountColorQVT(REALpictureStruct* picture, uint32_t col) {
  PictureReader reader;
  if (!GetPictureReader(reader, picture)) return -1;
  uint32_t matches = 0;
  // A colour with any of its top 8 bits set matches nothing.
  const auto row = ChooseKernel(CountColorRow, CountColorRowFast);
  for (int32_t y = 0; y < reader.height; ++y) matches += row(ReaderRow(reader, y), reader.width, col);
  return static_cast<int32_t>(matches);
}

void CountColorsQVT(REALpictureStruct* picture, REALmemoryBlockStruct** red, REALmemoryBlockStruct** blue,
                    REALmemoryBlockStruct** green, int32_t* count) {
  if (!red || !blue || !green || !count) return;
  // The caller's previous blocks go first, whatever happens next.
  ReleaseBlock(red);
  ReleaseBlock(blue);
  ReleaseBlock(green);

  PictureReader reader;
  if (!GetPictureReader(reader, picture)) {
    *count = -1;
    return;
  }

  // New blocks, stored as they are made; each is cleared at once so that no
  // counter depends on the host handing out zero-filled memory.
  uint8_t* data[3] = {};
  REALmemoryBlockStruct** variables[3] = {red, blue, green};
  for (int32_t i = 0; i < 3; ++i) {
    *variables[i] = REALNewMemoryBlock(kHistogramBytes);
    if (*variables[i] && REALMemoryBlockGetSize(*variables[i]) >= kHistogramBytes)
      data[i] = static_cast<uint8_t*>(REALMemoryBlockGetPtr(*variables[i]));
    if (!data[i]) {
      *count = -1;
      return;
    }
    std::memset(data[i], 0, kHistogramBytes);
  }

  uint32_t r[256] = {}, g[256] = {}, b[256] = {};
  for (int32_t y = 0; y < reader.height; ++y) ChannelHistogramRow(ReaderRow(reader, y), reader.width, r, g, b);
  StoreCounters(data[0], r);
  StoreCounters(data[1], b);
  StoreCounters(data[2], g);

  const int64_t total = reader.height > 0 && reader.width > 0 ? static_cast<int64_t>(reader.width) * reader.height : 0;
  *count = static_cast<int32_t>(total);
}

REALpictureStruct* TransformColorsQVT(REALpictureStruct* picture, REALmemoryBlockStruct* red,
                                      REALmemoryBlockStruct* blue, REALmemoryBlockStruct* green) {
  const uint8_t* redTable = TableData(red);
  const uint8_t* blueTable = TableData(blue);
  const uint8_t* greenTable = TableData(green);
  if (!redTable || !blueTable || !greenTable) return nullptr;

  return RenderFromReader(picture, [=](const PictureReader& reader, PictureWriter& writer) {
    const auto row = ChooseKernel(ChannelTableRow, ChannelTableRowFast);
    const ChannelMap map = MakeChannelMap(redTable, greenTable, blueTable);
    for (int32_t y = 0; y < reader.height; ++y) row(ReaderRow(reader, y), WriterRow(writer, y), reader.width, map);
  });
}
