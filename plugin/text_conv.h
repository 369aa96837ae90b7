// Small conversions between plug-in data and host values: host strings and
// memory blocks from bytes, four-character codes, the host version, a tick
// clock, and 64-bit integers to and from decimal text.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

// Encoding value that marks a string as raw bytes.
constexpr uint32_t kEncodingRawBytes = 0xFFFF;

// A new host string of exactly `length` bytes tagged with `encoding`; null for
// no bytes, a length of 0 (or beyond the host's signed 32-bit range), or when
// the host makes no string.
REALstringStruct* REALBuildUnicodeString(const void* bytes, uint32_t length, uint32_t encoding);

// A string of the first min(maximum, strlen(text)) bytes, tagged; null when
// that is 0 or less.
REALstringStruct* CString2RBmax(const char* text, uint32_t encoding, int32_t maximum);

// The zero-terminated 16-bit text as UTF-8 when the host converts it, else as
// the UTF-16 string; null for null or empty text.
REALstringStruct* UnicodeCString2RB(const char16_t* text);

// A new memory block holding a copy of `size` bytes; null for no bytes, a size
// below 1, or when the host makes no block.
REALmemoryBlockStruct* REALBuildMemoryblock(const void* bytes, int32_t size);

// The item's path in the encoding of the system font (or as the host gave it).
REALstringStruct* MyREALpathFromFolderItem(REALfolderItemStruct* item);

// Four-character codes: 'ABCD' is 0x41424344.
REALstringStruct* REALBuildOSTypeString(uint32_t code);
uint32_t REALstringToOSType(REALstringStruct* text);          // converts to Mac Roman first
uint32_t originalREALstringToOSType(REALstringStruct* text);  // reads the string as it is

// The host version, asked once and then kept.
double RealbasicVersion();
bool Want64bit();
bool Want32bit();

// 100 x version, truncated toward zero to 32 bits (2006.04 gives 200603), and
// the two tests made on it.
int32_t VersionCode(double version);
bool Want64bitFor(int32_t versionCode);
bool Want32bitFor(int32_t versionCode);

// Wall-clock seconds since 1970 times 60, in 32-bit arithmetic.
uint32_t TickCount();

// Decimal text to 64-bit integers. Digits accumulate with wrap-around; the
// first other character ends the number. A minus sign anywhere before that
// makes the value negative: the 8-bit form stops at a second minus sign, the
// 16-bit form accepts further ones. The unsigned form accepts no sign.
void str2longlong(int64_t* result, const char* text);
void str2longlong(int64_t* result, const char16_t* text);
void str2ulonglong(uint64_t* result, const char* text);

// Decimal text of a 64-bit value written backwards from `end`, the address
// just past the caller's buffer: the terminator goes in end[-1] and the digits
// before it. Returns the first character. At most 20 characters and the
// terminator are written, so the buffer needs kDecimalBufferSize elements.
constexpr int kDecimalBufferSize = 21;
char* longlong2str(int64_t value, char* end);
char16_t* longlong2str(int64_t value, char16_t* end);
char* ulonglong2str(uint64_t value, char* end);

// The content and byte length of a host string as its record holds them; a
// nil handle (or a negative length) is the empty string.
struct StringBytes {
  const uint8_t* data;
  int32_t length;
};
StringBytes StringContent(REALstringStruct* text);
