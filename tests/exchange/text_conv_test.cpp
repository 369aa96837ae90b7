// The text and number conversions, run against a small fake host installed
// as this test program's resolver (the plug-in copy loaded by the emulated
// host is not involved). Entry points stay cached once found, so one fake
// serves the whole program and each test resets its state.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "plugin/host_calls.h"
#include "plugin/text_conv.h"

namespace {

struct FakeString {
  REALstringData record{};
  std::vector<char> storage;  // content starts at storage[1]
  bool released = false;
};

struct FakeBlock {
  std::vector<uint8_t> bytes;
  bool released = false;
};

struct FakeHost {
  std::vector<std::unique_ptr<FakeString>> strings;
  std::vector<std::unique_ptr<FakeBlock>> blocks;
  bool convert = true;           // REALConvertString gives a string
  bool blockPointers = true;     // memoryBlockGetPtr gives the bytes
  double version = 2007.0;
  int versionQuestions = 0;
  std::vector<uint32_t> conversions;  // encodings asked for
  std::vector<std::string> fontsAsked;

  void Reset() { *this = FakeHost{}; }
};

FakeHost gFake;

REALstringStruct* MakeFakeString(const void* bytes, int32_t length, uint32_t encoding) {
  auto s = std::make_unique<FakeString>();
  s->storage.assign(static_cast<size_t>(length) + 1, '\0');
  if (length > 0) std::memcpy(s->storage.data() + 1, bytes, static_cast<size_t>(length));
  s->record.referenceCount = 1;
  s->record.storage = s->storage.data();
  s->record.encoding = encoding;
  s->record.length = length;
  auto* handle = reinterpret_cast<REALstringStruct*>(&s->record);
  gFake.strings.push_back(std::move(s));
  return handle;
}

FakeString& Fake(REALstringStruct* handle) {
  for (auto& s : gFake.strings) {
    if (reinterpret_cast<REALstringStruct*>(&s->record) == handle) return *s;
  }
  throw std::runtime_error("not a fake string");
}

std::string Text(REALstringStruct* handle) {
  const FakeString& s = Fake(handle);
  return std::string(s.storage.data() + 1, static_cast<size_t>(s.record.length));
}

// --- The fake's entry points ----------------------------------------------------

REALstringStruct* BuildString(const void* bytes, int32_t length) {
  return MakeFakeString(bytes, length, 0xDEAD);
}
void SetEncoding(REALstringStruct* s, uint32_t encoding) { Fake(s).record.encoding = encoding; }
void UnlockString(REALstringStruct* s) {
  FakeString& f = Fake(s);
  EXPECT_FALSE(f.released) << "string released twice";
  f.released = true;
}
// Conversion to Mac Roman upper-cases ASCII letters, so that the tests can
// tell which string was read; UTF-16 to UTF-8 keeps every other byte (the
// test texts are ASCII); other encodings copy the bytes.
REALstringStruct* ConvertString(REALstringStruct* s, uint32_t encoding) {
  gFake.conversions.push_back(encoding);
  if (!gFake.convert || !s) return nullptr;
  std::string text = Text(s);
  if (encoding == kEncodingMacRoman) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  } else if (encoding == kEncodingUTF8 && Fake(s).record.encoding == kEncodingUTF16) {
    std::string narrow;
    for (size_t i = 0; i < text.size(); i += 2) narrow.push_back(text[i]);
    text = narrow;
  }
  return MakeFakeString(text.data(), static_cast<int32_t>(text.size()), encoding);
}
uint32_t FontEncoding(const char* name) {
  gFake.fontsAsked.push_back(name);
  return 0x7E;
}
REALstringStruct* PathOfItem(REALfolderItemStruct*) {
  return MakeFakeString("/tmp/item", 9, kEncodingUTF8);
}
REALmemoryBlockStruct* NewBlock(int32_t size) {
  auto b = std::make_unique<FakeBlock>();
  b->bytes.assign(static_cast<size_t>(size), 0xEE);
  auto* handle = reinterpret_cast<REALmemoryBlockStruct*>(b.get());
  gFake.blocks.push_back(std::move(b));
  return handle;
}
void* BlockPtr(REALmemoryBlockStruct* block) {
  return gFake.blockPointers ? reinterpret_cast<FakeBlock*>(block)->bytes.data() : nullptr;
}
void UnlockObject(REALobjectStruct* object) {
  for (auto& b : gFake.blocks) {
    if (reinterpret_cast<REALobjectStruct*>(b.get()) == object) b->released = true;
  }
}
double HostVersion() {
  ++gFake.versionQuestions;
  return gFake.version;
}

void* FakeResolver(const char* name) {
  static const std::map<std::string, void*> entries = {
      {"REALBuildString", reinterpret_cast<void*>(BuildString)},
      {"REALSetStringEncoding", reinterpret_cast<void*>(SetEncoding)},
      {"REALUnlockString", reinterpret_cast<void*>(UnlockString)},
      {"REALConvertString", reinterpret_cast<void*>(ConvertString)},
      {"REALGetFontEncoding", reinterpret_cast<void*>(FontEncoding)},
      {"REALpathFromFolderItem", reinterpret_cast<void*>(PathOfItem)},
      {"newMemoryBlock", reinterpret_cast<void*>(NewBlock)},
      {"memoryBlockGetPtr", reinterpret_cast<void*>(BlockPtr)},
      {"REALUnlockObject", reinterpret_cast<void*>(UnlockObject)},
      {"REALGetRBVersion", reinterpret_cast<void*>(HostVersion)},
  };
  auto it = entries.find(name);
  return it == entries.end() ? nullptr : it->second;
}

class TextConv : public ::testing::Test {
 protected:
  void SetUp() override {
    gFake.Reset();
    gResolver = FakeResolver;
  }
};

// --- Host strings and blocks from bytes --------------------------------------------

TEST_F(TextConv, BuildUnicodeStringCopiesExactBytesAndTags) {
  const char bytes[] = {'P', 0, 'Q', '\xFF', 0};
  REALstringStruct* s = REALBuildUnicodeString(bytes, 5, kEncodingRawBytes);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(Text(s), std::string(bytes, 5));
  EXPECT_EQ(Fake(s).record.encoding, 0xFFFFu);

  EXPECT_EQ(REALBuildUnicodeString(nullptr, 5, 0), nullptr);
  EXPECT_EQ(REALBuildUnicodeString(bytes, 0, 0), nullptr);
  EXPECT_EQ(gFake.strings.size(), 1u);
}

TEST_F(TextConv, CString2RBmaxTakesTheShorterLength) {
  REALstringStruct* cut = CString2RBmax("Hello", kEncodingASCII, 3);
  ASSERT_NE(cut, nullptr);
  EXPECT_EQ(Text(cut), "Hel");
  EXPECT_EQ(Fake(cut).record.encoding, kEncodingASCII);

  REALstringStruct* whole = CString2RBmax("Hello", kEncodingUTF8, 100);
  ASSERT_NE(whole, nullptr);
  EXPECT_EQ(Text(whole), "Hello");

  EXPECT_EQ(CString2RBmax("Hello", 0, 0), nullptr);
  EXPECT_EQ(CString2RBmax("Hello", 0, -4), nullptr);
  EXPECT_EQ(CString2RBmax("", 0, 10), nullptr);
  EXPECT_EQ(CString2RBmax(nullptr, 0, 10), nullptr);
}

TEST_F(TextConv, UnicodeTextBecomesUtf8WhenTheHostConverts) {
  REALstringStruct* s = UnicodeCString2RB(u"Hi!");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(Text(s), "Hi!");
  EXPECT_EQ(Fake(s).record.encoding, kEncodingUTF8);
  // The UTF-16 string made on the way was released, the result was not.
  ASSERT_EQ(gFake.strings.size(), 2u);
  EXPECT_TRUE(gFake.strings[0]->released);
  EXPECT_EQ(Text(reinterpret_cast<REALstringStruct*>(&gFake.strings[0]->record)),
            std::string("H\0i\0!\0", 6));
  EXPECT_FALSE(gFake.strings[1]->released);

  gFake.convert = false;
  REALstringStruct* raw = UnicodeCString2RB(u"Hi");
  ASSERT_NE(raw, nullptr);
  EXPECT_EQ(Text(raw), std::string("H\0i\0", 4));
  EXPECT_EQ(Fake(raw).record.encoding, kEncodingUTF16);
  EXPECT_FALSE(Fake(raw).released);

  EXPECT_EQ(UnicodeCString2RB(u""), nullptr);
  EXPECT_EQ(UnicodeCString2RB(nullptr), nullptr);
}

TEST_F(TextConv, BuildMemoryblockCopiesOrReleases) {
  const uint8_t bytes[] = {1, 2, 3, 4, 5};
  REALmemoryBlockStruct* block = REALBuildMemoryblock(bytes, 5);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<FakeBlock*>(block)->bytes, std::vector<uint8_t>(bytes, bytes + 5));

  EXPECT_EQ(REALBuildMemoryblock(bytes, 0), nullptr);
  EXPECT_EQ(REALBuildMemoryblock(nullptr, 5), nullptr);
  EXPECT_EQ(gFake.blocks.size(), 1u);

  // A block whose address cannot be had is released again.
  gFake.blockPointers = false;
  EXPECT_EQ(REALBuildMemoryblock(bytes, 5), nullptr);
  ASSERT_EQ(gFake.blocks.size(), 2u);
  EXPECT_TRUE(gFake.blocks[1]->released);
  EXPECT_FALSE(gFake.blocks[0]->released);
}

TEST_F(TextConv, FolderItemPathInTheSystemFontEncoding) {
  auto* item = reinterpret_cast<REALfolderItemStruct*>(&gFake);
  REALstringStruct* path = MyREALpathFromFolderItem(item);
  ASSERT_NE(path, nullptr);
  EXPECT_EQ(Text(path), "/tmp/item");
  EXPECT_EQ(Fake(path).record.encoding, 0x7Eu);
  EXPECT_EQ(gFake.fontsAsked, std::vector<std::string>{"System"});
  EXPECT_TRUE(gFake.strings[0]->released);  // the unconverted path

  gFake.convert = false;
  REALstringStruct* plain = MyREALpathFromFolderItem(item);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(Fake(plain).record.encoding, kEncodingUTF8);
  EXPECT_FALSE(Fake(plain).released);

  EXPECT_EQ(MyREALpathFromFolderItem(nullptr), nullptr);
}

// --- Four-character codes ------------------------------------------------------------

TEST_F(TextConv, OSTypeStringsAreBigEndianAndTaggedByTheirBytes) {
  REALstringStruct* abcd = REALBuildOSTypeString(0x41424344);
  ASSERT_NE(abcd, nullptr);
  EXPECT_EQ(Text(abcd), "ABCD");
  EXPECT_EQ(Fake(abcd).record.encoding, kEncodingASCII);

  REALstringStruct* high = REALBuildOSTypeString(0x4142C344);
  ASSERT_NE(high, nullptr);
  EXPECT_EQ(Text(high), "AB\xC3" "D");
  EXPECT_EQ(Fake(high).record.encoding, kEncodingMacRoman);
  EXPECT_EQ(Fake(REALBuildOSTypeString(0x00000080)).record.encoding, kEncodingMacRoman);
  EXPECT_EQ(Fake(REALBuildOSTypeString(0x7F7F7F7F)).record.encoding, kEncodingASCII);
}

TEST_F(TextConv, OSTypeFromTextPadsWithSpacesAndReadsNoFurther) {
  gFake.convert = false;
  EXPECT_EQ(REALstringToOSType(MakeFakeString("ABCD", 4, 0)), 0x41424344u);
  EXPECT_EQ(REALstringToOSType(MakeFakeString("ABCDEFG", 7, 0)), 0x41424344u);
  EXPECT_EQ(REALstringToOSType(nullptr), 0x20202020u);
  // The record says two bytes; the storage holds more, which must not be read.
  EXPECT_EQ(originalREALstringToOSType(MakeFakeString("ABXY", 2, 0)), 0x41422020u);
  EXPECT_EQ(originalREALstringToOSType(MakeFakeString("", 0, 0)), 0x20202020u);
}

TEST_F(TextConv, OSTypeFromTextReadsTheMacRomanConversion) {
  REALstringStruct* lower = MakeFakeString("abcd", 4, kEncodingUTF8);
  EXPECT_EQ(REALstringToOSType(lower), 0x41424344u);  // the converted (upper-cased) text
  EXPECT_EQ(gFake.conversions, std::vector<uint32_t>{kEncodingMacRoman});
  ASSERT_EQ(gFake.strings.size(), 2u);
  EXPECT_TRUE(gFake.strings[1]->released);  // the conversion, not the caller's string
  EXPECT_FALSE(gFake.strings[0]->released);

  EXPECT_EQ(originalREALstringToOSType(lower), 0x61626364u);  // no conversion
  EXPECT_EQ(gFake.conversions.size(), 1u);
}

// --- Host version ---------------------------------------------------------------------

TEST(Version, CodesAreTruncatedNotRounded) {
  EXPECT_EQ(VersionCode(2007.0), 200700);
  EXPECT_EQ(VersionCode(5.9), 590);
  // The exact product of the double 2006.04 and 100 lies just below 200604,
  // although plain double multiplication rounds it up to 200604.0.
  EXPECT_EQ(2006.04 * 100.0, 200604.0);
  EXPECT_EQ(VersionCode(2006.04), 200603);
  EXPECT_EQ(VersionCode(-2006.04), -200603);
  EXPECT_EQ(VersionCode(5.8), 579);      // 5.8 is stored just below 5.8
  EXPECT_EQ(VersionCode(2006.06), 200605);
  EXPECT_EQ(VersionCode(1.0 / 0.0), 0);
  EXPECT_EQ(VersionCode(0.0 / 0.0), 0);
  EXPECT_EQ(VersionCode(-1.5), -150);

  EXPECT_TRUE(Want64bitFor(200700));
  EXPECT_FALSE(Want32bitFor(200700));
  EXPECT_FALSE(Want64bitFor(590));
  EXPECT_TRUE(Want32bitFor(590));
  EXPECT_FALSE(Want64bitFor(200603));
  EXPECT_TRUE(Want32bitFor(200603));
  EXPECT_TRUE(Want64bitFor(200604));
  EXPECT_FALSE(Want32bitFor(299999));
  EXPECT_TRUE(Want32bitFor(300000));
  EXPECT_TRUE(Want64bitFor(300000));
}

TEST_F(TextConv, VersionIsAskedOnceAndKept) {
  gFake.version = 2007.0;
  EXPECT_TRUE(Want64bit());
  EXPECT_FALSE(Want32bit());
  gFake.version = 5.9;  // the cache keeps the first answer
  EXPECT_EQ(RealbasicVersion(), 2007.0);
  EXPECT_TRUE(Want64bit());
  EXPECT_EQ(gFake.versionQuestions, 1);
}

TEST(TickCount, SixtyTicksPerSecondOfWallClockModulo32Bits) {
  // Seconds times 60 in 64 bits, then cut to 32: the 32-bit product wraps.
  auto expected = [] {
    return static_cast<uint32_t>(static_cast<uint64_t>(std::time(nullptr)) * 60 % (uint64_t{1} << 32));
  };
  const uint32_t before = expected();
  const uint32_t ticks = TickCount();
  const uint32_t after = expected();
  EXPECT_TRUE(ticks == before || ticks == after) << ticks;
}

// --- 64-bit integers and decimal text ---------------------------------------------

int64_t Signed(const char* text) {
  int64_t v = 99;
  str2longlong(&v, text);
  return v;
}
int64_t Signed16(const char16_t* text) {
  int64_t v = 99;
  str2longlong(&v, text);
  return v;
}
uint64_t Unsigned(const char* text) {
  uint64_t v = 99;
  str2ulonglong(&v, text);
  return v;
}

TEST(DecimalText, SignedParsingRules) {
  EXPECT_EQ(Signed(""), 0);
  EXPECT_EQ(Signed("123"), 123);
  EXPECT_EQ(Signed("-123"), -123);
  EXPECT_EQ(Signed("12-3"), -123);
  EXPECT_EQ(Signed("7x9"), 7);
  EXPECT_EQ(Signed("-"), 0);
  EXPECT_EQ(Signed("--5"), 0);  // the second minus sign ends the scan
  EXPECT_EQ(Signed("-9223372036854775808"), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(Signed("9223372036854775807"), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(Signed("18446744073709551617"), 1);  // wraps modulo 2^64
  EXPECT_EQ(Signed(" 5"), 0);

  EXPECT_EQ(Signed16(u"--5"), -5);  // further minus signs change nothing
  EXPECT_EQ(Signed16(u"1-2-3"), -123);
  EXPECT_EQ(Signed16(u"-"), 0);
  EXPECT_EQ(Signed16(u""), 0);
  EXPECT_EQ(Signed16(u"42\u0663"), 42);  // only ASCII digits count
  EXPECT_EQ(Signed16(u"-9223372036854775808"), std::numeric_limits<int64_t>::min());
}

TEST(DecimalText, UnsignedParsingAcceptsNoSign) {
  EXPECT_EQ(Unsigned(""), 0u);
  EXPECT_EQ(Unsigned("42abc"), 42u);
  EXPECT_EQ(Unsigned("-5"), 0u);
  EXPECT_EQ(Unsigned("+5"), 0u);
  EXPECT_EQ(Unsigned("x1"), 0u);
  EXPECT_EQ(Unsigned("18446744073709551615"), std::numeric_limits<uint64_t>::max());
}

TEST(DecimalText, WritingFillsTheBufferFromItsEnd) {
  char buffer[kDecimalBufferSize];
  std::memset(buffer, '#', sizeof buffer);
  char* end = buffer + sizeof buffer;

  char* zero = longlong2str(0, end);
  EXPECT_STREQ(zero, "0");
  EXPECT_EQ(zero, end - 2);
  EXPECT_EQ(end[-1], '\0');
  EXPECT_EQ(buffer[0], '#');

  // The longest texts fill all 21 elements exactly.
  char* most = longlong2str(std::numeric_limits<int64_t>::min(), end);
  EXPECT_EQ(most, buffer);
  EXPECT_STREQ(most, "-9223372036854775808");
  char* largest = ulonglong2str(std::numeric_limits<uint64_t>::max(), end);
  EXPECT_EQ(largest, buffer);
  EXPECT_STREQ(largest, "18446744073709551615");

  EXPECT_STREQ(longlong2str(-7, end), "-7");
  EXPECT_STREQ(longlong2str(std::numeric_limits<int64_t>::max(), end), "9223372036854775807");

  char16_t wide[kDecimalBufferSize];
  char16_t* w = longlong2str(std::numeric_limits<int64_t>::min(), wide + kDecimalBufferSize);
  EXPECT_EQ(w, wide);
  EXPECT_EQ(std::u16string(w), u"-9223372036854775808");
  EXPECT_EQ(std::u16string(longlong2str(0, wide + kDecimalBufferSize)), u"0");
}

TEST(DecimalText, RandomValuesMatchTheStandardLibraryBothWays) {
  std::mt19937_64 random(20240611);
  char buffer[kDecimalBufferSize];
  char16_t wide[kDecimalBufferSize];
  for (int i = 0; i < 5000; ++i) {
    // Values of every magnitude, not only huge ones.
    const uint64_t bits = random() >> (random() % 64);
    const int64_t value = (i & 1) ? -static_cast<int64_t>(bits >> 1) : static_cast<int64_t>(bits >> 1);
    const std::string expected = std::to_string(value);
    const char* text = longlong2str(value, buffer + kDecimalBufferSize);
    ASSERT_EQ(std::string(text), expected) << "case " << i;
    ASSERT_EQ(Signed(text), value) << "case " << i;
    const char16_t* wtext = longlong2str(value, wide + kDecimalBufferSize);
    ASSERT_EQ(Signed16(wtext), value) << "case " << i;
    ASSERT_EQ(std::string(ulonglong2str(bits, buffer + kDecimalBufferSize)), std::to_string(bits));
    ASSERT_EQ(Unsigned(std::to_string(bits).c_str()), bits);
  }
}

}  // namespace
