// A deterministic sweep over the registered API (tests/support/api_table.h):
// every extension method and setter, global method, class method and setter
// and class property is called with every adversarial value of each of its
// parameters in turn (the others at an ordinary value), and on receivers
// from nil to odd sizes.
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
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>

#include "tests/support/api_table.h"
#include "tests/support/block_layout.h"
#include "tests/support/host_fixture.h"

namespace {

using ph::Type;
using Member = api::Member;

bool Same(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

template <typename T>
std::string Format(const char* format, T v) {
  char text[32];
  std::snprintf(text, sizeof text, format, v);
  return text;
}

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
  std::vector<uint32_t> pixels{};  // pictures: what they were made with
};

// The table's values made in the host. Built inside each test, so that they
// are gone before the fixture checks for leaks.
struct Tables {
  explicit Tables(ph::Host& host) {
    for (auto* list : {&pictures, &blocks, &strings, &palettes}) list->push_back({ph::Ref(), "nil", true});
    for (const api::PictureKind& k : api::kPictures) {
      Arg& a = pictures.emplace_back(Arg{ph::Ref(), Format("%dx", k.width) + std::to_string(k.height) +
                                                        (k.foreign ? " foreign" : k.masked ? " masked" : "")});
      a.pixels = ph::SamplePixels(k.width, k.height);
      a.value = api::MakePicture(host, k, a.pixels);
      a.width = k.width, a.height = k.height, a.masked = k.masked, a.pictureType = k.foreign ? 2 : 6;
    }
    for (int32_t size : api::kBlockSizes) {
      std::vector<uint8_t> bytes(static_cast<size_t>(size));
      for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
      blocks.push_back({host.NewMemoryBlock(bytes), std::to_string(size) + "-byte block"});
      blocks.back().bytes = size;
    }
    for (const api::Text& s : api::kStrings) strings.push_back({host.NewString(s.bytes), s.text});
    strings.back().readable = true;  // the last only
    for (int32_t v : api::kIntegers) integers.push_back({v, std::to_string(v)});
    for (double d : api::kDoubles) doubles.push_back({d, Format("%.17g", d)});
    for (uint32_t c : api::kColors) colors.push_back({ph::Color{c}, Format("&h%X", c)});
    palettes.push_back({host.CallGlobal("NewGrayPaletteQVT").AsRef(), "a palette"});
  }

  // The values of one type (objects: palettes).
  const std::vector<Arg>& Of(Type type) const {
    for (auto [t, list] : {std::pair{Type::Integer, &integers}, {Type::Double, &doubles}, {Type::Boolean, &booleans},
                           {Type::Color, &colors}, {Type::Picture, &pictures}, {Type::MemoryBlock, &blocks}, {Type::String, &strings}})
      if (t == type) return *list;
    return palettes;
  }
  // The ordinary value of a type: 1, 0.5, grey; else the last: true, a 64 x
  // 48 picture, a block large enough for any layout of it, a readable
  // string, a palette.
  const Arg& Ordinary(Type type) const {
    return type == Type::Integer ? integers[1] : type == Type::Double ? doubles[4] : type == Type::Color ? colors[2] : Of(type).back();
  }

  const std::vector<Arg> none{Arg{}};  // the one argument list of no call, the value of no setter
  std::vector<Arg> pictures, blocks, strings, integers, doubles, booleans{{false, "false"}, {true, "true"}}, colors, palettes;
};

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

// Whether a memory-block layout lies inside the block.
bool Fits(const Arg& block, int64_t offset, int64_t w, int64_t h, int64_t step, int64_t used) {
  return !block.nil && layout::End(offset, w, h, step, used, block.bytes) >= 0;
}

// The rule of one call: `r` is the receiver (or a nil Arg for globals).
using Args = const std::vector<Arg>&;
using Rule = std::function<Expect(const Arg& r, Args a)>;
Rule Always(Expect e) {
  return [e](const Arg&, Args) { return e; };
}

// Copies into a block: false unless the picture is there and its layout
// fits. Builds from a block: nil unless the layout fits and has a size the
// host can hold. Cells of `step` bytes, or with `strideArg` >= 0 of that
// argument's bytes, of which only the first is used.
Rule BlockRule(bool copy, int64_t step, int strideArg) {
  return [=](const Arg& r, Args a) {
    const int64_t w = copy ? r.width : a[2].value.AsInt(), h = copy ? r.height : a[3].value.AsInt();
    const bool fits = strideArg < 0 ? Fits(a[0], a[1].value.AsInt(), w, h, step, step)
                                    : Fits(a[0], a[1].value.AsInt(), w, h, a[strideArg].value.AsInt(), 1);
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
        return PictureOrNil(std::all_of(used.begin(), used.end(), [&](int i) {
          return !a[i].nil && a[i].width == a[0].width && a[i].height == a[0].height;
        }));
      };
    };
    m["CombinePicturesQVT"] = m["BlendPicturesWithMaskQVT"] = sameSized({0, 1, 2});
    m["BlendPicturesQVT"] = sameSized({0, 2});
    return m;
  }();
  return rules;
}

std::string Describe(const std::string& receiver, const std::string& label, const std::vector<Arg>& args, const Arg& v) {
  std::string s = receiver + label + "(";
  for (size_t i = 0; i < args.size(); ++i) s += (i ? ", " : "") + args[i].text;
  return s + ")" + (v.text.empty() ? "" : " = " + v.text);
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

// Every argument list of a member: all ordinary, then each parameter in turn
// through its whole table.
std::vector<std::vector<Arg>> Variations(const Tables& t, const Member& m) {
  std::vector<Arg> ordinary;
  for (const ph::Param& p : m.params) ordinary.push_back(t.Ordinary(p.type));
  std::vector<std::vector<Arg>> all{ordinary};
  for (size_t i = 0; i < m.params.size(); ++i)
    for (const Arg& v : t.Of(m.params[i].type)) {
      all.push_back(ordinary);
      all.back()[i] = v;
    }
  return all;
}

std::vector<ph::Value> Values(const std::vector<Arg>& args) {
  std::vector<ph::Value> values;
  for (const Arg& a : args) values.push_back(a.value);
  return values;
}

class Sweep : public HostTest {};

// Extension methods and setters on every receiver with the ordinary
// arguments, and on the ordinary receiver with every variation (setters with
// every value of their type); global methods with every variation. No call
// changes the pictures it is given: after each member every picture of the
// table still has the pixels it was made with.
TEST_F(Sweep, MethodsAndGlobalsRefuseInvalidInputsAndKeepAccountsClean) {
  Tables t(host());
  size_t calls = 0;
  for (const Member& m : api::Members(host())) {
    if (m.kind != Member::kExtension && m.kind != Member::kExtensionSetter && m.kind != Member::kGlobal) continue;
    const bool setter = m.kind == Member::kExtensionSetter, graphics = m.cls && Same(m.cls->name, "graphics");
    auto rule = Rules().find(m.name);
    if (rule == Rules().end() && !setter) {
      ADD_FAILURE() << "no rule for " << m.label;
      continue;
    }
    const std::vector<Arg>& receivers = m.cls ? t.pictures : t.none;
    for (const Arg& r : receivers) {
      if (graphics && r.nil) continue;  // a graphics always belongs to a picture
      std::vector<std::vector<Arg>> variations = Variations(t, m);
      if (&r != &receivers.back()) variations.resize(1);
      for (const std::vector<Arg>& args : variations)
        for (const Arg& v : setter ? t.Of(m.type) : t.none) {
          const std::string call = Describe(m.cls ? "Picture(" + r.text + ")" + (graphics ? ".Graphics." : ".") : "",
                                            m.name, args, v);
          const uint64_t mark = host().Mark();
          {
            const ph::Ref receiver = graphics ? host().GraphicsOf(r.value.AsRef()) : r.value.AsRef();
            std::vector<ph::Value> values = Values(args);
            const ph::Value result = m.Call(host(), receiver, values, v.value);
            ++calls;
            // A method without a result reports through its byref integer
            // (the count of "CountColorsQVT", whose histograms come first).
            if (!setter) Check(rule->second(r, args), m.type == Type::None && !values.empty() ? values.back() : result, call);
            for (size_t i = 0; i < 3 && m.name == "CountColorsQVT"; ++i) {
              EXPECT_EQ(!values[i].IsNil(), !r.nil) << call << ": histogram block " << i;
              EXPECT_TRUE(values[i].IsNil() || host().Bytes(values[i].AsRef()).size() == 1024) << call << ": 1024 bytes";
            }
          }
          ExpectCleanAccounting(mark, call);
        }
    }
    for (const Arg& p : t.pictures)
      EXPECT_TRUE(p.nil || host().Pixels(p.value.AsRef()) == p.pixels) << m.label << " changed the picture " << p.text;
  }
  EXPECT_GT(calls, 1000u);  // every method and global with every variation
}

// The class methods and setters with every argument variation (setters with
// every value of their type), on an instance without a source picture and,
// for the filters, on one with the ordinary picture: runs and finds fail
// without a picture and succeed with one; the filters that release their
// result before checking are left without one after a failed run.
TEST_F(Sweep, ClassMethodsRefuseWithoutAPictureAndKeepAccountsClean) {
  Tables t(host());
  for (const Member& m : api::Members(host())) {
    if (m.kind != Member::kMethod && m.kind != Member::kMethodSetter) continue;
    const bool filter = std::any_of(m.cls->properties.begin(), m.cls->properties.end(),
                                    [](auto& p) { return Same(p.name, "SourcePicture"); });
    const bool run = Same(m.name, "Run") || Same(m.name, "RunRGB"), find = m.name.rfind("Find", 0) == 0;
    const bool keepsResult = Same(m.cls->name, "PictureConvolutionQVT") || Same(m.cls->name, "PictureSepiaQVT");
    for (bool withSource : {false, true}) {
      if (withSource && !filter) continue;
      for (const std::vector<Arg>& args : Variations(t, m)) {
        const std::string call = Describe(withSource ? "(with a source) " : "", m.label, args, Arg{});
        const uint64_t mark = host().Mark();
        {
          ph::Ref instance = host().NewInstance(m.cls->name), earlier = t.pictures[1].value.AsRef();
          if (filter) host().SetProperty(instance, "DestinationPicture", earlier);
          if (withSource) host().SetProperty(instance, "SourcePicture", t.Ordinary(Type::Picture).value);
          std::vector<ph::Value> values = Values(args);
          ph::Value result;  // setters: with every value of their type
          if (m.kind == Member::kMethodSetter)
            for (const Arg& v : t.Of(m.type)) m.Call(host(), instance, values, v.value);
          else
            result = m.Call(host(), instance, values);
          if (run) {
            EXPECT_EQ(result.AsBool(), withSource) << call;
            const ph::Ref destination = host().GetProperty(instance, "DestinationPicture").AsRef();
            if (withSource) EXPECT_EQ(destination ? host().Width(destination) : 0, 64) << call << " left no result";
            else EXPECT_EQ(destination.get(), keepsResult ? earlier.get() : nullptr) << call << " result";
          }
          EXPECT_TRUE(!find || result.AsBool() == !args[0].nil) << call;
          EXPECT_TRUE(m.label != "PaletteQVT.NewPicture" ||
                      result.IsNil() == !HostSize(args[0].value.AsInt(), args[1].value.AsInt())) << call;
          EXPECT_TRUE(m.label != "PaletteQVT.Mem" || (!result.IsNil() && host().Bytes(result.AsRef()).size() >= 1024)) << call;
        }
        ExpectCleanAccounting(mark, call);
      }
    }
  }
}

// Convolution counts outside 2..20 refuse the run and keep the earlier
// result.
TEST_F(Sweep, OutOfRangeConvolutionCountsAreRefused) {
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
