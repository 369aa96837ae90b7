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
#include <gtest/gtest.h>
#include <strings.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/host_fixture.h"

namespace {

using ph::Type;

constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

bool Same(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

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
  uint32_t pictureType = 0;       // pictures: their description's type
};

std::string Hex(uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "&h%X", v);
  return text;
}

std::string DoubleText(double d) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", d);
  return text;
}

std::string PpicString(int32_t w, int32_t h, int32_t lengthDelta, uint32_t widthField) {
  std::string s(40 + 3 * static_cast<size_t>(w) * h, '\x5A');
  auto put = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
  };
  s.replace(0, 4, "PPIC");
  put(4, static_cast<uint32_t>(s.size() + lengthDelta));
  put(8, widthField);
  put(12, static_cast<uint32_t>(h));
  put(16, 32);
  put(20, 40);
  std::memset(s.data() + 24, 0, 16);
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
      Arg a{p, std::to_string(w) + "x" + std::to_string(h)};
      a.width = w, a.height = h, a.masked = masked, a.pictureType = foreign ? 2 : 6;
      if (foreign) a.text += " foreign";
      if (masked) a.text += " masked";
      return a;
    };
    Arg nilPicture{ph::Ref(), "nil"};
    nilPicture.nil = true;
    // The receivers: nil, tiny, odd and ordinary pictures; the last one is the
    // ordinary receiver and every picture argument of its size matches it.
    receivers = {nilPicture,          picture(1, 1),        picture(1, 7), picture(7, 1),
                 picture(3, 5),       picture(5, 3, true),  picture(6, 4, false, true),
                 picture(64, 48)};
    pictures = {nilPicture, picture(1, 1), picture(3, 5), picture(64, 48, true), picture(64, 48, false, true),
                picture(64, 48)};

    auto block = [&](int32_t size) {
      std::vector<uint8_t> bytes(static_cast<size_t>(size));
      for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
      Arg a{host.NewMemoryBlock(bytes), std::to_string(size) + "-byte block"};
      a.bytes = size;
      return a;
    };
    Arg nilBlock{ph::Ref(), "nil"};
    nilBlock.nil = true;
    blocks = {nilBlock, block(0), block(1), block(255), block(256), block(1024), block(4 * 64 * 48 + 16)};

    auto string = [&](const std::string& bytes, const std::string& text, bool readable) {
      Arg a{host.NewString(bytes), text};
      a.readable = readable;
      return a;
    };
    Arg nilString{ph::Ref(), "nil"};
    nilString.nil = true;
    strings = {nilString,
               string("", "empty string", false),
               string("PPIC", "PPIC alone", false),
               string(PpicString(0, 0, 0, 0), "PPIC 0x0", false),
               string(PpicString(3, 2, 1, 3), "PPIC with a wrong length", false),
               string(PpicString(3, 2, 0, 0x7FFFFFFF), "PPIC claiming 2^31-1 columns", false),
               string(PpicString(3, 2, 0, 0x80000000u), "PPIC with a negative width", false),
               string(PpicString(3, 2, 0, 3), "PPIC 3x2", true)};

    for (int32_t v : {0, 1, -1, 2, 3, 4, 5, 17, 18, 19, 20, 21, 255, 256, 32767, 32768, 65536, kMaxInt,
                      kMaxInt - 1, kMinInt, kMinInt + 1, 0x40000000}) {
      integers.push_back({v, std::to_string(v)});
    }
    for (double d : {0.0, -0.0, 1.0, -1.0, 0.5, 255.0, 256.0, -255.0, 360.0, 1e300, -1e300, 4.9e-324,
                     2147483648.0, kInf, -kInf, kNaN}) {
      doubles.push_back({d, DoubleText(d)});
    }
    booleans = {{false, "false"}, {true, "true"}};
    for (uint32_t c : {0x000000u, 0xFFFFFFu, 0x808080u, 0xFF000000u, 0xFFFFFFFFu, 0x80808080u}) {
      colors.push_back({ph::Color{c}, Hex(c)});
    }
    ph::Ref palette = host.CallGlobal("NewGrayPaletteQVT").AsRef();
    Arg nilPalette{ph::Ref(), "nil"};
    nilPalette.nil = true;
    palettes = {nilPalette, Arg{palette, "a palette"}};
  }

  // The values of one type; the last is the ordinary one.
  const std::vector<Arg>& Of(Type type) const {
    switch (type) {
      case Type::Integer: return integers;
      case Type::Double: return doubles;
      case Type::Boolean: return booleans;
      case Type::Color: return colors;
      case Type::Picture: return pictures;
      case Type::MemoryBlock: return blocks;
      case Type::String: return strings;
      default: return palettes;
    }
  }
  // The ordinary value of a type: 1, 0.5, true, grey, a 64 x 48 picture, a
  // block large enough for any layout of it, a readable string, a palette.
  const Arg& Ordinary(Type type) const {
    switch (type) {
      case Type::Integer: return integers[1];
      case Type::Double: return doubles[4];
      case Type::Boolean: return booleans[1];
      case Type::Color: return colors[2];
      default: return Of(type).back();
    }
  }

  std::vector<Arg> receivers, pictures, blocks, strings, integers, doubles, booleans, colors, palettes;
};

// --- Expected results -------------------------------------------------------------------------

// What a call must give: anything, the refusal (nil, false, or the integer
// given), a non-nil result, or exactly the boolean or integer given.
struct Expect {
  enum Kind { kAny, kNil, kNotNil, kBool, kInt } kind = kAny;
  int32_t value = 0;
  static Expect Any() { return {}; }
  static Expect Nil() { return {kNil}; }
  static Expect NotNil() { return {kNotNil}; }
  static Expect Bool(bool b) { return {kBool, b ? 1 : 0}; }
  static Expect Int(int32_t v) { return {kInt, v}; }
};

// A picture the host can hold: at most 32767 pixels a side.
bool HostSize(int64_t w, int64_t h) { return w >= 1 && h >= 1 && w <= 32767 && h <= 32767; }

bool SameSize(const Arg& a, const Arg& b) { return a.width == b.width && a.height == b.height; }

// Bytes a memory-block layout needs (offset, W × H pixels of `stride`
// bytes, the last one `last` bytes), or -1 when no layout exists.
int64_t Needed(int64_t offset, int64_t w, int64_t h, int64_t stride, int64_t last) {
  if (offset < 0 || w < 0 || h < 0 || stride < 1) return -1;
  if (w * h == 0) return offset;
  return offset + (w * h - 1) * stride + last;
}

// The rules of one call: `r` is the receiver (or a nil Arg for globals).
using Rule = std::function<Expect(const Arg& r, const std::vector<Arg>& a)>;

Expect PictureOrNil(bool valid) { return valid ? Expect::NotNil() : Expect::Nil(); }

// Copies into a block: false unless the picture, the block, the offset and
// the stride are usable and the block holds the layout.
Rule CopyRule(int64_t stride, int64_t last, int strideArg) {
  return [=](const Arg& r, const std::vector<Arg>& a) {
    const int64_t s = strideArg < 0 ? stride : a[strideArg].value.AsInt();
    const int64_t l = strideArg < 0 ? last : 1;
    const int64_t need = Needed(a[1].value.AsInt(), r.width, r.height, s, l);
    return Expect::Bool(!r.nil && !a[0].nil && need >= 0 && need <= a[0].bytes);
  };
}

Rule BuildRule(int64_t stride, int64_t last, int strideArg) {
  return [=](const Arg&, const std::vector<Arg>& a) {
    const int64_t w = a[2].value.AsInt(), h = a[3].value.AsInt();
    const int64_t s = strideArg < 0 ? stride : a[strideArg].value.AsInt();
    const int64_t l = strideArg < 0 ? last : 1;
    const int64_t need = Needed(a[1].value.AsInt(), w, h, s, l);
    return PictureOrNil(!a[0].nil && HostSize(w, h) && need >= 0 && need <= a[0].bytes);
  };
}

// Rules by declaration name (and parameter count where names repeat).
const std::map<std::string, Rule>& Rules() {
  static const std::map<std::string, Rule> rules = [] {
    std::map<std::string, Rule> m;
    // Picture methods that make a new picture from any readable receiver,
    // whatever the numbers: nil exactly for a nil receiver.
    for (const char* name :
         {"ChangeBrightnessAbsoluteQVT", "ChangeBrightnessLinearQVT", "ChangeCustomQVT", "ChangeContrastQVT",
          "InvertQVT", "Rotate90QVT", "Rotate180QVT", "Rotate270QVT", "VMirrorQVT", "HMirrorQVT", "CloneQVT",
          "BitmapQVT", "AutoLevelQVT", "EmbeddedMaskQVT"}) {
      m[name] = [](const Arg& r, const std::vector<Arg>&) { return PictureOrNil(!r.nil); };
    }
    m["RotateQVT"] = [](const Arg& r, const std::vector<Arg>& a) {
      return PictureOrNil(!r.nil && std::isfinite(a[0].value.AsDouble()));
    };
    m["ScaleQVT"] = [](const Arg& r, const std::vector<Arg>& a) {
      return PictureOrNil(!r.nil && HostSize(a[0].value.AsInt(), a[1].value.AsInt()));
    };
    // Scrolling works in place, which this platform never allows: only the
    // moves that change nothing report success.
    m["ScrollHorizontalQVT"] = [](const Arg& r, const std::vector<Arg>&) { return Expect::Bool(!r.nil); };
    m["ScrollVerticalQVT"] = [](const Arg& r, const std::vector<Arg>& a) {
      return Expect::Bool(!r.nil && a[0].value.AsInt() == 0);
    };
    m["ScrollQVT"] = [](const Arg& r, const std::vector<Arg>& a) {
      return Expect::Bool(!r.nil && a[1].value.AsInt() == 0);
    };
    m["HasMaskQVT"] = [](const Arg& r, const std::vector<Arg>&) { return Expect::Bool(!r.nil && r.masked); };
    m["DataTypeQVT"] = [](const Arg& r, const std::vector<Arg>&) {
      return Expect::Int(r.nil ? -1 : static_cast<int32_t>(r.pictureType));
    };
    m["DataHandleQVT"] = [](const Arg& r, const std::vector<Arg>&) { return r.nil ? Expect::Int(-1) : Expect::Any(); };
    m["MakeHBITMAPQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Int(0); };
    m["PicHandleQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Nil(); };
    m["PicHandleDataQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Nil(); };
    m["PaletteQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Nil(); };
    m["CountColorQVT"] = [](const Arg& r, const std::vector<Arg>& a) {
      if (r.nil) return Expect::Int(-1);
      // Colours with bits set above the 24 colour bits match no pixel.
      return a[0].value.AsColor() > 0xFFFFFF ? Expect::Int(0) : Expect::Any();
    };
    m["CountColorsQVT"] = [](const Arg& r, const std::vector<Arg>&) {
      return Expect::Int(r.nil ? -1 : r.width * r.height);  // checked against the byref count
    };
    m["TransformColorsQVT"] = [](const Arg& r, const std::vector<Arg>& a) {
      bool tables = true;
      for (const Arg& b : a) tables = tables && !b.nil && b.bytes >= 256;
      return PictureOrNil(!r.nil && tables);
    };
    m["CopyRGBtoMemoryblockQVT"] = CopyRule(3, 3, -1);
    m["CopyARGBtoMemoryblockQVT"] = CopyRule(4, 4, -1);
    m["CopyRtoMemoryblockQVT"] = CopyRule(0, 0, 2);
    m["CopyGtoMemoryblockQVT"] = CopyRule(0, 0, 2);
    m["CopyBtoMemoryblockQVT"] = CopyRule(0, 0, 2);
    m["PaintDesktopQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Any(); };

    // Global methods.
    m["MemoryblockRGBtoPictureQVT"] = BuildRule(3, 3, -1);
    m["MemoryblockARGBtoPictureQVT"] = BuildRule(4, 4, -1);
    m["MemoryblockGrayToPictureQVT"] = BuildRule(0, 0, 4);
    m["BuildPictureWithPicHandleDataQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Nil(); };
    m["BuildPictureWithGWorldHandleQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Nil(); };
    for (const char* name : {"NewGrayPaletteQVT", "NewWebPaletteQVT", "NewRedPaletteQVT", "NewGreenPaletteQVT",
                             "NewBluePaletteQVT", "NewWindowsPaletteQVT", "NewPalmPaletteQVT", "NewPaletteQVT"}) {
      m[name] = [](const Arg&, const std::vector<Arg>&) { return Expect::NotNil(); };
    }
    m["NewSystemPaletteQVT"] = [](const Arg&, const std::vector<Arg>&) { return Expect::Nil(); };
    m["BinaryStringtoPictureQVT"] = [](const Arg&, const std::vector<Arg>& a) { return PictureOrNil(a[0].readable); };
    m["PicturetoBinaryStringQVT"] = [](const Arg&, const std::vector<Arg>& a) { return PictureOrNil(!a[0].nil); };
    m["CombinePicturesQVT"] = [](const Arg&, const std::vector<Arg>& a) {
      return PictureOrNil(!a[0].nil && !a[1].nil && !a[2].nil && SameSize(a[0], a[1]) && SameSize(a[0], a[2]));
    };
    m["BlendPicturesQVT"] = [](const Arg&, const std::vector<Arg>& a) {
      return PictureOrNil(!a[0].nil && !a[2].nil && SameSize(a[0], a[2]));
    };
    m["BlendPicturesWithMaskQVT"] = [](const Arg&, const std::vector<Arg>& a) {
      return PictureOrNil(!a[0].nil && !a[1].nil && !a[2].nil && SameSize(a[0], a[1]) && SameSize(a[0], a[2]));
    };
    m["TintPictureQVT"] = [](const Arg&, const std::vector<Arg>& a) { return PictureOrNil(!a[0].nil); };
    return m;
  }();
  return rules;
}

// --- Calling and checking -----------------------------------------------------------------------

std::string Describe(const std::string& receiver, const std::string& name, const std::vector<Arg>& args,
                     const Arg* assigned = nullptr) {
  std::string s = receiver.empty() ? name : receiver + "." + name;
  s += "(";
  for (size_t i = 0; i < args.size(); ++i) s += (i ? ", " : "") + args[i].text;
  s += ")";
  if (assigned) s += " = " + assigned->text;
  return s;
}

// Fails for every accounting problem and every object made since `mark` that
// is still referenced, naming the call.
void ExpectCleanAfter(ph::Host& host, uint64_t mark, const std::string& call) {
  for (const std::string& p : host.TakeProblems()) ADD_FAILURE() << call << ": " << p;
  for (const std::string& p : host.LeaksSince(mark)) ADD_FAILURE() << call << ": " << p;
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
      std::vector<Arg> args = ordinary;
      args[i] = v;
      all.push_back(args);
    }
  }
  return all;
}

// Calls an extension method or global with byref parameters passed as
// variables; returns the result, or for a method without one the first
// byref integer (the count of "CountColorsQVT").
ph::Value CallWith(ph::Host& host, const ph::Declaration& d, const ph::Ref* receiver, const std::vector<Arg>& args,
                   std::vector<ph::Value>& byref) {
  std::vector<ph::Value> values;
  byref.assign(args.size(), ph::Value());
  for (size_t i = 0; i < args.size(); ++i) {
    if (d.params[i].byref) {
      byref[i] = args[i].value;
      values.push_back(ph::Value::ByRef(&byref[i]));
    } else {
      values.push_back(args[i].value);
    }
  }
  ph::Value result = receiver ? host.Call(*receiver, d.name, values) : host.CallGlobal(d.name, values);
  if (d.result == Type::None) {
    for (size_t i = 0; i < args.size(); ++i) {
      if (d.params[i].byref && d.params[i].type == Type::Integer) return byref[i];
    }
  }
  return result;
}

class Sweep : public HostTest {};

TEST_F(Sweep, PictureAndGraphicsMethodsRefuseInvalidInputsAndKeepAccountsClean) {
  Tables t(host());
  size_t calls = 0;
  for (const ph::ClassInfo& c : host().Classes()) {
    if (!c.extension) continue;
    const bool graphics = Same(c.name, "graphics");
    for (const ph::MethodInfo& m : c.methods) {
      const ph::Declaration& d = m.declaration;
      auto rule = Rules().find(d.name);
      if (rule == Rules().end()) {
        ADD_FAILURE() << "no rule for " << c.name << "." << d.text;
        continue;
      }
      for (const Arg& r : t.receivers) {
        if (graphics && r.nil) continue;  // a graphics always belongs to a picture
        // Every receiver with the ordinary arguments; the ordinary receiver
        // with every variation.
        const bool ordinaryReceiver = &r == &t.receivers.back();
        const auto variations = ordinaryReceiver ? Variations(t, d) : std::vector<std::vector<Arg>>{Variations(t, d)[0]};
        for (const std::vector<Arg>& args : variations) {
          const std::string call = Describe("Picture(" + r.text + ")" + (graphics ? ".Graphics" : ""), d.name, args);
          const uint64_t mark = host().Mark();
          {
            const ph::Ref receiver = graphics ? host().GraphicsOf(r.value.AsRef()) : r.value.AsRef();
            const std::vector<uint32_t> before = r.nil ? std::vector<uint32_t>() : host().Pixels(r.value.AsRef());
            std::vector<ph::Value> byref;
            const ph::Value result = CallWith(host(), d, &receiver, args, byref);
            ++calls;
            const Expect e = rule->second(r, args);
            if (d.name == "CountColorsQVT") {
              Check(e, result, call);
              for (size_t i = 0; i < 3; ++i) {
                const bool made = !byref[i].IsNil();
                EXPECT_EQ(made, !r.nil) << call << ": histogram block " << i;
                if (made) {
                  EXPECT_EQ(host().Bytes(byref[i].AsRef()).size(), 1024u) << call;
                }
              }
            } else {
              Check(e, result, call);
            }
            // Nothing works in place on this platform: the receiver keeps its pixels.
            if (!r.nil) {
              EXPECT_EQ(host().Pixels(r.value.AsRef()), before) << call << " changed its receiver";
            }
          }
          ExpectCleanAfter(host(), mark, call);

          if (!m.setter) continue;
          // The setter with every value of the assigned type.
          for (const Arg& v : t.Of(d.result)) {
            const std::string set = Describe("Picture(" + r.text + ")", d.name, args, &v);
            const uint64_t setMark = host().Mark();
            {
              std::vector<ph::Value> values;
              for (const Arg& a : args) values.push_back(a.value);
              host().Assign(r.value.AsRef(), d.name, values, v.value);
              ++calls;
            }
            ExpectCleanAfter(host(), setMark, set);
          }
        }
      }
    }
  }
  EXPECT_GT(calls, 500u);
}

TEST_F(Sweep, GlobalMethodsRefuseInvalidInputsAndKeepAccountsClean) {
  Tables t(host());
  const Arg none{ph::Value(), ""};
  for (const ph::MethodInfo& m : host().GlobalMethods()) {
    const ph::Declaration& d = m.declaration;
    auto rule = Rules().find(d.name);
    if (rule == Rules().end()) {
      ADD_FAILURE() << "no rule for global " << d.text;
      continue;
    }
    for (const std::vector<Arg>& args : Variations(t, d)) {
      const std::string call = Describe("", d.name, args);
      const uint64_t mark = host().Mark();
      {
        std::vector<ph::Value> byref;
        Check(rule->second(none, args), CallWith(host(), d, nullptr, args, byref), call);
      }
      ExpectCleanAfter(host(), mark, call);
    }
  }
}

// --- Classes ----------------------------------------------------------------------------------

// Index accessors: the bound of each index (valid indices 0 .. bound - 1).
const std::map<std::string, std::vector<int32_t>>& IndexBounds() {
  static const std::map<std::string, std::vector<int32_t>> bounds = {
      {"PictureMatrixQVT.Matrix", {5, 5}},
      {"PictureMatrix3DQVT.Matrix", {5, 5}},
      {"PictureLut3DQVT.Table", {18, 18, 18, 3}},
      {"PictureConvolutionQVT.Ver", {20}},
      {"PictureConvolutionQVT.Hor", {20}},
  };
  return bounds;
}

bool IsFilter(const ph::ClassInfo& c) {
  for (const ph::PropertyInfo& p : c.properties) {
    if (Same(p.name, "SourcePicture")) return true;
  }
  return false;
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
          const uint64_t callMark = host().Mark();
          {
            host().SetProperty(instance, p.name, v.value);
            const ph::Value back = host().GetProperty(instance, p.name);
            switch (type) {
              case Type::Integer: EXPECT_EQ(back.AsInt(), v.value.AsInt()) << call; break;
              case Type::Double: {
                const double a = back.AsDouble(), b = v.value.AsDouble();
                EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << call << " reads back " << a;
                break;
              }
              default: EXPECT_EQ(back.AsRef().get(), v.value.AsRef().get()) << call; break;
            }
          }
          for (const std::string& problem : host().TakeProblems()) ADD_FAILURE() << call << ": " << problem;
          (void)callMark;
        }
        if (type == Type::Picture) host().SetProperty(instance, p.name, ph::Ref());
      }
    }
    ExpectCleanAfter(host(), mark, "the properties of " + c.name);
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
        const ph::Declaration& d = m.declaration;
        const std::string name = c.name + "." + d.name;
        if (name == "PaletteQVT.Col") {
          for (int32_t i : {0, 255, 256, 257, -1, -256, kMaxInt, kMinInt}) {
            host().AssignMethod(instance, "Col", {i}, ph::Color{static_cast<uint32_t>(0x010203 * (i & 0x3F))});
            EXPECT_EQ(host().CallMethod(instance, "Col", {i & 0xFF}).AsColor(), 0x010203u * (i & 0x3F))
                << "Col(" << i << ") writes entry " << (i & 0xFF);
            EXPECT_EQ(host().CallMethod(instance, "Col", {i}).AsColor(), 0x010203u * (i & 0x3F))
                << "Col(" << i << ") reads entry " << (i & 0xFF);
          }
          continue;
        }
        auto bound = IndexBounds().find(name);
        if (bound == IndexBounds().end()) {
          ADD_FAILURE() << "no index bounds for " << name;
          continue;
        }
        const std::vector<int32_t>& b = bound->second;
        ASSERT_EQ(b.size(), d.params.size()) << name;
        const bool isDouble = d.result == Type::Double;
        auto value = [&](int32_t k) { return isDouble ? ph::Value(k + 0.25) : ph::Value(k + 1); };
        // Every entry gets its own value, so that a write landing anywhere is seen.
        std::vector<std::vector<int32_t>> all{{}};
        for (int32_t n : b) {
          std::vector<std::vector<int32_t>> next;
          for (const auto& prefix : all) {
            for (int32_t i = 0; i < n; ++i) {
              next.push_back(prefix);
              next.back().push_back(i);
            }
          }
          all.swap(next);
        }
        auto args = [](const std::vector<int32_t>& idx) {
          std::vector<ph::Value> v;
          for (int32_t i : idx) v.push_back(i);
          return v;
        };
        for (size_t k = 0; k < all.size(); ++k) host().AssignMethod(instance, d.name, args(all[k]), value(static_cast<int32_t>(k)));
        for (size_t pos = 0; pos < b.size(); ++pos) {
          for (int32_t bad : {-1, b[pos], b[pos] + 1, 256, kMaxInt, kMinInt, kMinInt + b[pos]}) {
            for (int32_t edge : {0, 1}) {
              std::vector<int32_t> idx;
              for (size_t q = 0; q < b.size(); ++q) idx.push_back(edge ? b[q] - 1 : 0);
              idx[pos] = bad;
              std::string call = name + "(";
              for (size_t q = 0; q < idx.size(); ++q) call += (q ? ", " : "") + std::to_string(idx[q]);
              call += ")";
              const ph::Value got = host().CallMethod(instance, d.name, args(idx));
              if (isDouble) {
                EXPECT_EQ(got.AsDouble(), 0.0) << call;
              } else {
                EXPECT_EQ(got.AsInt(), 0) << call;
              }
              host().AssignMethod(instance, d.name, args(idx), isDouble ? ph::Value(-7.5) : ph::Value(-7));
            }
          }
        }
        for (size_t k = 0; k < all.size(); ++k) {
          const ph::Value got = host().CallMethod(instance, d.name, args(all[k]));
          const ph::Value want = value(static_cast<int32_t>(k));
          if (isDouble ? got.AsDouble() != want.AsDouble() : got.AsInt() != want.AsInt()) {
            ADD_FAILURE() << name << ": entry " << k << " changed by an out-of-range write";
            break;
          }
        }
      }
    }
    ExpectCleanAfter(host(), mark, "the index accessors of " + c.name);
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
    const bool filter = IsFilter(c);
    for (const ph::MethodInfo& m : c.methods) {
      const ph::Declaration& d = m.declaration;
      const bool run = Same(d.name, "Run") || Same(d.name, "RunRGB");
      const bool find = d.name.rfind("Find", 0) == 0;
      for (bool withSource : {false, true}) {
        if (withSource && !filter) continue;
        for (const std::vector<Arg>& args : Variations(t, d)) {
          const std::string call =
              c.name + (withSource ? "(with a source)" : "") + "." + Describe("", d.name, args);
          const uint64_t mark = host().Mark();
          {
            ph::Ref instance = host().NewInstance(c.name);
            ph::Ref earlier = t.pictures[1].value.AsRef();
            if (filter) {
              host().SetProperty(instance, "DestinationPicture", earlier);
              if (withSource) host().SetProperty(instance, "SourcePicture", t.Ordinary(Type::Picture).value);
            }
            std::vector<ph::Value> values;
            for (const Arg& a : args) values.push_back(a.value);
            const ph::Value result = host().CallMethod(instance, d.name, values);
            if (run) {
              EXPECT_EQ(result.AsBool(), withSource) << call;
              const ph::Value destination = host().GetProperty(instance, "DestinationPicture");
              if (withSource) {
                EXPECT_FALSE(destination.IsNil()) << call << " left no result";
                if (!destination.IsNil()) {
                  EXPECT_EQ(host().Width(destination.AsRef()), 64) << call;
                }
              } else if (keepResultOnFailure.count(c.name)) {
                EXPECT_EQ(destination.AsRef().get(), earlier.get()) << call << " dropped its earlier result";
              } else {
                EXPECT_TRUE(destination.IsNil()) << call << " kept its earlier result";
              }
            }
            if (find) {
              EXPECT_EQ(result.AsBool(), !args[0].nil) << call;
            }
            if (Same(c.name, "PaletteQVT") && Same(d.name, "NewPicture")) {
              EXPECT_EQ(result.IsNil(), !HostSize(args[0].value.AsInt(), args[1].value.AsInt())) << call;
            }
            if (Same(c.name, "PaletteQVT") && Same(d.name, "Mem")) {
              EXPECT_GE(result.IsNil() ? 0 : host().Bytes(result.AsRef()).size(), 1024u) << call;
            }
            // The setter with every value of its type, at the same indices.
            if (m.setter) {
              for (const Arg& v : t.Of(d.result)) host().AssignMethod(instance, d.name, values, v.value);
            }
          }
          ExpectCleanAfter(host(), mark, call);
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
    {
      ph::Ref filter = host().NewInstance("PictureConvolutionQVT");
      ph::Ref earlier = t.pictures[1].value.AsRef();
      host().SetProperty(filter, "SourcePicture", t.Ordinary(Type::Picture).value);
      host().SetProperty(filter, "DestinationPicture", earlier);
      host().SetProperty(filter, "ValueCount", n);
      const bool ok = host().CallMethod(filter, "Run", {7}).AsBool();
      EXPECT_EQ(ok, n >= 2 && n <= 20) << "ValueCount " << n;
      if (!ok) {
        EXPECT_EQ(host().GetProperty(filter, "DestinationPicture").AsRef().get(), earlier.get()) << n;
      }
    }
    {
      ph::Ref palette = host().CallGlobal("NewPaletteQVT", {n}).AsRef();
      ASSERT_TRUE(palette) << "NewPaletteQVT(" << n << ")";
      EXPECT_EQ(host().GetProperty(palette, "Count").AsInt(), n);
      const ph::Value picture = host().CallMethod(palette, "NewPicture", {3, 2});
      EXPECT_EQ(picture.IsNil(), n < 1 || n > 256) << "NewPaletteQVT(" << n << ").NewPicture";
      const int32_t distinct = host().CallMethod(palette, "CountColors").AsInt();
      EXPECT_EQ(distinct, n <= 1 ? n : 1) << "NewPaletteQVT(" << n << ").CountColors";
    }
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
