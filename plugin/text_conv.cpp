#include "plugin/text_conv.h"

#include <cmath>
#include <cstring>
#include <ctime>

#include "plugin/host_calls.h"

namespace {

// The host makes the string from a signed 32-bit length.
REALstringStruct* BuildTagged(const void* bytes, uint32_t length, uint32_t encoding) {
  if (length > static_cast<uint32_t>(INT32_MAX)) return nullptr;
  REALstringStruct* text = originalREALBuildString(bytes, static_cast<int32_t>(length));
  if (text) REALSetStringEncoding(text, encoding);
  return text;
}

// Replaces `text` by its conversion when the host gives one, releasing the
// unconverted string; otherwise keeps `text`.
REALstringStruct* ConvertOrKeep(REALstringStruct* text, uint32_t encoding) {
  REALstringStruct* converted = REALConvertString(text, encoding);
  if (!converted) return text;
  REALUnlockString(text);
  return converted;
}

// The code of the first four characters; positions after the text stay spaces.
uint32_t CodeOfText(const StringBytes& text) {
  uint32_t code = 0x20202020;
  const int32_t n = text.length < 4 ? text.length : 4;
  for (int32_t i = 0; i < n; ++i) {
    const int shift = 8 * (3 - i);
    code = (code & ~(0xFFu << shift)) | (static_cast<uint32_t>(text.data[i]) << shift);
  }
  return code;
}

bool IsDigit(uint32_t c) { return c >= '0' && c <= '9'; }

template <typename Char>
int64_t ParseSigned(const Char* text, bool repeatedMinusEnds) {
  uint64_t value = 0;
  bool negative = false;
  for (const Char* p = text; p && *p; ++p) {
    const uint32_t c = static_cast<uint32_t>(*p);
    if (IsDigit(c)) {
      value = value * 10 + (c - '0');
    } else if (c == '-') {
      if (negative && repeatedMinusEnds) break;
      negative = true;
    } else {
      break;
    }
  }
  // Two's-complement negation of the magnitude; C++20 converts modulo 2^64.
  return static_cast<int64_t>(negative ? 0 - value : value);
}

template <typename Char>
Char* WriteDecimal(uint64_t magnitude, bool negative, Char* end) {
  Char* p = end;
  *--p = 0;
  do {
    *--p = static_cast<Char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (negative) *--p = static_cast<Char>('-');
  return p;
}

template <typename Char>
Char* SignedDecimal(int64_t value, Char* end) {
  const uint64_t bits = static_cast<uint64_t>(value);
  // The most negative value has no positive counterpart; its unsigned
  // negation is the right magnitude.
  return value < 0 ? WriteDecimal(0 - bits, true, end) : WriteDecimal(bits, false, end);
}

double gHostVersion = 0.0;
bool gHostVersionUnknown = true;

}  // namespace

StringBytes StringContent(REALstringStruct* text) {
  if (!text) return {nullptr, 0};
  const auto* record = reinterpret_cast<const REALstringData*>(text);
  if (!record->storage || record->length <= 0) return {nullptr, 0};
  return {reinterpret_cast<const uint8_t*>(record->storage) + 1, record->length};
}

REALstringStruct* REALBuildUnicodeString(const void* bytes, uint32_t length, uint32_t encoding) {
  if (!bytes || length == 0) return nullptr;
  return BuildTagged(bytes, length, encoding);
}

REALstringStruct* CString2RBmax(const char* text, uint32_t encoding, int32_t maximum) {
  if (!text || maximum <= 0) return nullptr;
  const size_t length = std::strlen(text);
  const size_t n = length < static_cast<size_t>(maximum) ? length : static_cast<size_t>(maximum);
  if (n == 0) return nullptr;
  return BuildTagged(text, static_cast<uint32_t>(n), encoding);
}

REALstringStruct* UnicodeCString2RB(const char16_t* text) {
  if (!text) return nullptr;
  size_t units = 0;
  while (text[units] != 0) ++units;
  if (units == 0 || units > static_cast<size_t>(INT32_MAX) / 2) return nullptr;
  REALstringStruct* utf16 = BuildTagged(text, static_cast<uint32_t>(2 * units), kEncodingUTF16);
  if (!utf16) return nullptr;
  return ConvertOrKeep(utf16, kEncodingUTF8);
}

REALmemoryBlockStruct* REALBuildMemoryblock(const void* bytes, int32_t size) {
  if (!bytes || size < 1) return nullptr;
  REALmemoryBlockStruct* block = REALNewMemoryBlock(size);
  if (!block) return nullptr;
  void* data = REALMemoryBlockGetPtr(block);
  if (!data) {
    REALUnlockObject(AsObject(block));
    return nullptr;
  }
  std::memmove(data, bytes, static_cast<size_t>(size));
  return block;
}

REALstringStruct* MyREALpathFromFolderItem(REALfolderItemStruct* item) {
  if (!item) return nullptr;
  REALstringStruct* path = REALpathFromFolderItem(item);
  if (!path) return nullptr;
  return ConvertOrKeep(path, REALGetFontEncoding("System"));
}

REALstringStruct* REALBuildOSTypeString(uint32_t code) {
  const uint8_t bytes[4] = {static_cast<uint8_t>(code >> 24), static_cast<uint8_t>(code >> 16),
                            static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code)};
  const bool highBytes = ((code & 0x80808080u) != 0);
  return BuildTagged(bytes, 4, highBytes ? kEncodingMacRoman : kEncodingASCII);
}

uint32_t originalREALstringToOSType(REALstringStruct* text) { return CodeOfText(StringContent(text)); }

uint32_t REALstringToOSType(REALstringStruct* text) {
  // A nil string is the empty string: there is nothing to convert.
  REALstringStruct* converted = text ? REALConvertString(text, kEncodingMacRoman) : nullptr;
  if (!converted) return CodeOfText(StringContent(text));
  const uint32_t code = CodeOfText(StringContent(converted));
  REALUnlockString(converted);
  return code;
}

double RealbasicVersion() {
  if (gHostVersionUnknown) {
    gHostVersion = REALGetRBVersion();
    gHostVersionUnknown = false;
  }
  return gHostVersion;
}

int32_t VersionCode(double version) {
  // The exact product version x 100 truncated toward zero. The rounded double
  // product can land on an integer that the exact product falls short of
  // (2006.04 x 100 rounds to 200604.0 but lies just below it); the residual
  // of the truncated value, computed exactly by a fused multiply-add, tells
  // when to step back. Values outside the 32-bit range, and not-a-number,
  // count as 0.
  const double product = version * 100.0;
  if (!(product > -2147483649.0 && product < 2147483648.0)) return 0;
  double truncated = std::trunc(product);
  const double residual = std::fma(version, 100.0, -truncated);
  if (truncated > 0 && residual < 0) truncated -= 1;
  if (truncated < 0 && residual > 0) truncated += 1;
  return static_cast<int32_t>(truncated);
}

bool Want64bitFor(int32_t versionCode) { return versionCode > 200603; }
bool Want32bitFor(int32_t versionCode) { return versionCode > 299999 || versionCode <= 200603; }

bool Want64bit() { return Want64bitFor(VersionCode(RealbasicVersion())); }
bool Want32bit() { return Want32bitFor(VersionCode(RealbasicVersion())); }

uint32_t TickCount() { return static_cast<uint32_t>(std::time(nullptr)) * 60u; }

void str2longlong(int64_t* result, const char* text) { *result = ParseSigned(text, true); }

void str2longlong(int64_t* result, const char16_t* text) { *result = ParseSigned(text, false); }

void str2ulonglong(uint64_t* result, const char* text) {
  uint64_t value = 0;
  for (const char* p = text; p && IsDigit(static_cast<unsigned char>(*p)); ++p) {
    value = value * 10 + static_cast<uint64_t>(*p - '0');
  }
  *result = value;
}

char* longlong2str(int64_t value, char* end) { return SignedDecimal(value, end); }
char16_t* longlong2str(int64_t value, char16_t* end) { return SignedDecimal(value, end); }
char* ulonglong2str(uint64_t value, char* end) { return WriteDecimal(value, false, end); }
