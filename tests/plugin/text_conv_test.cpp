// The text and number conversions, called directly on the shared host's
// services; the host's accounting sees every string and block they make, so
// an intermediate string left unreleased, or released twice, fails the test.
#include <ctime>
#include <limits>
#include <optional>
#include <random>
#include <tuple>

#include "host/host_state.h"
#include "plugin/text_conv.h"
#include "tests/support/direct_calls.h"

namespace {

using Text = std::pair<std::string, uint32_t>;  // bytes, encoding

class TextConv : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    direct_.emplace(host());
  }
  void TearDown() override {
    direct_.reset();
    HostTest::TearDown();
  }
  // The bytes and encoding of a string the plug-in made, which is released.
  Text Take(REALstringStruct* s) {
    const ph::Ref r = direct_->Adopt(s);
    if (!r) return {"nil", 0};
    const std::vector<uint8_t> bytes = host().Bytes(r);
    return {std::string(bytes.begin(), bytes.end()), reinterpret_cast<const REALstringData*>(s)->encoding};
  }
  // The four-character code of a host string of `bytes` tagged `encoding`,
  // whose record may claim fewer bytes; by the current or the original rule.
  uint32_t OSType(std::string_view bytes, uint32_t encoding, bool original = false, int32_t length = -1) {
    ph::Ref s = host().NewString(bytes);
    s.get()->string->encoding = encoding;
    if (length >= 0) s.get()->string->length = length;
    auto* h = static_cast<REALstringStruct*>(s.handle());
    return original ? originalREALstringToOSType(h) : REALstringToOSType(h);
  }
  std::optional<DirectCalls> direct_;
};

TEST_F(TextConv, StringsAndBlocksFromBytesKeepTheExactBytesAndTag) {
  const char bytes[] = {'P', 0, 'Q', '\xFF', 0};
  EXPECT_EQ(Take(REALBuildUnicodeString(bytes, 5, kEncodingRawBytes)), Text(std::string(bytes, 5), 0xFFFF));
  EXPECT_EQ(Take(CString2RBmax("Hello", kEncodingASCII, 3)), Text("Hel", kEncodingASCII));
  EXPECT_EQ(Take(CString2RBmax("Hello", kEncodingUTF8, 100)), Text("Hello", kEncodingUTF8));
  for (REALstringStruct* none : {REALBuildUnicodeString(nullptr, 5, 0), REALBuildUnicodeString(bytes, 0, 0),
                                 CString2RBmax("Hello", 0, 0), CString2RBmax("Hello", 0, -4), CString2RBmax("", 0, 10),
                                 CString2RBmax(nullptr, 0, 10), UnicodeCString2RB(u""), UnicodeCString2RB(nullptr)})
    EXPECT_EQ(none, nullptr);
  // UTF-16 text becomes UTF-8 when the host converts it (the UTF-16 string
  // made on the way is released), else stays UTF-16.
  EXPECT_EQ(Take(UnicodeCString2RB(u"Hi!")), Text("Hi!", kEncodingUTF8));
  const uint8_t block[] = {1, 2, 3, 4, 5};
  EXPECT_EQ(host().Bytes(direct_->Adopt(REALBuildMemoryblock(block, 5))), std::vector<uint8_t>(block, block + 5));
  EXPECT_EQ(REALBuildMemoryblock(block, 0), nullptr);
  EXPECT_EQ(REALBuildMemoryblock(nullptr, 5), nullptr);
  // Folder item paths are in the system font's encoding, UTF-8, converted or not.
  ph::Ref item = direct_->Adopt(reinterpret_cast<void* (*)(const char*)>(ph::ResolveEntryPoint("FolderItemFromPath"))("/tmp/item"));
  auto* handle = static_cast<REALfolderItemStruct*>(item.handle());
  EXPECT_EQ(Take(MyREALpathFromFolderItem(handle)), Text("/tmp/item", kEncodingUTF8));
  EXPECT_EQ(MyREALpathFromFolderItem(nullptr), nullptr);

  direct_->FailConversions(true);
  EXPECT_EQ(Take(UnicodeCString2RB(u"Hi")), Text(std::string("H\0i\0", 4), kEncodingUTF16));
  EXPECT_EQ(Take(MyREALpathFromFolderItem(handle)), Text("/tmp/item", kEncodingUTF8));
  direct_->HideBlockData(true);  // a block whose address cannot be had is released again
  EXPECT_EQ(REALBuildMemoryblock(block, 5), nullptr);
}

TEST_F(TextConv, FourCharacterCodes) {
  // Big-endian, tagged Mac Roman when a byte has its top bit set.
  EXPECT_EQ(Take(REALBuildOSTypeString(0x41424344)), Text("ABCD", kEncodingASCII));
  EXPECT_EQ(Take(REALBuildOSTypeString(0x4142C344)), Text("AB\xC3" "D", kEncodingMacRoman));
  EXPECT_EQ(Take(REALBuildOSTypeString(0x00000080)).second, kEncodingMacRoman);
  EXPECT_EQ(Take(REALBuildOSTypeString(0x7F7F7F7F)).second, kEncodingASCII);
  EXPECT_EQ(REALstringToOSType(nullptr), 0x20202020u);
  // Padded with spaces; nothing beyond the record's length is read. The Mac
  // Roman conversion is read (e-acute is 0x8E there); the original form
  // reads the bytes. Bytes, encoding, original form, record length -> code.
  const std::tuple<const char*, uint32_t, bool, int32_t, uint32_t> codes[] = {
      {"ABCD", kEncodingUTF8, false, -1, 0x41424344u},        {"ABCDEFG", kEncodingUTF8, false, -1, 0x41424344u},
      {"ABXY", 0xFFFF, true, 2, 0x41422020u},                  {"", 0xFFFF, true, -1, 0x20202020u},
      {"\xC3\xA9" "AB", kEncodingUTF8, false, -1, 0x8E414220u}, {"\xC3\xA9" "AB", kEncodingUTF8, true, -1, 0xC3A94142u}};
  for (auto [bytes, encoding, original, length, code] : codes) EXPECT_EQ(OSType(bytes, encoding, original, length), code) << bytes;
  direct_->FailConversions(true);
  EXPECT_EQ(OSType("\xC3\xA9" "AB", kEncodingUTF8), 0xC3A94142u);
}

TEST_F(TextConv, VersionCodesAreTruncatedAndTheVersionIsAskedOnce) {
  // The exact product of the double 2006.04 and 100 lies just below 200604,
  // although plain double multiplication rounds it up to 200604.0.
  EXPECT_EQ(2006.04 * 100.0, 200604.0);
  const std::pair<double, int32_t> codes[] = {{2007.0, 200700}, {5.9, 590},  {2006.04, 200603}, {-2006.04, -200603},
                                              {5.8, 579},       {2006.06, 200605}, {1.0 / 0.0, 0}, {0.0 / 0.0, 0},
                                              {-1.5, -150}};
  for (auto [version, code] : codes) EXPECT_EQ(VersionCode(version), code) << version;
  // code -> wants 64-bit, wants 32-bit.
  for (auto [code, want64, want32] : {std::tuple{200700, true, false}, {590, false, true}, {200603, false, true},
                                      {200604, true, false}, {299999, true, false}, {300000, true, true}}) {
    EXPECT_EQ(Want64bitFor(code), want64) << code;
    EXPECT_EQ(Want32bitFor(code), want32) << code;
  }
  const int asked = direct_->VersionQuestions();
  EXPECT_EQ(RealbasicVersion(), 2007.0);
  EXPECT_TRUE(Want64bit());
  EXPECT_FALSE(Want32bit());
  RealbasicVersion();
  EXPECT_LE(direct_->VersionQuestions(), asked + 1);
}

TEST(TickCount, SixtyTicksPerSecondOfWallClockModulo32Bits) {
  // Seconds times 60 in 64 bits, then cut to 32: the 32-bit product wraps.
  auto expected = [] { return static_cast<uint32_t>(static_cast<uint64_t>(std::time(nullptr)) * 60 % (uint64_t{1} << 32)); };
  const uint32_t before = expected(), ticks = TickCount(), after = expected();
  EXPECT_TRUE(ticks == before || ticks == after) << ticks;
}

// --- 64-bit integers and decimal text ---------------------------------------------

template <typename T, typename Char>
T Parsed(const Char* text) {
  T v = 99;
  if constexpr (std::is_signed_v<T>) str2longlong(&v, text);
  else str2ulonglong(&v, text);
  return v;
}

TEST(DecimalText, ParsingRules) {
  constexpr int64_t kMin = std::numeric_limits<int64_t>::min(), kMax = std::numeric_limits<int64_t>::max();
  const std::pair<const char*, int64_t> narrow[] = {
      {"", 0},       {"123", 123}, {"-123", -123}, {"12-3", -123}, {"7x9", 7}, {"-", 0}, {" 5", 0},
      {"--5", 0},  // the second minus sign ends the scan
      {"-9223372036854775808", kMin}, {"9223372036854775807", kMax}, {"18446744073709551617", 1}};  // wraps
  for (auto [text, value] : narrow) EXPECT_EQ((Parsed<int64_t>(text)), value) << text;
  const std::pair<const char16_t*, int64_t> wide[] = {
      {u"--5", -5}, {u"1-2-3", -123}, {u"-", 0}, {u"", 0},  // further minus signs change nothing
      {u"42\u0663", 42}, {u"-9223372036854775808", kMin}};   // only ASCII digits count
  for (auto [text, value] : wide) EXPECT_EQ((Parsed<int64_t>(text)), value) << value;
  const std::pair<const char*, uint64_t> unsignedTexts[] = {
      {"", 0}, {"42abc", 42}, {"-5", 0}, {"+5", 0}, {"x1", 0}, {"18446744073709551615", ~uint64_t{0}}};
  for (auto [text, value] : unsignedTexts) EXPECT_EQ((Parsed<uint64_t>(text)), value) << text;
}

TEST(DecimalText, WritingFillsTheBufferFromItsEnd) {
  char buffer[kDecimalBufferSize];
  std::fill(buffer, buffer + kDecimalBufferSize, '#');
  char* end = buffer + kDecimalBufferSize;
  EXPECT_EQ(longlong2str(0, end), end - 2);
  EXPECT_STREQ(end - 2, "0");
  EXPECT_EQ(buffer[0], '#');
  // The longest texts fill all 21 elements exactly.
  EXPECT_EQ(longlong2str(std::numeric_limits<int64_t>::min(), end), buffer);
  EXPECT_STREQ(buffer, "-9223372036854775808");
  EXPECT_EQ(ulonglong2str(std::numeric_limits<uint64_t>::max(), end), buffer);
  EXPECT_STREQ(buffer, "18446744073709551615");
  char16_t wide[kDecimalBufferSize];
  EXPECT_EQ(longlong2str(std::numeric_limits<int64_t>::min(), wide + kDecimalBufferSize), wide);
  EXPECT_EQ(std::u16string(wide), u"-9223372036854775808");

  // Values of every magnitude against the standard library, both ways.
  std::mt19937_64 random(20240611);
  for (int i = 0; i < 5000; ++i) {
    const uint64_t bits = random() >> (random() % 64);
    const int64_t value = (i & 1) ? -static_cast<int64_t>(bits >> 1) : static_cast<int64_t>(bits >> 1);
    const char* text = longlong2str(value, end);
    ASSERT_EQ(std::string(text), std::to_string(value)) << i;
    ASSERT_EQ(Parsed<int64_t>(text), value) << i;
    ASSERT_EQ(Parsed<int64_t>(longlong2str(value, wide + kDecimalBufferSize)), value) << i;
    ASSERT_EQ(std::string(ulonglong2str(bits, end)), std::to_string(bits)) << i;
    ASSERT_EQ(Parsed<uint64_t>(std::to_string(bits).c_str()), bits) << i;
  }
}

}  // namespace
