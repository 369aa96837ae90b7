// A deterministic sweep over everything the plug-in registered, taken from
// the host's registrations: every extension method (and setter), global
// method, class method (and setter) and class property is called with every
// value of an adversarial table for each of its parameters in turn (the
// others at an ordinary value), and on receivers from nil to odd sizes.
//
// After every call the host's accounting must be clean (no problem, nothing
// made by the call still referenced), and where the inputs are invalid the
// result must be the refusal the method documents: nil, false, -1 or 0. A
// declaration without a rule here fails the sweep, so that new methods are
// not left out.
#include <gdk/gdk.h>
#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <set>

#include "tests/support/host_fixture.h"

namespace {

using ph::Type;

constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max(), kMinInt = std::numeric_limits<int32_t>::min();
constexpr double kInf = std::numeric_limits<double>::infinity();

bool Same(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

template <typename T>
std::string Format(const char* format, T v) {
  char text[32];
  std::snprintf(text, sizeof text, format, v);
  return text;
}

// --- Arguments ------------------------------------------------------------------------

// One argument value and what the rules need to know about it.
struct Arg {
  ph::Value value;
  std::string text;
  bool nil = false;
  int32_t width = 0, height = 0;  // pictures
  int32_t bytes = -1;             // memory blocks
  bool readable = false;          // strings: a well-formed PPIC string
  bool masked = false;            // pictures with a mask
  int32_t pictureType = 0;        // pictures: their description's type
};

const Arg kNilArg{ph::Ref(), "nil", true};

// A PPIC string of w x h pixels whose length field is off by `lengthDelta`
// and whose width field says `widthField`.
std::string PpicString(int32_t w, int32_t h, int32_t lengthDelta, uint32_t widthField) {
  std::string s = "PPIC" + std::string(36 + 3 * static_cast<size_t>(w) * h, '\x5A');
  const uint32_t length = static_cast<uint32_t>(s.size() + lengthDelta), height = static_cast<uint32_t>(h);
  // Length, width, height, format 32, data offset 40, then 16 reserved zero bytes.
  for (auto [at, v] : {std::pair<size_t, uint32_t>{4, length}, {8, widthField}, {12, height}, {16, 32}, {20, 40}, {24, 0},
                       {28, 0}, {32, 0}, {36, 0}})
    for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
  return s;
}

// The objects and values of the sweep. Built inside each test, so that they
// are gone before the fixture checks for leaks.
struct Tables {
  explicit Tables(ph::Host& host) {
    auto picture = [&](int32_t w, int32_t h, bool foreign = false, bool masked = false) {
      const std::vector<uint32_t> pixels = ph::SamplePixels(w, h);
      ph::Ref p = foreign ? host.NewForeignPicture(w, h, pixels) : host.NewPicture(w, h, pixels);
      if (masked) host.SetMask(p, host.NewPicture(w, h, std::vector<uint32_t>(pixels.size(), 0x808080)));
      Arg a{p, std::to_string(w) + "x" + std::to_string(h) + (foreign ? " foreign" : "") + (masked ? " masked" : "")};
      a.width = w, a.height = h, a.masked = masked, a.pictureType = foreign ? 2 : 6;
      return a;
    };
    // The receivers: nil, tiny, odd and ordinary pictures; the last one is the
    // ordinary receiver and every picture argument of its size matches it.
    receivers = {kNilArg, picture(1, 1), picture(1, 7), picture(7, 1), picture(3, 5), picture(5, 3, true),
                 picture(6, 4, false, true), picture(64, 48)};
    pictures = {kNilArg, picture(1, 1), picture(3, 5), picture(64, 48, true), picture(64, 48, false, true), picture(64, 48)};
    blocks = {kNilArg};
    for (int32_t size : {0, 1, 255, 256, 1024, 4 * 64 * 48 + 16}) {
      std::vector<uint8_t> bytes(static_cast<size_t>(size));
      for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
      blocks.push_back({host.NewMemoryBlock(bytes), std::to_string(size) + "-byte block"});
      blocks.back().bytes = size;
    }
    strings = {kNilArg};
    const std::pair<std::string, const char*> texts[] = {
        {"", "empty string"}, {"PPIC", "PPIC alone"}, {PpicString(0, 0, 0, 0), "PPIC 0x0"},
        {PpicString(3, 2, 1, 3), "PPIC with a wrong length"}, {PpicString(3, 2, 0, 0x7FFFFFFF), "PPIC claiming 2^31-1 columns"},
        {PpicString(3, 2, 0, 0x80000000u), "PPIC with a negative width"}, {PpicString(3, 2, 0, 3), "PPIC 3x2"}};
    for (const auto& [bytes, text] : texts) strings.push_back({host.NewString(bytes), text});
    strings.back().readable = true;  // the last only
    for (int32_t v : {0, 1, -1, 2, 3, 4, 5, 17, 18, 19, 20, 21, 255, 256, 32767, 32768, 65536, kMaxInt, kMaxInt - 1,
                      kMinInt, kMinInt + 1, 0x40000000})
      integers.push_back({v, std::to_string(v)});
    for (double d : {0.0, -0.0, 1.0, -1.0, 0.5, 255.0, 256.0, -255.0, 360.0, 1e300, -1e300, 4.9e-324, 2147483648.0, kInf,
                     -kInf, std::nan("")})
      doubles.push_back({d, Format("%.17g", d)});
    for (uint32_t c : {0x000000u, 0xFFFFFFu, 0x808080u, 0xFF000000u, 0xFFFFFFFFu, 0x80808080u})
      colors.push_back({ph::Color{c}, Format("&h%X", c)});
    palettes = {kNilArg, Arg{host.CallGlobal("NewGrayPaletteQVT").AsRef(), "a palette"}};
  }

  // The values of one type (objects: palettes).
  const std::vector<Arg>& Of(Type type) const {
    const std::map<Type, const std::vector<Arg>*> of = {
        {Type::Integer, &integers}, {Type::Double, &doubles},   {Type::Boolean, &booleans},  {Type::Color, &colors},
        {Type::Picture, &pictures}, {Type::MemoryBlock, &blocks}, {Type::String, &strings}};
    return of.count(type) ? *of.at(type) : palettes;
  }
  // The ordinary value of a type: 1, 0.5, grey; else the last: true, a 64 x
  // 48 picture, a block large enough for any layout of it, a readable
  // string, a palette.
  const Arg& Ordinary(Type type) const {
    return type == Type::Integer ? integers[1] : type == Type::Double ? doubles[4] : type == Type::Color ? colors[2] : Of(type).back();
  }

  std::vector<Arg> receivers, pictures, blocks, strings, integers, doubles, booleans{{false, "false"}, {true, "true"}}, colors,
      palettes;
};

// --- Expected results -------------------------------------------------------------------------

// What a call must give: anything, nil, a non-nil result, or exactly the
// boolean or integer given.
struct Expect {
  enum Kind { kAny, kNil, kNotNil, kBool, kInt } kind = kAny;
  int32_t value = 0;
};
const Expect kAny{}, kGivesNil{Expect::kNil};
Expect Bool(bool b) { return {Expect::kBool, b}; }
Expect Int(int32_t v) { return {Expect::kInt, v}; }
Expect PictureOrNil(bool valid) { return {valid ? Expect::kNotNil : Expect::kNil}; }

// A picture the host can hold: at most 32767 pixels a side.
bool HostSize(int64_t w, int64_t h) { return w >= 1 && h >= 1 && w <= 32767 && h <= 32767; }
bool SameSize(const Arg& a, const Arg& b) { return a.width == b.width && a.height == b.height; }

// Bytes a memory-block layout needs (offset, W x H pixels of `stride` bytes,
// the last one `last` bytes), or -1 when no layout exists.
int64_t Needed(int64_t offset, int64_t w, int64_t h, int64_t stride, int64_t last) {
  if (offset < 0 || w < 0 || h < 0 || stride < 1) return -1;
  return w * h == 0 ? offset : offset + (w * h - 1) * stride + last;
}

// The rule of one call: `r` is the receiver (or a nil Arg for globals).
using Args = const std::vector<Arg>&;
using Rule = std::function<Expect(const Arg& r, Args a)>;
Rule Always(Expect e) {
  return [e](const Arg&, Args) { return e; };
}

// Copies into a block: false unless the picture, the block, the offset and
// the stride are usable and the block holds the layout. Builds from a block:
// nil unless the block holds the layout of a size the host can hold. A
// negative `strideArg` means cells of `stride` bytes, else the stride is
// that argument and the last cell one byte.
Rule BlockRule(bool copy, int64_t stride, int strideArg) {
  return [=](const Arg& r, Args a) {
    const int64_t w = copy ? r.width : a[2].value.AsInt(), h = copy ? r.height : a[3].value.AsInt();
    const int64_t s = strideArg < 0 ? stride : a[strideArg].value.AsInt();
    const int64_t need = Needed(a[1].value.AsInt(), w, h, s, strideArg < 0 ? stride : 1);
    const bool fits = !a[0].nil && need >= 0 && need <= a[0].bytes;
    return copy ? Bool(!r.nil && fits) : PictureOrNil(fits && HostSize(w, h));
  };
}

// Rules by declaration name.
const std::map<std::string, Rule>& Rules() {
  static const std::map<std::string, Rule> rules = [] {
    std::map<std::string, Rule> m;
    // Picture methods that make a new picture from any readable receiver,
    // whatever the numbers: nil exactly for a nil receiver.
    for (const char* name :
         {"ChangeBrightnessAbsoluteQVT", "ChangeBrightnessLinearQVT", "ChangeCustomQVT", "ChangeContrastQVT",
          "InvertQVT", "Rotate90QVT", "Rotate180QVT", "Rotate270QVT", "VMirrorQVT", "HMirrorQVT", "CloneQVT",
          "BitmapQVT", "AutoLevelQVT", "EmbeddedMaskQVT"})
      m[name] = [](const Arg& r, Args) { return PictureOrNil(!r.nil); };
    m["RotateQVT"] = [](const Arg& r, Args a) { return PictureOrNil(!r.nil && std::isfinite(a[0].value.AsDouble())); };
    m["ScaleQVT"] = [](const Arg& r, Args a) { return PictureOrNil(!r.nil && HostSize(a[0].value.AsInt(), a[1].value.AsInt())); };
    // Scrolling works in place, which this platform never allows: only the
    // moves that change nothing report success.
    m["ScrollHorizontalQVT"] = [](const Arg& r, Args) { return Bool(!r.nil); };
    m["ScrollVerticalQVT"] = [](const Arg& r, Args a) { return Bool(!r.nil && a[0].value.AsInt() == 0); };
    m["ScrollQVT"] = [](const Arg& r, Args a) { return Bool(!r.nil && a[1].value.AsInt() == 0); };
    m["HasMaskQVT"] = [](const Arg& r, Args) { return Bool(!r.nil && r.masked); };
    m["DataTypeQVT"] = [](const Arg& r, Args) { return Int(r.nil ? -1 : r.pictureType); };
    m["DataHandleQVT"] = [](const Arg& r, Args) { return r.nil ? Int(-1) : kAny; };
    m["MakeHBITMAPQVT"] = Always(Int(0));
    for (const char* name : {"PicHandleQVT", "PicHandleDataQVT", "PaletteQVT", "BuildPictureWithPicHandleDataQVT",
                             "BuildPictureWithGWorldHandleQVT", "NewSystemPaletteQVT"})
      m[name] = Always(kGivesNil);
    // Colours with bits set above the 24 colour bits match no pixel.
    m["CountColorQVT"] = [](const Arg& r, Args a) { return r.nil ? Int(-1) : a[0].value.AsColor() > 0xFFFFFF ? Int(0) : kAny; };
    // The byref count (the histogram blocks are checked by the sweep itself).
    m["CountColorsQVT"] = [](const Arg& r, Args) { return Int(r.nil ? -1 : r.width * r.height); };
    m["TransformColorsQVT"] = [](const Arg& r, Args a) {
      return PictureOrNil(!r.nil && std::all_of(a.begin(), a.end(), [](const Arg& b) { return !b.nil && b.bytes >= 256; }));
    };
    m["CopyRGBtoMemoryblockQVT"] = BlockRule(true, 3, -1);
    m["CopyARGBtoMemoryblockQVT"] = BlockRule(true, 4, -1);
    for (const char* name : {"CopyRtoMemoryblockQVT", "CopyGtoMemoryblockQVT", "CopyBtoMemoryblockQVT"})
      m[name] = BlockRule(true, 0, 2);
    m["MemoryblockRGBtoPictureQVT"] = BlockRule(false, 3, -1);
    m["MemoryblockARGBtoPictureQVT"] = BlockRule(false, 4, -1);
    m["MemoryblockGrayToPictureQVT"] = BlockRule(false, 0, 4);
    m["PaintDesktopQVT"] = Always(kAny);
    for (const char* name : {"NewGrayPaletteQVT", "NewWebPaletteQVT", "NewRedPaletteQVT", "NewGreenPaletteQVT",
                             "NewBluePaletteQVT", "NewWindowsPaletteQVT", "NewPalmPaletteQVT", "NewPaletteQVT"})
      m[name] = Always({Expect::kNotNil});
    m["BinaryStringtoPictureQVT"] = [](const Arg&, Args a) { return PictureOrNil(a[0].readable); };
    m["PicturetoBinaryStringQVT"] = m["TintPictureQVT"] = [](const Arg&, Args a) { return PictureOrNil(!a[0].nil); };
    // Pictures that must all be there and of one size: CombinePictures and the
    // masked blend all three, BlendPictures its first and third.
    auto sameSized = [](std::vector<int> used) {
      return [used](const Arg&, Args a) {
        return PictureOrNil(std::all_of(used.begin(), used.end(), [&](int i) { return !a[i].nil && SameSize(a[i], a[0]); }));
      };
    };
    m["CombinePicturesQVT"] = m["BlendPicturesWithMaskQVT"] = sameSized({0, 1, 2});
    m["BlendPicturesQVT"] = sameSized({0, 2});
    return m;
  }();
  return rules;
}

// --- Calling and checking -----------------------------------------------------------------------

std::string Describe(const std::string& receiver, const std::string& name, const std::vector<Arg>& args) {
  std::string s = (receiver.empty() ? "" : receiver + ".") + name + "(";
  for (size_t i = 0; i < args.size(); ++i) s += (i ? ", " : "") + args[i].text;
  return s + ")";
}

void Check(const Expect& e, const ph::Value& result, const std::string& call) {
  switch (e.kind) {
    case Expect::kAny: break;
    case Expect::kNil: EXPECT_TRUE(result.IsNil()) << call << " must give nil"; break;
    case Expect::kNotNil: EXPECT_FALSE(result.IsNil()) << call << " must give a result"; break;
    case Expect::kBool: EXPECT_EQ(result.AsBool(), e.value != 0) << call; break;
    case Expect::kInt: EXPECT_EQ(result.AsInt(), e.value) << call; break;
  }
}

// Every argument list of a declaration: all ordinary, then each parameter in
// turn through its whole table.
std::vector<std::vector<Arg>> Variations(const Tables& t, const ph::Declaration& d) {
  std::vector<Arg> ordinary;
  for (const ph::Param& p : d.params) ordinary.push_back(t.Ordinary(p.type));
  std::vector<std::vector<Arg>> all{ordinary};
  for (size_t i = 0; i < d.params.size(); ++i) {
    for (const Arg& v : t.Of(d.params[i].type)) {
      all.push_back(ordinary);
      all.back()[i] = v;
    }
  }
  return all;
}

std::vector<ph::Value> Values(const std::vector<Arg>& args) {
  std::vector<ph::Value> values;
  for (const Arg& a : args) values.push_back(a.value);
  return values;
}

// Calls an extension method or global with byref parameters passed as
// variables (left in `byref`); returns the result, or for a method without
// one the first byref integer (the count of "CountColorsQVT").
ph::Value CallWith(ph::Host& host, const ph::Declaration& d, const ph::Ref* receiver, const std::vector<Arg>& args,
                   std::vector<ph::Value>& byref) {
  std::vector<ph::Value> values = Values(args);
  byref = values;
  for (size_t i = 0; i < args.size(); ++i)
    if (d.params[i].byref) values[i] = ph::Value::ByRef(&byref[i]);
  ph::Value result = receiver ? host.Call(*receiver, d.name, values) : host.CallGlobal(d.name, values);
  for (size_t i = 0; i < args.size() && d.result == Type::None; ++i)
    if (d.params[i].byref && d.params[i].type == Type::Integer) return byref[i];
  return result;
}

class Sweep : public HostTest {};

// Extension methods on every receiver with the ordinary arguments, and on
// the ordinary receiver with every variation; global methods with every
// variation.
TEST_F(Sweep, MethodsAndGlobalsRefuseInvalidInputsAndKeepAccountsClean) {
  Tables t(host());
  size_t calls = 0;
  std::vector<std::pair<const ph::MethodInfo*, std::string>> methods;  // with the owner's name
  for (const ph::ClassInfo& c : host().Classes())
    if (c.extension)
      for (const ph::MethodInfo& m : c.methods) methods.push_back({&m, c.name});
  for (const ph::MethodInfo& m : host().GlobalMethods()) methods.push_back({&m, ""});
  for (const auto& [m, owner] : methods) {
    const ph::Declaration& d = m->declaration;
    auto rule = Rules().find(d.name);
    if (rule == Rules().end()) {
      ADD_FAILURE() << "no rule for " << owner << " " << d.text;
      continue;
    }
    const bool graphics = Same(owner, "graphics");
    const std::vector<Arg> none{Arg{}};
    const std::vector<Arg>& receivers = owner.empty() ? none : t.receivers;
    for (const Arg& r : receivers) {
      if (graphics && r.nil) continue;  // a graphics always belongs to a picture
      std::vector<std::vector<Arg>> variations = Variations(t, d);
      if (&r != &receivers.back()) variations.resize(1);
      for (const std::vector<Arg>& args : variations) {
        const std::string call = Describe(owner.empty() ? "" : "Picture(" + r.text + ")" + (graphics ? ".Graphics" : ""), d.name, args);
        const uint64_t mark = host().Mark();
        {
          const ph::Ref receiver = graphics ? host().GraphicsOf(r.value.AsRef()) : r.value.AsRef();
          const std::vector<uint32_t> before = r.nil || owner.empty() ? std::vector<uint32_t>() : host().Pixels(r.value.AsRef());
          std::vector<ph::Value> byref;
          Check(rule->second(r, args), CallWith(host(), d, owner.empty() ? nullptr : &receiver, args, byref), call);
          ++calls;
          for (size_t i = 0; i < 3 && d.name == "CountColorsQVT"; ++i) {
            EXPECT_EQ(!byref[i].IsNil(), !r.nil) << call << ": histogram block " << i;
            EXPECT_TRUE(byref[i].IsNil() || host().Bytes(byref[i].AsRef()).size() == 1024) << call << ": 1024 bytes";
          }
          // Nothing works in place on this platform: the receiver keeps its pixels.
          EXPECT_EQ(before.empty() ? before : host().Pixels(r.value.AsRef()), before) << call << " changed its receiver";
        }
        ExpectCleanAccounting(mark, call);
        if (!m->setter) continue;
        // The setter with every value of the assigned type.
        for (const Arg& v : t.Of(d.result)) {
          const uint64_t setMark = host().Mark();
          host().Assign(r.value.AsRef(), d.name, Values(args), v.value);
          ++calls;
          ExpectCleanAccounting(setMark, call + " = " + v.text);
        }
      }
    }
  }
  EXPECT_GT(calls, 1000u);  // every method and global with every variation
}

// --- Classes ----------------------------------------------------------------------------------

// Index accessors: the bound of each index (valid indices 0 .. bound - 1).
const std::map<std::string, std::vector<int32_t>> kIndexBounds = {
    {"PictureMatrixQVT.Matrix", {5, 5}},         {"PictureMatrix3DQVT.Matrix", {5, 5}},
    {"PictureLut3DQVT.Table", {18, 18, 18, 3}},  {"PictureConvolutionQVT.Ver", {20}},
    {"PictureConvolutionQVT.Hor", {20}}};

bool IsFilter(const ph::ClassInfo& c) {
  return std::any_of(c.properties.begin(), c.properties.end(), [](auto& p) { return Same(p.name, "SourcePicture"); });
}

// Every property, written with every value of its type and read back: the
// host's standard accessors and the class's own accessors alike must give
// back exactly what was stored.
TEST_F(Sweep, EveryClassPropertyReadsBackWhatWasWritten) {
  Tables t(host());
  for (const ph::ClassInfo& c : host().Classes()) {
    if (c.extension) continue;
    const uint64_t mark = host().Mark();
    {
      ph::Ref instance = host().NewInstance(c.name);
      for (const ph::PropertyInfo& p : c.properties) {
        const Type type = ph::TypeFromName(p.type);
        for (const Arg& v : t.Of(type)) {
          const std::string call = c.name + "." + p.name + " = " + v.text;
          host().SetProperty(instance, p.name, v.value);
          const ph::Value back = host().GetProperty(instance, p.name);
          if (type == Type::Integer) {
            EXPECT_EQ(back.AsInt(), v.value.AsInt()) << call;
          } else if (type == Type::Double) {
            const double a = back.AsDouble(), b = v.value.AsDouble();
            EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << call << " reads back " << a;
          } else {
            EXPECT_EQ(back.AsRef().get(), v.value.AsRef().get()) << call;
          }
          for (const std::string& problem : host().TakeProblems()) ADD_FAILURE() << call << ": " << problem;
        }
        if (type == Type::Picture) host().SetProperty(instance, p.name, ph::Ref());
      }
    }
    ExpectCleanAccounting(mark, "the properties of " + c.name);
  }
}

// Out-of-range indices, compared unsigned against their bound: the getter
// gives 0 and the setter changes nothing, neither the entry nor its
// neighbours. The palette's "Col" takes any index modulo 256.
TEST_F(Sweep, IndexAccessorsIgnoreOutOfRangeIndices) {
  for (const ph::ClassInfo& c : host().Classes()) {
    if (c.extension) continue;
    const uint64_t mark = host().Mark();
    {
      ph::Ref instance = host().NewInstance(c.name);
      for (const ph::MethodInfo& m : c.methods) {
        if (!m.setter) continue;
        const std::string name = c.name + "." + m.declaration.name;
        if (name == "PaletteQVT.Col") {
          for (int32_t i : {0, 255, 256, 257, -1, -256, kMaxInt, kMinInt}) {
            const uint32_t colour = 0x010203u * (i & 0x3F);
            host().AssignMethod(instance, "Col", {i}, ph::Color{colour});
            EXPECT_EQ(host().CallMethod(instance, "Col", {i & 0xFF}).AsColor(), colour) << "Col(" << i << ") writes";
            EXPECT_EQ(host().CallMethod(instance, "Col", {i}).AsColor(), colour) << "Col(" << i << ") reads";
          }
          continue;
        }
        ASSERT_TRUE(kIndexBounds.count(name)) << "no index bounds for " << name;
        const std::vector<int32_t>& b = kIndexBounds.at(name);
        ASSERT_EQ(b.size(), m.declaration.params.size()) << name;
        const bool isDouble = m.declaration.result == Type::Double;
        auto value = [&](size_t k) { return isDouble ? ph::Value(k + 0.25) : ph::Value(int32_t(k + 1)); };
        // Every entry gets its own value, so that a write landing anywhere is seen.
        size_t entries = 1;
        for (int32_t n : b) entries *= n;
        auto entry = [&](size_t k) {
          std::vector<ph::Value> index(b.size());
          for (size_t q = b.size(); q-- > 0; k /= b[q]) index[q] = int32_t(k % b[q]);
          return index;
        };
        for (size_t k = 0; k < entries; ++k) host().AssignMethod(instance, m.declaration.name, entry(k), value(k));
        for (size_t pos = 0; pos < b.size(); ++pos) {
          for (int32_t bad : {-1, b[pos], b[pos] + 1, 256, kMaxInt, kMinInt, kMinInt + b[pos]}) {
            // The other indices at their first or their last valid value.
            for (size_t edge : {size_t{0}, entries - 1}) {
              std::vector<ph::Value> index = entry(edge);
              index[pos] = bad;
              EXPECT_EQ(host().CallMethod(instance, m.declaration.name, index).AsDouble(), 0) << name << " index " << pos << " at " << bad;
              host().AssignMethod(instance, m.declaration.name, index, isDouble ? ph::Value(-7.5) : ph::Value(-7));
            }
          }
        }
        size_t changed = 0;
        for (size_t k = 0; k < entries; ++k)
          changed += host().CallMethod(instance, m.declaration.name, entry(k)).AsDouble() != value(k).AsDouble();
        EXPECT_EQ(changed, 0u) << name << ": entries changed by out-of-range writes";
      }
    }
    ExpectCleanAccounting(mark, "the index accessors of " + c.name);
  }
}

// The class methods with every argument variation, on an instance without a
// source picture and on one with the ordinary picture: runs and finds fail
// without a picture and succeed with one; the filters that release their
// result before checking are left without one after a failed run.
TEST_F(Sweep, ClassMethodsRefuseWithoutAPictureAndKeepAccountsClean) {
  Tables t(host());
  const std::set<std::string> keepResultOnFailure = {"PictureConvolutionQVT", "PictureSepiaQVT"};
  for (const ph::ClassInfo& c : host().Classes()) {
    if (c.extension) continue;
    for (const ph::MethodInfo& m : c.methods) {
      const ph::Declaration& d = m.declaration;
      const bool run = Same(d.name, "Run") || Same(d.name, "RunRGB"), find = d.name.rfind("Find", 0) == 0;
      for (bool withSource : {false, true}) {
        if (withSource && !IsFilter(c)) continue;
        for (const std::vector<Arg>& args : Variations(t, d)) {
          const std::string call = c.name + (withSource ? "(with a source)" : "") + "." + Describe("", d.name, args);
          const uint64_t mark = host().Mark();
          {
            ph::Ref instance = host().NewInstance(c.name);
            ph::Ref earlier = t.pictures[1].value.AsRef();
            if (IsFilter(c)) {
              host().SetProperty(instance, "DestinationPicture", earlier);
              if (withSource) host().SetProperty(instance, "SourcePicture", t.Ordinary(Type::Picture).value);
            }
            const ph::Value result = host().CallMethod(instance, d.name, Values(args));
            if (run) {
              EXPECT_EQ(result.AsBool(), withSource) << call;
              const ph::Ref destination = host().GetProperty(instance, "DestinationPicture").AsRef();
              if (withSource) {
                EXPECT_EQ(destination ? host().Width(destination) : 0, 64) << call << " left no result";
              } else {
                EXPECT_EQ(destination.get(), keepResultOnFailure.count(c.name) ? earlier.get() : nullptr) << call << " result";
              }
            }
            const std::string name = c.name + "." + d.name;
            EXPECT_TRUE(!find || result.AsBool() == !args[0].nil) << call;
            EXPECT_TRUE(name != "PaletteQVT.NewPicture" ||
                        result.IsNil() == !HostSize(args[0].value.AsInt(), args[1].value.AsInt())) << call;
            EXPECT_TRUE(name != "PaletteQVT.Mem" || (!result.IsNil() && host().Bytes(result.AsRef()).size() >= 1024)) << call;
            // The setter with every value of its type, at the same indices.
            if (m.setter)
              for (const Arg& v : t.Of(d.result)) host().AssignMethod(instance, d.name, Values(args), v.value);
          }
          ExpectCleanAccounting(mark, call);
        }
      }
    }
  }
}

// Convolution counts outside 2..20 refuse the run and keep the earlier
// result; palettes with a Count outside 1..256 make no picture.
TEST_F(Sweep, OutOfRangeCountsAreRefused) {
  Tables t(host());
  for (const Arg& count : t.integers) {
    const int32_t n = count.value.AsInt();
    ph::Ref filter = host().NewInstance("PictureConvolutionQVT"), earlier = t.pictures[1].value.AsRef();
    host().SetProperty(filter, "SourcePicture", t.Ordinary(Type::Picture).value);
    host().SetProperty(filter, "DestinationPicture", earlier);
    host().SetProperty(filter, "ValueCount", n);
    const bool ok = host().CallMethod(filter, "Run", {7}).AsBool();
    EXPECT_EQ(ok, n >= 2 && n <= 20) << "ValueCount " << n;
    EXPECT_TRUE(ok || host().GetProperty(filter, "DestinationPicture").AsRef().get() == earlier.get()) << n;

    ph::Ref palette = host().CallGlobal("NewPaletteQVT", {n}).AsRef();
    ASSERT_TRUE(palette) << "NewPaletteQVT(" << n << ")";
    EXPECT_EQ(host().GetProperty(palette, "Count").AsInt(), n);
    EXPECT_EQ(host().CallMethod(palette, "NewPicture", {3, 2}).IsNil(), n < 1 || n > 256) << n;
    EXPECT_EQ(host().CallMethod(palette, "CountColors").AsInt(), n <= 1 ? n : 1) << "NewPaletteQVT(" << n << ").CountColors";
  }
}

// Reading a picture back queues an X event; with no event loop in the
// emulated host the queue would grow by one event per read for the life of
// the process (long fuzzing runs grew by about 85 MB per million inputs).
// The host drops them after every call and every read.
TEST_F(Sweep, PictureReadsLeaveNoEventsQueued) {
  ph::Ref picture = Flat(5, 3, 0x336699);
  for (int i = 0; i < 50; ++i) {
    host().Pixels(picture);
    host().CallGlobal("PicturetoBinaryStringQVT", {picture});
    host().Call(picture, "CountColorQVT", {ph::Color{0x336699}});
  }
  EXPECT_FALSE(gdk_events_pending()) << "X events are piling up";
}

}  // namespace
