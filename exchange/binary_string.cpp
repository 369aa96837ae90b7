// The "PPIC" binary string form of a picture: a 40-byte big-endian header
// (signature, total length, width, height, the constant 32, the pixel data
// offset, 16 reserved bytes) followed by 3-byte red, green, blue pixels, rows
// top to bottom without padding.
#include <cstdlib>
#include <cstring>

#include "exchange/handlers.h"
#include "exchange/kernels.h"
#include "pixels/kernel_choice.h"
#include "pixels/picture_access.h"
#include "plugin/text_conv.h"

namespace {

constexpr uint32_t kBinaryHeaderSize = 40;
constexpr uint8_t kSignature[4] = {'P', 'P', 'I', 'C'};
constexpr uint32_t kFormatConstant = 32;

// Header fields: (offset, size) as the format fixes them.
constexpr uint32_t kLengthAt = 4;
constexpr uint32_t kWidthAt = 8;
constexpr uint32_t kHeightAt = 12;
constexpr uint32_t kFormatAt = 16;
constexpr uint32_t kDataOffsetAt = 20;

void PutBigEndian(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 24);
  at[1] = static_cast<uint8_t>(value >> 16);
  at[2] = static_cast<uint8_t>(value >> 8);
  at[3] = static_cast<uint8_t>(value);
}

uint32_t GetBigEndian(const uint8_t* at) {
  return (static_cast<uint32_t>(at[0]) << 24) | (static_cast<uint32_t>(at[1]) << 16) |
         (static_cast<uint32_t>(at[2]) << 8) | static_cast<uint32_t>(at[3]);
}

uint64_t PixelBytes(int32_t width, int32_t height) {
  return 3 * static_cast<uint64_t>(width < 0 ? 0 : width) * static_cast<uint64_t>(height < 0 ? 0 : height);
}

// The header fields as stored (big-endian words).
struct BinaryHeader {
  uint32_t totalLength;
  int32_t width;
  int32_t height;
  uint32_t dataOffset;
};

// Writes the 40-byte header of a width x height picture.
void WriteBinaryHeader(uint8_t* header, int32_t width, int32_t height) {
  std::memset(header, 0, kBinaryHeaderSize);
  std::memcpy(header, kSignature, sizeof kSignature);
  PutBigEndian(header + kLengthAt, static_cast<uint32_t>(kBinaryHeaderSize + PixelBytes(width, height)));
  PutBigEndian(header + kWidthAt, static_cast<uint32_t>(width));
  PutBigEndian(header + kHeightAt, static_cast<uint32_t>(height));
  PutBigEndian(header + kFormatAt, kFormatConstant);
  PutBigEndian(header + kDataOffsetAt, kBinaryHeaderSize);
}

// Reads and checks a string's header: the signature, the length field against
// `length`, a width and height of at least 1, and pixel data lying wholly
// inside the string. False for anything else.
bool ReadBinaryHeader(const uint8_t* data, int32_t length, BinaryHeader* header) {
  // A string too short for the whole header is malformed, whatever it says.
  if (!data || length < static_cast<int32_t>(kBinaryHeaderSize)) return false;
  if (std::memcmp(data, kSignature, sizeof kSignature) != 0) return false;
  header->totalLength = GetBigEndian(data + kLengthAt);
  if (header->totalLength != static_cast<uint32_t>(length)) return false;
  header->width = static_cast<int32_t>(GetBigEndian(data + kWidthAt));
  header->height = static_cast<int32_t>(GetBigEndian(data + kHeightAt));
  header->dataOffset = GetBigEndian(data + kDataOffsetAt);
  if (header->width < 1 || header->height < 1) return false;
  // Below 2^32 + 3 * 2^62: no overflow in 64 bits.
  const uint64_t end = static_cast<uint64_t>(header->dataOffset) + PixelBytes(header->width, header->height);
  return end <= static_cast<uint64_t>(length);
}

}  // namespace

REALstringStruct* PicturetoBinaryString(REALpictureStruct* picture) {
  PictureReader reader;
  if (!GetPictureReader(reader, picture)) return nullptr;
  // A host string has a signed 32-bit length.
  const uint64_t total = kBinaryHeaderSize + PixelBytes(reader.width, reader.height);
  uint8_t* buffer = nullptr;
  if (total <= static_cast<uint64_t>(INT32_MAX)) {
    buffer = static_cast<uint8_t*>(std::calloc(1, static_cast<size_t>(total)));
  }
  if (!buffer) return nullptr;
  WriteBinaryHeader(buffer, reader.width, reader.height);
  const size_t rowBytes = 3 * static_cast<size_t>(reader.width);
  for (int32_t y = 0; y < reader.height; ++y) {
    Rgb24ToBlockRgbRow(ReaderRow(reader, y), buffer + kBinaryHeaderSize + y * rowBytes, reader.width);
  }
  REALstringStruct* result = REALBuildUnicodeString(buffer, static_cast<uint32_t>(total), kEncodingRawBytes);
  std::free(buffer);
  return result;
}

REALpictureStruct* BinaryStringtoPicture(REALstringStruct* data) {
  const StringBytes text = StringContent(data);
  BinaryHeader header;
  if (!ReadBinaryHeader(text.data, text.length, &header)) return nullptr;
  PictureWriter writer;
  if (!NewPictureWriter(writer, header.width, header.height)) return nullptr;
  const uint8_t* pixels = text.data + header.dataOffset;
  const size_t rowBytes = 3 * static_cast<size_t>(header.width);
  const auto toWords = ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast);
  for (int32_t y = 0; y < header.height; ++y) {
    toWords(pixels + y * rowBytes, WriterRow(writer, y), header.width);
  }
  return RenderPictureWriter(writer);
}
