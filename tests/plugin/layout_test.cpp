// The byte layout the host sees. On 32-bit x86, the platform the host
// records are defined for, every registration record, every class's instance
// data and the host records are read here as raw 32-bit words at the byte
// offsets the host reads them at, and compared with the numbers typed in
// below, not with the structures the code uses. On x86-64 pointers are 8
// bytes wide, so the pointer-bearing layouts differ by design and those
// checks are skipped; the layouts without pointers (palette, minimum and
// maximum finder, RB::Rect) and the method-record strides (in words) are
// checked in both builds.
#include <cmath>
#include <cstring>
#include <set>
#include <sstream>

#include "host/host_state.h"
#include "tests/support/host_fixture.h"

namespace {

#if defined(__i386__)
constexpr bool kHostPlatform = true;
#else
constexpr bool kHostPlatform = false;
#endif
#define SKIP_UNLESS_HOST_PLATFORM() \
  if (!kHostPlatform) GTEST_SKIP() << "pointer-bearing layouts are checked in the 32-bit x86 build"

uint32_t Word(const void* base, size_t at) {
  uint32_t w;
  std::memcpy(&w, static_cast<const uint8_t*>(base) + at, 4);
  return w;
}
double DoubleAt(const void* base, size_t at) {
  double d;
  std::memcpy(&d, static_cast<const uint8_t*>(base) + at, 8);
  return d;
}
// A 32-bit word read as a pointer (only meaningful where pointers are 4 bytes).
const void* Pointer(const void* base, size_t at) { return reinterpret_cast<const void*>(uintptr_t{Word(base, at)}); }
const char* Text(const void* base, size_t at) { return static_cast<const char*>(Pointer(base, at)); }

// The documented classes: instance data size, method count, and every
// property as "Name:offset" (the host's standard accessors, the value at that
// offset) or "Name@offset" (a Double with its own accessors, kept there).
// Properties named ...Picture are pictures, the others integers.
struct ClassDoc { const char* name; bool extension; uint32_t dataSize, methodCount; std::string properties; };

std::string FinderProperties() {  // red, green, blue, sum: max X Y value, min X Y value, 4 bytes each
  std::ostringstream s;
  uint32_t at = 0;
  for (const char* q : {"Red", "Green", "Blue", "Sum"})
    for (const char* e : {"Max", "Min"})
      for (const char* f : {"X", "Y", ""}) s << q << e << f << ":" << at << " ", at += 4;
  return s.str();
}

const std::string kFrame = "SourcePicture:0 DestinationPicture:4 MinX:8 MinY:12 MaxX:16 MaxY:20 ";
const ClassDoc kDocs[] = {
    {"PictureSepiaQVT", false, 60, 2,  // the weights of red, green and blue at 36, 44 and 52 (see below)
     kFrame + "SepiaRed:24 SepiaGreen:28 SepiaBlue:32 FactorRed@36 FactorBlue@44 FactorGreen@52"},
    {"PictureConvolutionQVT", false, 332, 4, "SourcePicture:0 DestinationPicture:4 ValueCount:8"},
    {"PictureLut3DQVT", false, 139992, 3, kFrame},
    {"PaletteQVT", false, 1032, 5, "Count:0"},
    {"PictureMatrixQVT", false, 136, 4, kFrame + "Displacement:24 ScaleFactor@28"},
    {"PictureMatrix3DQVT", false, 224, 3, kFrame},
    {"graphics", true, 0, 1, ""},
    {"Picture", true, 0, 37, ""},
    {"PictureMinMaxQVT", false, 96, 16, FinderProperties()},
};

struct PropertyDoc { std::string name, type; bool custom; uint32_t offset; };

std::vector<PropertyDoc> Properties(const ClassDoc& doc) {
  std::vector<PropertyDoc> list;
  std::istringstream in(doc.properties);
  for (std::string item; in >> item;) {
    const size_t mark = item.find_first_of(":@");
    const std::string name = item.substr(0, mark);
    const bool custom = item[mark] == '@';
    list.push_back({name, custom ? "Double" : name.ends_with("Picture") ? "Picture" : "Integer", custom,
                    static_cast<uint32_t>(std::stoul(item.substr(mark + 1)))});
  }
  return list;
}

const ph::ClassInfo& Registered(const std::string& name) {
  for (const ph::ClassInfo& c : SharedHost().Classes())
    if (c.name == name) return c;
  throw std::runtime_error("not registered: " + name);
}

uint8_t* InstanceBlock(const ph::Ref& instance) {
  return static_cast<uint8_t*>(instance.handle()) + Registered(SharedHost().ClassOf(instance)).dataOffset;
}

class Layout : public HostTest {};

// Class records of 100 bytes, method records of 16 bytes, property records of
// 40 bytes, word by word.
TEST_F(Layout, RegistrationRecordsHaveTheDocumentedWords) {
  SKIP_UNLESS_HOST_PLATFORM();
  for (const ClassDoc& doc : kDocs) {
    SCOPED_TRACE(doc.name);
    const ph::ClassInfo& info = Registered(doc.name);
    const void* r = info.record;
    const std::vector<PropertyDoc> properties = Properties(doc);
    EXPECT_EQ(Word(r, 0), 9u) << "record version";
    EXPECT_STREQ(Text(r, 4), doc.name);
    EXPECT_EQ(Word(r, 8), 0u) << "superclass";
    EXPECT_EQ(Word(r, 12), doc.dataSize);
    EXPECT_EQ(info.dataSize, doc.dataSize) << "the size the host took";
    EXPECT_EQ(Word(r, 16), info.dataOffset) << "where the host wrote the instance-data offset";
    EXPECT_TRUE(doc.extension || Word(r, 16) != 0) << "the host writes a non-zero offset";
    for (size_t at : {20, 24}) EXPECT_EQ(Word(r, at) != 0, !doc.extension) << "constructor and destructor";
    EXPECT_EQ(Word(r, 28) != 0, !properties.empty()) << "property list";
    EXPECT_EQ(Word(r, 32), properties.size());
    EXPECT_NE(Word(r, 36), 0u) << "method list";
    EXPECT_EQ(Word(r, 40), doc.methodCount);
    for (size_t at = 44; at < 100; at += 4) EXPECT_EQ(Word(r, at), 0u) << "events and trailing word " << at;

    const void* methods = Pointer(r, 36);
    ASSERT_EQ(info.methods.size(), doc.methodCount);
    for (uint32_t i = 0; i < doc.methodCount; ++i) {
      EXPECT_EQ(Pointer(methods, 16 * i), info.methods[i].function);
      EXPECT_EQ(Pointer(methods, 16 * i + 4), info.methods[i].setter);
      EXPECT_STREQ(Text(methods, 16 * i + 8), info.methods[i].declaration.text.c_str());
      EXPECT_EQ(Word(methods, 16 * i + 12), 0u) << "flags";
    }

    std::set<std::string> seen;
    for (uint32_t i = 0; i < Word(r, 32); ++i) {
      const uint8_t* p = static_cast<const uint8_t*>(Pointer(r, 28)) + 40 * i;
      const std::string name = Text(p, 4);
      seen.insert(name);
      const auto d = std::find_if(properties.begin(), properties.end(), [&](auto& q) { return q.name == name; });
      ASSERT_NE(d, properties.end()) << "undocumented property " << name;
      EXPECT_STREQ(Text(p, 8), d->type.c_str()) << name;
      EXPECT_EQ(Word(p, 0) | Word(p, 12) | Word(p, 28) | Word(p, 32) | Word(p, 36), 0u) << name << ": group, flags, reserved";
      if (d->custom) {
        for (size_t at : {16, 20}) EXPECT_TRUE(Word(p, at) != 0 && Word(p, at) != 0xFFFFFFFFu) << name << " accessor";
        EXPECT_EQ(Word(p, 24), 0u) << name;
      } else {
        EXPECT_EQ(Word(p, 16) & Word(p, 20), 0xFFFFFFFFu) << name << ": the standard accessors";
        EXPECT_EQ(Word(p, 24), d->offset) << name;
      }
    }
    EXPECT_EQ(seen.size(), properties.size());
  }
  // The global methods are registered one by one from a single array.
  std::vector<const uint8_t*> globals;
  for (const ph::Registration& r : SharedHost().Registrations())
    if (r.kind == ph::Registration::Kind::Method) globals.push_back(static_cast<const uint8_t*>(r.record));
  ASSERT_EQ(globals.size(), 20u);
  for (size_t i = 0; i < globals.size(); ++i) {
    EXPECT_TRUE(i == 0 || globals[i] - globals[i - 1] == 16) << "global " << i;
    EXPECT_STREQ(Text(globals[i], 8), SharedHost().GlobalMethods()[i].declaration.text.c_str());
    EXPECT_EQ(Word(globals[i], 12), 0u);
  }
}

// Hosts from 5.9 on get method records of four words, and so does one whose
// answer is not a number (it cannot be shown to be old); older ones, or one
// that cannot say, three words without flags. Global methods keep the full
// form.
TEST_F(Layout, MethodRecordsAreFourWordsForNewHostsThreeForOldOnes) {
  struct Case { double version; std::set<std::string> without; size_t words; };
  for (const Case& c : {Case{5.9, {}, 4}, Case{2007.0, {}, 4}, Case{std::nan(""), {}, 4}, Case{5.8, {}, 3},
                        Case{2007.0, {"REALGetRBVersion"}, 3}}) {
    SCOPED_TRACE(testing::Message() << c.version << " " << c.without.size());
    const std::unique_ptr<ph::Host> privateHost = PrivateHost(c.without, c.version);
    ph::Host& host = *privateHost;
    size_t classes = 0;
    for (const ph::Registration& r : host.Registrations()) {
      if (r.kind == ph::Registration::Kind::Method) {
        EXPECT_EQ(static_cast<const REALmethodDefinition*>(r.record)->flags, 0u);
        continue;
      }
      ++classes;
      const auto* record = static_cast<const REALclassDefinition*>(r.record);
      const ph::ClassInfo& mine = Registered(record->name);
      ASSERT_EQ(record->methodCount, mine.methods.size());
      auto word = [&](uint32_t i, size_t k) { return reinterpret_cast<void* const*>(record->methods)[c.words * i + k]; };
      for (uint32_t i = 0; i < record->methodCount; ++i) {
        EXPECT_NE(word(i, 0), nullptr);
        EXPECT_EQ(word(i, 1) != nullptr, mine.methods[i].setter != nullptr);
        EXPECT_STREQ(static_cast<const char*>(word(i, 2)), mine.methods[i].declaration.text.c_str());
        EXPECT_TRUE(c.words == 3 || record->methods[i].flags == 0) << "flags";
      }
    }
    EXPECT_EQ(classes, 9u);
    for (const std::string& p : host.TakeProblems()) ADD_FAILURE() << p;
  }
}

// Doubles with their own accessors live at their fixed, unaligned offsets:
// a value set through the host is found there, and one planted there is
// read back. Which of FactorBlue and FactorGreen reaches which of the green
// (44) and blue (52) weights is pinned by the filter tests; here the two
// reach 44 and 52 between them. (Arrays reached only through their methods
// are the classes' own business; their size is the instance size above.)
TEST_F(Layout, DoublePropertiesLiveAtTheirDocumentedOffsets) {
  SKIP_UNLESS_HOST_PLATFORM();
  for (const ClassDoc& doc : kDocs) {
    std::set<uint32_t> documented, reached;
    for (const PropertyDoc& p : Properties(doc))
      if (p.custom) documented.insert(p.offset);
    for (const PropertyDoc& p : Properties(doc)) {
      if (!p.custom) continue;
      ph::Ref instance = host().NewInstance(doc.name);
      host().SetProperty(instance, p.name, -1234.5625);
      const auto at = std::find_if(documented.begin(), documented.end(),
                                   [&](uint32_t o) { return DoubleAt(InstanceBlock(instance), o) == -1234.5625; });
      ASSERT_NE(at, documented.end()) << doc.name << "." << p.name << " is in none of the documented Double fields";
      EXPECT_TRUE(p.name == "FactorBlue" || p.name == "FactorGreen" || *at == p.offset) << p.name << " at " << *at;
      reached.insert(*at);
      const double planted = 0.1 + *at;
      std::memcpy(InstanceBlock(instance) + *at, &planted, 8);
      EXPECT_EQ(host().GetProperty(instance, p.name).AsDouble(), planted) << doc.name << "." << p.name;
    }
    EXPECT_EQ(reached, documented) << doc.name;
  }
}

// The palette and the finder hold no pointers: their layouts are the same
// on every platform.
TEST_F(Layout, PaletteAndFinderDataArePlatformIndependent) {
  ph::Ref p = host().NewInstance("PaletteQVT");
  EXPECT_EQ(Registered("PaletteQVT").dataSize, 1032u);
  EXPECT_EQ(Word(InstanceBlock(p), 0), 256u) << "Count after construction";
  EXPECT_EQ(Word(InstanceBlock(p), 4), 0xFFFFFFFFu) << "the reserved word";
  host().AssignMethod(p, "Col", {255}, ph::Color{0x00102030u});  // the entries follow (their view is Mem)
  EXPECT_EQ(Word(InstanceBlock(p), 8 + 4 * 255), 0x00102030u);
  host().SetProperty(p, "Count", int32_t{7});
  EXPECT_EQ(Word(InstanceBlock(p), 0), 7u);

  const ph::ClassInfo& finder = Registered("PictureMinMaxQVT");
  EXPECT_EQ(finder.dataSize, 96u);
  const std::vector<PropertyDoc> documented = Properties(kDocs[8]);
  ASSERT_EQ(finder.properties.size(), documented.size());
  for (const PropertyDoc& d : documented) {
    const auto p = std::find_if(finder.properties.begin(), finder.properties.end(), [&](auto& q) { return q.name == d.name; });
    ASSERT_NE(p, finder.properties.end()) << d.name;
    EXPECT_TRUE(p->type == "Integer" && p->getter == nullptr && p->offset == d.offset) << d.name;
  }
  // A search writes where the properties read: a 1 x 1 picture's red maximum
  // and minimum are its own red.
  ph::Ref f = host().NewInstance("PictureMinMaxQVT");
  ASSERT_TRUE(host().CallMethod(f, "FindRed", {Flat(1, 1, 0x7F0000)}).AsBool());
  EXPECT_EQ(Word(InstanceBlock(f), 8), 0x7Fu) << "RedMax";
  EXPECT_EQ(Word(InstanceBlock(f), 20), 0x7Fu) << "RedMin";
}

// The picture description: type, drawable, width, height in 24 bytes.
TEST_F(Layout, PictureDescriptionIsTwentyFourBytes) {
  SKIP_UNLESS_HOST_PLATFORM();
  ph::Ref p = Flat(5, 3, 0x123456);
  host().Call(p, "HasMaskQVT");  // makes this host the one whose entry points answer
  uint8_t buffer[32];
  std::memset(buffer, 0xA5, sizeof buffer);
  reinterpret_cast<void (*)(void*, void*)>(ph::ResolveEntryPoint("lockPictureDescription"))(p.handle(), buffer);
  reinterpret_cast<void (*)(void*)>(ph::ResolveEntryPoint("unlockPictureDescription"))(p.handle());
  EXPECT_EQ(Word(buffer, 0), 6u) << "picture type: a GDK drawable";
  EXPECT_NE(Word(buffer, 4), 0u) << "the drawable";
  EXPECT_EQ(Word(buffer, 8), 5u);
  EXPECT_EQ(Word(buffer, 12), 3u);
  for (size_t i = 24; i < sizeof buffer; ++i) EXPECT_EQ(buffer[i], 0xA5) << "byte " << i << " lies past the record";
}

// RB::Rect: top, left, bottom, right at bytes 0, 2, 4, 6. Drawing a 4 x 4
// picture through (top 1, left 2, bottom 3, right 5) covers columns 2..4 of
// rows 1..2.
TEST_F(Layout, RectIsFourSixteenBitEdges) {
  ph::Ref target = Flat(6, 4, 0x000000), source = Flat(4, 4, 0xFFFFFF);
  ph::Ref graphics = host().GraphicsOf(target);
  host().Call(source, "HasMaskQVT");
  const int16_t rect[4] = {1, 2, 3, 5};
  reinterpret_cast<void (*)(void*, void*, const void*, int32_t)>(ph::ResolveEntryPoint("REALDrawPicturePrimitive"))(
      graphics.handle(), source.handle(), rect, 0);
  const std::vector<uint32_t> pixels = host().Pixels(target);
  for (int32_t i = 0; i < 24; ++i) {
    const int32_t x = i % 6, y = i / 6;
    EXPECT_EQ(pixels[i], y >= 1 && y < 3 && x >= 2 && x < 5 ? 0xFFFFFFu : 0u) << x << "," << y;
  }
}

}  // namespace
