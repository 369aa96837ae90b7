// The "PPIC" binary string form of a picture: a 40-byte big-endian header
// (signature, total length, width, height, the constant 32, the pixel data
// offset, 16 reserved bytes) followed by 3-byte red, green, blue pixels, rows
// top to bottom without padding.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

constexpr uint32_t kBinaryHeaderSize = 40;

REALstringStruct* PicturetoBinaryString(REALpictureStruct* picture);
REALpictureStruct* BinaryStringtoPicture(REALstringStruct* data);

// The header fields as stored (big-endian words).
struct BinaryHeader {
  uint32_t totalLength;
  int32_t width;
  int32_t height;
  uint32_t dataOffset;
};

// Writes the 40-byte header of a width x height picture.
void WriteBinaryHeader(uint8_t* header, int32_t width, int32_t height);

// Reads and checks a string's header: the signature, the length field against
// `length`, a width and height of at least 1, and pixel data lying wholly
// inside the string. False for anything else.
bool ReadBinaryHeader(const uint8_t* data, int32_t length, BinaryHeader* header);
