// The whole REALbasic-visible API, held once in the table below, in the order
// the host receives it. From it come: the lines `picturehost list` must print;
// what docs/api.md must document (every declaration once under its owner,
// "*(assignable)*" exactly on those with a setter, every class's properties);
// the records as the host reads them after registration (instance sizes,
// property offsets and accessors); and a call of every member with arguments
// under which its answer differs from that of each sibling (each other member
// of the same owner with the same parameter and result types, called with the
// same arguments), so a handler registered under a sibling's declaration gives
// a wrong answer. The expected answers are worked out by hand.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "cli/call.h"
#include "cli/help.h"
#include "host/host_state.h"
#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"

namespace {

using Args = std::vector<ph::Value>;

// Instance sizes and property offsets below are those of 32-bit x86; on x86-64
// they hold only for the classes without Picture properties (no pointers).
constexpr bool kHostPlatform = sizeof(void*) == 4;

struct Property { std::string name, type; bool own; uint32_t offset; };

struct Row {
  std::string owner;  // a class, "Picture", "graphics" or "global"
  // "class SIZE" or "extension" opens an owner; "TYPE Name:offset ..." lists
  // properties kept by the host's standard accessors at those offsets of the
  // instance data (also after "class SIZE"), "TYPE Name@offset" one with
  // accessors of its own that keep it there; anything else is a method
  // declaration, " =" at the end when it has a setter.
  std::string declaration;
  std::function<Args()> args = nullptr;  // the receiver or instance first, except for globals
  std::string expected = "";

  bool opens() const { return declaration.rfind("class ", 0) == 0 || declaration == "extension"; }
  std::vector<Property> properties() const {
    std::vector<Property> list;
    std::istringstream in(declaration);
    std::string type, item;
    while (in >> item && (opens() || std::set<std::string>{"Integer", "Picture", "Double"}.count(item) || !type.empty())) {
      const size_t mark = item.find_first_of(":@");
      if (mark == std::string::npos) type = item;
      else list.push_back({item.substr(0, mark), type, item[mark] == '@', uint32_t(std::stoul(item.substr(mark + 1)))});
    }
    return list;
  }
  bool method() const { return !opens() && properties().empty(); }
  bool setter() const { return declaration.ends_with(" ="); }
  std::string text() const { return declaration.substr(0, declaration.size() - (setter() ? 2 : 0)); }
  std::string name() const {
    return method() ? declaration.substr(0, declaration.find_first_of("( ")) : properties().front().name;
  }
  // Siblings share this: the owner and the parameter and result types.
  std::string signature() const {
    if (!method()) return owner + " property";
    const std::optional<ph::Declaration> d = ph::ParseDeclaration(text());
    std::string s = owner + " (";
    for (const ph::Param& p : d->params) s += std::string(p.byref ? "byref " : "") + ph::TypeName(p.type) + ",";
    return s + ") " + ph::TypeName(d->result) + d->resultName;
  }
};

// Members that do the same thing by design, so no argument can tell them apart.
const std::set<std::pair<std::string, std::string>> kSameByDesign = {
    {"FindRed", "FindMaxRed"}, {"FindGreen", "FindMaxGreen"}, {"FindBlue", "FindMaxBlue"},
    {"FindSum", "FindMaxSum"}, {"FindAll", "FindMaxAll"}};

std::string Hex(uint32_t v, const char* format = "%06X") {
  char text[16];
  std::snprintf(text, sizeof text, format, v);
  return text;
}

std::string Bytes(const std::vector<uint8_t>& bytes, size_t most) {
  std::string s;
  for (size_t i = 0; i < std::min(bytes.size(), most); ++i) s += Hex(bytes[i], "%02X");
  return s;
}

// A picture as the test prints it: "WxH:RRGGBB RRGGBB ...".
std::string Pic(int32_t w, int32_t h, const std::vector<uint32_t>& pixels) {
  std::string s = std::to_string(w) + "x" + std::to_string(h) + ":";
  for (size_t i = 0; i < pixels.size(); ++i) s += (i ? " " : "") + Hex(pixels[i]);
  return s;
}

// A w x h picture, black but for the pixel at `index`.
std::string OnePixel(int32_t w, int32_t h, size_t index, uint32_t colour) {
  std::vector<uint32_t> pixels(static_cast<size_t>(w) * h);
  pixels[index] = colour;
  return Pic(w, h, pixels);
}

using Assigned = std::vector<std::pair<std::pair<const char*, Args>, ph::Value>>;

class ApiSurface : public HostTest {
 protected:
  void TearDown() override {
    quad_ = {};
    outputs_ = {};
    HostTest::TearDown();
  }

  ph::Value Instance(const char* cls, std::vector<std::pair<const char*, ph::Value>> properties, Assigned assigned = {}) {
    ph::Ref object = host().NewInstance(cls);
    for (auto& [name, value] : properties) host().SetProperty(object, name, value);
    for (auto& [call, value] : assigned) host().AssignMethod(object, call.first, call.second, value);
    return object;
  }

  std::vector<Row> Api();

  // What a value looks like: pictures with their pixels ("self" when the
  // receiver itself comes back), blocks by their first 16 bytes, palettes by
  // their distinct colours and Col(1).
  std::string Print(const ph::Value& v, const ph::Ref& self) {
    switch (v.storage().index()) {
      case 0: return "nil";  // also no result
      case 1: return std::to_string(v.AsInt());
      case 2: { char t[32]; std::snprintf(t, sizeof t, "%g", v.AsDouble()); return t; }
      case 3: return v.AsBool() ? "true" : "false";
      case 4: return Hex(v.AsColor());
      case 6: return Print(*v.Target(), self);
    }
    const ph::Ref& r = v.AsRef();
    if (!r) return "nil";
    switch (r.get()->kind) {
      case ph::ObjectKind::Picture:
        if (host().Depth(r) != 32) return std::to_string(host().Width(r)) + "x" + std::to_string(host().Height(r)) +
                                          " depth " + std::to_string(host().Depth(r));
        return (r.get() == self.get() ? "self " : "") + Pic(host().Width(r), host().Height(r), host().Pixels(r));
      case ph::ObjectKind::MemoryBlock: return "mb" + std::to_string(host().Bytes(r).size()) + ":" + Bytes(host().Bytes(r), 16);
      case ph::ObjectKind::String: return "str:" + Bytes(host().Bytes(r), 64);
      default:
        if (host().ClassOf(r) != "PaletteQVT") return host().ClassOf(r);
        return Print(host().CallMethod(r, "CountColors"), {}) + " " + Print(host().CallMethod(r, "Col", {1}), {});
    }
  }

  // Blocks and byref variables among the arguments, as the call left them.
  std::string Effect(const ph::Value& v) {
    const bool block = v.storage().index() == 5 && v.AsRef() && v.AsRef().get()->kind == ph::ObjectKind::MemoryBlock;
    return block || v.storage().index() == 6 ? " " + Print(v, {}) : "";
  }

  // The row's arguments, called as `name`: the answer, what it left in the
  // arguments, a filter's DestinationPicture, the finder's 24 properties.
  std::string Call(const Row& row, const std::string& name) {
    const Args a = row.args();
    const bool global = row.owner == "global", extension = row.owner == "Picture" || row.owner == "graphics";
    const ph::Ref self = global ? ph::Ref() : a.front().AsRef();
    const Args rest(a.begin() + !global, a.end());
    const ph::Value result = global         ? host().CallGlobal(name, rest)
                             : extension    ? host().Call(self, name, rest)
                             : row.method() ? host().CallMethod(self, name, rest)
                                            : host().GetProperty(self, name);
    std::string out = Print(result, self);
    for (const ph::Value& v : rest) out += Effect(v);
    if (global || extension) return out;
    for (const ph::PropertyInfo& p : host().FindClass(row.owner)->properties) {
      const ph::Value value = host().GetProperty(self, p.name);
      if (p.name == "DestinationPicture") out += " dest " + Print(value, {});
      if (row.owner == "PictureMinMaxQVT") out += " " + Print(value, {});
    }
    return out;
  }

  ph::Ref quad_;
  std::array<ph::Value, 4> outputs_;  // CountColorsQVT's byref variables
};

std::vector<Row> ApiSurface::Api() {
  const uint32_t A = 0x102030, B = 0x405060, C = 0x708090, D = 0xA0B0C0;
  quad_ = Picture(2, 2, {A, B, C, D});  // A B / C D
  const ph::Ref quad = quad_;
  const auto handle = static_cast<int32_t>(reinterpret_cast<uintptr_t>(quad.get()->pixmap));
  const auto picture = [this](int32_t w, int32_t h, uint32_t colour) { return ph::Value(Flat(w, h, colour)); };
  const auto block = [this](std::vector<uint8_t> bytes) { return ph::Value(host().NewMemoryBlock(bytes)); };
  const auto q = [=] { return Args{quad}; };
  const auto grey100 = [=](Args more) {
    more.insert(more.begin(), picture(1, 1, 0x646464));
    return more;
  };
  const auto rgb123 = [=](Args more) {
    more.insert(more.begin(), picture(1, 1, 0x010203));
    return more;
  };
  // A PPIC string of one pixel (1, 2, 3): header fields length 43, width 1,
  // height 1, 32, data offset 40, then zeros.
  const std::string ppic = std::string("PPIC\0\0\0\x2B\0\0\0\x01\0\0\0\x01\0\0\0\x20\0\0\0\x28", 24) + std::string(16, '\0') + "\x01\x02\x03";
  const std::string ppicHex = "505049430000002B00000001000000010000002000000028" + std::string(32, '0') + "010203";
  // Filters: one pixel (17, 34, 51), whose components are lookup-table nodes.
  const auto filter = [=, this](const char* cls, Assigned assigned, std::vector<std::pair<const char*, ph::Value>> properties = {}) {
    properties.insert(properties.begin(), {"SourcePicture", picture(1, 1, 0x112233)});
    return Args{Instance(cls, properties, assigned)};
  };
  const auto closing = [=, this](const char* cls) {
    return [=, this] { return Args{Instance(cls, {{"SourcePicture", picture(1, 1, 0)}, {"DestinationPicture", picture(1, 1, 0)}})}; };
  };
  const auto convolution = [=, this] {
    // ValueCount 3, Hor = (0, 3, 0) and Ver = (0, 0.5, 0) on a flat (100, 40,
    // 20): red 300 clamps to 255, then 127.5 truncates to 127 (with the two
    // lists swapped it would be 150).
    return Args{Instance("PictureConvolutionQVT", {{"SourcePicture", picture(3, 3, 0x642814)}},
                         {{{"Hor", {1}}, 3.0}, {{"Ver", {1}}, 0.5}}), 1};
  };
  const auto matrix = [=, this] {
    // Cell (2, 2) = 3 and ScaleFactor 0.5 on a flat (100, 40, 20): the centre
    // becomes (150, 60, 30); the two-pixel frame stays black.
    return Args{Instance("PictureMatrixQVT", {{"SourcePicture", picture(5, 5, 0x642814)}, {"ScaleFactor", 0.5}},
                         {{{"Matrix", {2, 2}}, 3}})};
  };
  const auto sepia = [=] {
    return filter("PictureSepiaQVT", {},
                  {{"FactorRed", 1.0}, {"FactorGreen", 0.5}, {"FactorBlue", 0.25}, {"SepiaRed", 10}, {"SepiaBlue", -10}});
  };
  const auto palette = [=, this] {
    return Args{Instance("PaletteQVT", {}, {{{"Col", {0}}, ph::Color{0x123456}}, {{"Col", {1}}, ph::Color{0xABCDEF}}})};
  };
  const std::string frame = " Picture SourcePicture:0 DestinationPicture:4 Integer MaxX:16 MinX:8 MaxY:20 MinY:12";
  const std::string copyChannel = "(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean";
  const auto none = [] { return Args{}; };

  std::vector<Row> rows = {
      // L = (17 x 1024 + 34 x 512 + 51 x 256) / 1024 = 46, plus the tints 10, 0, -10.
      {"PictureSepiaQVT", "class 60" + frame + " SepiaRed:24 SepiaGreen:28 SepiaBlue:32"},
      {"PictureSepiaQVT", "Double FactorRed@36", sepia, "1 dest nil"},
      {"PictureSepiaQVT", "Double FactorBlue@52", sepia, "0.25 dest nil"},
      {"PictureSepiaQVT", "Double FactorGreen@44", sepia, "0.5 dest nil"},
      {"PictureSepiaQVT", "Close", closing("PictureSepiaQVT"), "nil dest nil"},
      {"PictureSepiaQVT", "Run as boolean", sepia, "true dest " + Pic(1, 1, {0x382E24})},
      {"PictureConvolutionQVT", "class 332 Picture SourcePicture:0 DestinationPicture:4 Integer ValueCount:8"},
      {"PictureConvolutionQVT", "Close", closing("PictureConvolutionQVT"), "nil dest nil"},
      {"PictureConvolutionQVT", "Run(channels as integer) as boolean", convolution, "true dest " + OnePixel(3, 3, 4, 0x7F2814)},
      {"PictureConvolutionQVT", "Ver(index as integer) as double =", convolution, "0.5 dest nil"},
      {"PictureConvolutionQVT", "Hor(index as integer) as double =", convolution, "3 dest nil"},
      // Node (1, 2, 3) maps to (200, 100, 50).
      {"PictureLut3DQVT", "class 139992" + frame},
      {"PictureLut3DQVT", "Close", closing("PictureLut3DQVT"), "nil dest nil"},
      {"PictureLut3DQVT", "Run as boolean",
       [=] { return filter("PictureLut3DQVT", {{{"Table", {1, 2, 3, 0}}, 200.0}, {{"Table", {1, 2, 3, 1}}, 100.0},
                                               {{"Table", {1, 2, 3, 2}}, 50.0}}); },
       "true dest " + Pic(1, 1, {0xC86432})},
      {"PictureLut3DQVT", "Table(r as integer, g as integer, b as integer, x as integer) as double =",
       [=] { return Args{filter("PictureLut3DQVT", {{{"Table", {1, 2, 3, 1}}, 100.0}}).front(), 1, 2, 3, 1}; },
       "100 dest nil"},
      {"PaletteQVT", "class 1032 Integer Count:0"},
      {"PaletteQVT", "Col(i as integer) as color =", [=] { return Args{palette().front(), 1}; }, "ABCDEF"},
      {"PaletteQVT", "Mem as Memoryblock", palette, "mb1024:56341200EFCDAB000000000000000000"},
      {"PaletteQVT", "CountColors as integer", palette, "3"},
      {"PaletteQVT", "Close", palette, "nil"},
      {"PaletteQVT", "NewPicture(width as integer,height as integer) as picture",
       [=] { return Args{palette().front(), 3, 2}; }, "3x2 depth 8"},
      {"PictureMatrixQVT", "class 136 Picture SourcePicture:0 DestinationPicture:4 Integer Displacement:24"},
      {"PictureMatrixQVT", "Double ScaleFactor@28", matrix, "0.5 dest nil"},
      {"PictureMatrixQVT", "Integer MaxX:16 MinX:8 MaxY:20 MinY:12"},
      {"PictureMatrixQVT", "Close", closing("PictureMatrixQVT"), "nil dest nil"},
      {"PictureMatrixQVT", "Run as boolean", matrix, "true dest " + OnePixel(5, 5, 12, 0x963C1E)},
      {"PictureMatrixQVT", "RunRGB(red as boolean, green as boolean, blue as boolean) as boolean",
       [=] { return Args{matrix().front(), true, false, true}; }, "true dest " + OnePixel(5, 5, 12, 0x96001E)},
      {"PictureMatrixQVT", "Matrix(x as integer, y as integer) as integer =",
       [=, this] { return Args{Instance("PictureMatrixQVT", {}, {{{"Matrix", {1, 2}}, 7}}), 1, 2}; }, "7 dest nil"},
      // Red and blue exchanged.
      {"PictureMatrix3DQVT", "class 224" + frame},
      {"PictureMatrix3DQVT", "Close", closing("PictureMatrix3DQVT"), "nil dest nil"},
      {"PictureMatrix3DQVT", "Run as boolean",
       [=] { return filter("PictureMatrix3DQVT", {{{"Matrix", {2, 0}}, 1.0}, {{"Matrix", {1, 1}}, 1.0}, {{"Matrix", {0, 2}}, 1.0}}); },
       "true dest " + Pic(1, 1, {0x332211})},
      {"PictureMatrix3DQVT", "Matrix(x as integer, y as integer) as double =",
       [=] { return Args{filter("PictureMatrix3DQVT", {{{"Matrix", {1, 2}}, 0.75}}).front(), 1, 2}; }, "0.75 dest nil"},
      {"graphics", "extension"},
      {"graphics", "PaintDesktopQVT", [=, this] { return Args{host().GraphicsOf(quad)}; }, "nil"},

      {"Picture", "extension"},
      // Scrolling never moves pixels here: horizontal reports true, vertical only for 0.
      {"Picture", "ScrollVerticalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean",
       [=] { return Args{quad, 1, true, false}; }, "false"},
      {"Picture", "ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean",
       [=] { return Args{quad, 1, true, false}; }, "true"},
      {"Picture", "ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as boolean",
       [=] { return Args{quad, 1, 0, true, false}; }, "true"},
      {"Picture", "HasMaskQVT as boolean",
       [=, this] {
         ph::Ref p = Flat(1, 1, 0);
         host().SetMask(p, Flat(1, 1, 0));
         return Args{p};
       },
       "true"},
      // 100 + d; 100 x (255 - |d|) / 255 (+ d when d >= 0); (100 - 127) x (1 + d) + 127.
      {"Picture", "ChangeBrightnessAbsoluteQVT(r as double, g as double, b as double) as picture",
       [=] { return grey100({50.0, -50.0, 10.0}); }, Pic(1, 1, {0x96326E})},
      {"Picture", "ChangeBrightnessLinearQVT(r as double, g as double, b as double) as picture",
       [=] { return grey100({50.0, -50.0, 10.0}); }, Pic(1, 1, {0x82506A})},
      {"Picture", "ChangeBrightnessAbsoluteQVT(x as double) as picture", [=] { return grey100({50.0}); }, Pic(1, 1, {0x969696})},
      {"Picture", "ChangeBrightnessLinearQVT(x as double) as picture", [=] { return grey100({50.0}); }, Pic(1, 1, {0x828282})},
      {"Picture", "ChangeCustomQVT(a as double, b as double) as picture", [=] { return grey100({0.5, 7.0}); },
       Pic(1, 1, {0x393939})},
      {"Picture", "ChangeContrastQVT(x as double) as picture", [=] { return grey100({0.5}); }, Pic(1, 1, {0x565656})},
      {"Picture", "ChangeContrastQVT(xr as double, xg as double, xb as double) as picture",
       [=] { return grey100({0.5, -0.5, 0.0}); }, Pic(1, 1, {0x567164})},
      {"Picture", "PaletteQVT as PaletteQVT =", q, "nil"},
      {"Picture", "DataTypeQVT as integer", q, "6"},
      {"Picture", "DataHandleQVT as integer", q, std::to_string(handle)},
      {"Picture", "MakeHBITMAPQVT as integer", q, "0"},
      {"Picture", "InvertQVT(left as integer,top as integer,width as integer,height as integer) as picture",
       [=] { return Args{quad, 1, 0, 1, 2}; }, Pic(2, 2, {0, ~B & 0xFFFFFF, 0, ~D & 0xFFFFFF})},
      {"Picture", "Rotate90QVT as picture", q, Pic(2, 2, {B, D, A, C})},
      {"Picture", "Rotate180QVT as picture", q, Pic(2, 2, {D, C, B, A})},
      {"Picture", "Rotate270QVT as picture", q, Pic(2, 2, {C, A, D, B})},
      {"Picture", "RotateQVT(angle as double,background as color) as picture",
       [=] { return Args{quad, 180.0, ph::Color{0xFFFFFF}}; }, Pic(2, 2, {D, C, B, A})},
      {"Picture", "VMirrorQVT as picture", q, Pic(2, 2, {C, D, A, B})},
      {"Picture", "HMirrorQVT as picture", q, Pic(2, 2, {B, A, D, C})},
      {"Picture", "CloneQVT as picture", q, Pic(2, 2, {A, B, C, D})},
      {"Picture", "BitmapQVT as picture", q, "self " + Pic(2, 2, {A, B, C, D})},
      {"Picture", "ScaleQVT(width as integer, height as integer, AntiAlias as boolean) as picture",
       [=] { return Args{quad, 1, 1, false}; }, Pic(1, 1, {0x586878})},
      {"Picture", "EmbeddedMaskQVT(swap as boolean) as picture =", [=] { return Args{quad, false}; },
       Pic(2, 2, {0xFFFFFF, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF})},
      {"Picture", "PicHandleQVT as picture", q, "nil"},
      // Luminance levels (0.177 R + 0.813 G + 0.01 B) 29 (A) to 173 (D): lo = 28,
      // hi = 172, each channel s to trunc((s - 28) x 255 / 144).
      {"Picture", "AutoLevelQVT as picture", q, Pic(2, 2, {0x000723, 0x3F5C78, 0x94B1CD, 0xE9FFFF})},
      {"Picture", "PicHandleDataQVT as string", q, "nil"},
      {"Picture", "CountColorQVT(col as color) as integer", [=] { return Args{quad, ph::Color{B}}; }, "1"},
      // Histograms of red, blue, green (in that order): one pixel at 1, 3, 2.
      {"Picture",
       "CountColorsQVT(byref red as memoryblock, byref blue as memoryblock, byref green as memoryblock, byref count as integer)",
       [=, this] {
         outputs_ = {ph::Value(ph::Ref()), ph::Value(ph::Ref()), ph::Value(ph::Ref()), ph::Value(0)};
         return rgb123({ph::Value::ByRef(&outputs_[0]), ph::Value::ByRef(&outputs_[1]), ph::Value::ByRef(&outputs_[2]),
                        ph::Value::ByRef(&outputs_[3])});
       },
       "nil mb1024:00000000010000000000000000000000 mb1024:00000000000000000000000001000000 "
       "mb1024:00000000000000000100000000000000 1"},
      {"Picture", "TransformColorsQVT(red as memoryblock, blue as memoryblock, green as memoryblock) as picture",
       [=] {
         return rgb123({block(std::vector<uint8_t>(256, 0x11)), block(std::vector<uint8_t>(256, 0x33)),
                        block(std::vector<uint8_t>(256, 0x22))});
       },
       Pic(1, 1, {0x112233}) + " mb256:11111111111111111111111111111111 mb256:33333333333333333333333333333333 "
                               "mb256:22222222222222222222222222222222"},
      {"Picture", "CopyRGBtoMemoryblockQVT(destination as memoryblock, offset as integer) as boolean",
       [=] { return rgb123({block(std::vector<uint8_t>(8)), 1}); }, "true mb8:0001020300000000"},
      {"Picture",
       "CopyARGBtoMemoryblockQVT(destination as memoryblock, offset as integer, LittleEndian as boolean, AlphaValue as integer) as boolean",
       [=] { return rgb123({block(std::vector<uint8_t>(8)), 0, true, 0x7F}); }, "true mb8:0302017F00000000"},
      {"Picture", "CopyRtoMemoryblockQVT" + copyChannel, [=] { return rgb123({block(std::vector<uint8_t>(8)), 1, 2}); },
       "true mb8:0001000000000000"},
      {"Picture", "CopyGtoMemoryblockQVT" + copyChannel, [=] { return rgb123({block(std::vector<uint8_t>(8)), 1, 2}); },
       "true mb8:0002000000000000"},
      {"Picture", "CopyBtoMemoryblockQVT" + copyChannel, [=] { return rgb123({block(std::vector<uint8_t>(8)), 1, 2}); },
       "true mb8:0003000000000000"},

      {"global", "MemoryblockRGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer) as picture",
       [=] { return Args{block({1, 2, 3, 4, 5, 6, 7}), 1, 2, 1}; }, Pic(2, 1, {0x020304, 0x050607}) + " mb7:01020304050607"},
      {"global",
       "MemoryblockARGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, LittleEndian as boolean) as picture",
       [=] { return Args{block({1, 2, 3, 4, 5, 6, 7, 8}), 0, 2, 1, false}; },
       Pic(2, 1, {0x020304, 0x060708}) + " mb8:0102030405060708"},
      {"global",
       "MemoryblockGrayToPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, PixelByteSize as integer) as picture",
       [=] { return Args{block({1, 2, 3, 4, 5, 6, 7, 8}), 0, 2, 1, 3}; },
       Pic(2, 1, {0x010101, 0x040404}) + " mb8:0102030405060708"},
      {"global", "BuildPictureWithPicHandleDataQVT(data as string) as picture", [=, this] { return Args{host().NewString(ppic)}; }, "nil"},
      {"global", "BuildPictureWithGWorldHandleQVT(handle as integer, ByPassOwernerShip as boolean) as picture",
       [] { return Args{1, true}; }, "nil"},
      // The palettes as their count of colours and Col(1).
      {"global", "NewGrayPaletteQVT as PaletteQVT", none, "256 010101"},
      {"global", "NewWebPaletteQVT as PaletteQVT", none, "216 FFFFCC"},
      {"global", "NewRedPaletteQVT as PaletteQVT", none, "256 010000"},
      {"global", "NewGreenPaletteQVT as PaletteQVT", none, "256 000100"},
      {"global", "NewBluePaletteQVT as PaletteQVT", none, "256 000001"},
      {"global", "NewSystemPaletteQVT as PaletteQVT", none, "nil"},
      {"global", "NewWindowsPaletteQVT as PaletteQVT", none, "256 808080"},
      {"global", "NewPalmPaletteQVT as PaletteQVT", none, "230 FFCCFF"},
      {"global", "NewPaletteQVT(count as integer) as PaletteQVT", [] { return Args{3}; }, "1 000000"},
      {"global", "BinaryStringtoPictureQVT(data as String) as Picture", [=, this] { return Args{host().NewString(ppic)}; },
       Pic(1, 1, {0x010203})},
      {"global", "PicturetoBinaryStringQVT(p as picture) as string", [=] { return Args{picture(1, 1, 0x010203)}; },
       "str:" + ppicHex},
      // (16, 32, 48), (64, 80, 96) and (112, 128, 144): red of the first,
      // green of the third, blue of the second; or the mask weight 128 mixing
      // (s x 127 + d x 128) / 255.
      {"global", "CombinePicturesQVT(red as picture, blue as picture, green as picture) as picture",
       [=] { return Args{picture(1, 1, A), picture(1, 1, B), picture(1, 1, C)}; }, Pic(1, 1, {0x108060})},
      {"global", "BlendPicturesQVT(source as picture, sourcepercent as double, dest as picture, destpercent as double) as picture",
       [=] { return Args{picture(1, 1, A), 0.5, picture(1, 1, B), 0.25}; }, Pic(1, 1, {0x182430})},
      {"global", "BlendPicturesWithMaskQVT(source as picture, dest as picture, mask as picture) as picture",
       [=] { return Args{picture(1, 1, A), picture(1, 1, B), picture(1, 1, C)}; }, Pic(1, 1, {0x283848})},
      {"global", "TintPictureQVT(source as picture, GreyBase as color, SepiaBase as color) as picture",
       [=] { return Args{picture(1, 1, A), ph::Color{0xFF0000}, ph::Color{0xFF8000}}; }, Pic(1, 1, {0x100800})},
  };
  // The finder keeps, for red, green, blue and the sum, the X, Y and value of
  // the maximum and of the minimum, one word each.
  std::string finderProperties = "class 96 Integer";
  uint32_t at = 0;
  for (const char* quantity : {"Red", "Green", "Blue", "Sum"})
    for (const char* end : {"Max", "Min"})
      for (const char* field : {"X", "Y", ""}) finderProperties += " " + std::string(quantity) + end + field + ":" + std::to_string(at), at += 4;
  rows.push_back({"PictureMinMaxQVT", finderProperties});
  // The finder on (10, 200, 30) (50, 20, 90), as (X Y value) triples of the
  // maximum and the minimum of red, green, blue and the sum: each method
  // writes its own, the others stay 0.
  const char* const quantities[] = {"All", "Red", "Green", "Blue", "Sum"};
  const std::string maxima[] = {"1 0 50", "0 0 200", "1 0 90", "0 0 240"}, minima[] = {"0 0 10", "1 0 20", "0 0 30", "1 0 160"};
  const auto finder = [=, this] { return Args{Instance("PictureMinMaxQVT", {}), ph::Value(Picture(2, 1, {0x0AC81E, 0x32145A}))}; };
  auto found = [&](long only, bool max) {  // only: 0 all, 1..4 one quantity, -1 none
    std::string s = only < 0 ? "nil" : "true";
    for (long k = 1; k <= 4; ++k) s += only == k || only == 0 ? " " + (max ? maxima[k - 1] : "0 0 0") + " " + minima[k - 1] : " 0 0 0 0 0 0";
    return s;
  };
  std::istringstream finds("All Red Green Blue Sum MinRed MinGreen MinBlue MinSum MinAll MaxRed MaxGreen MaxBlue MaxSum MaxAll");
  for (std::string what; finds >> what;) {
    const bool minOnly = what.rfind("Min", 0) == 0;
    const std::string quantity = minOnly || what.rfind("Max", 0) == 0 ? what.substr(3) : what;
    const long k = std::find(quantities, quantities + 5, quantity) - quantities;
    rows.push_back({"PictureMinMaxQVT", "Find" + what + "(p as picture) as boolean", finder, found(k, !minOnly)});
  }
  rows.push_back({"PictureMinMaxQVT", "Close", [=, this] { return Args{Instance("PictureMinMaxQVT", {})}; }, found(-1, false)});
  return rows;
}

TEST_F(ApiSurface, ListedInOrderAndEachMemberGivesItsOwnAnswer) {
  const std::vector<Row> rows = Api();
  std::string expected;
  for (const Row& row : rows) {
    if (row.opens()) expected += (row.declaration == "extension" ? "extension " : "class ") + row.owner + "\n";
    for (const Property& p : row.properties()) expected += "  property " + p.name + " as " + p.type + "\n";
    if (!row.method()) continue;
    expected += (row.owner == "global" ? "global " : "  method ") + row.text() + "\n";
    if (row.setter()) expected += "    setter " + row.text() + "\n";
  }
  const Outcome run = Picturehost({"list"});
  EXPECT_EQ(run.status, 0) << run.err;
  ASSERT_EQ(run.out, expected);  // gtest shows the lines that differ

  std::map<std::string, std::vector<const Row*>> families;
  for (const Row& row : rows)
    if (row.args) families[row.signature()].push_back(&row);
  for (const Row& row : rows) {
    EXPECT_TRUE(row.args || !row.method()) << row.declaration << " is never called";
    if (!row.args) continue;
    EXPECT_EQ(Call(row, row.name()), row.expected) << row.owner << " " << row.declaration;
    for (const Row* sibling : families[row.signature()]) {
      if (sibling == &row || kSameByDesign.count({row.name(), sibling->name()}) ||
          kSameByDesign.count({sibling->name(), row.name()}))
        continue;
      EXPECT_NE(Call(row, sibling->name()), row.expected)
          << row.owner << " " << row.declaration << ": its arguments give the same answer as " << sibling->name();
    }
  }
}

// The records as the host holds them after registration (the plug-in
// announcing version 9): each class's fixed words (version 9, no superclass,
// no events, reserved words zero, constructor and destructor for classes
// only), its instance size and an instance offset of its own, its properties
// kept at their offsets by the host's standard accessors or by accessors of
// their own, its method records without flags.
// A value
// set through a property with its own accessors is found at its offset, and
// one planted there is read back.
TEST_F(ApiSurface, RecordsAsTheHostReadsThem) {
  EXPECT_EQ(host().AnnouncedVersion(), std::optional<int32_t>(9));
  const std::vector<Row> rows = Api();
  std::set<uint32_t> offsets;
  for (auto row = rows.begin(); row != rows.end(); ++row) {
    if (!row->opens()) continue;
    SCOPED_TRACE(row->owner);
    const ph::ClassInfo* info = host().FindClass(row->owner);
    ASSERT_TRUE(info && info->extension == (row->declaration == "extension"));
    std::vector<Property> properties;
    for (auto r = row; r != rows.end() && r->owner == row->owner; ++r)
      for (const Property& p : r->properties()) properties.push_back(p);
    const bool fixed = kHostPlatform || std::none_of(properties.begin(), properties.end(), [](auto& p) { return p.type == "Picture"; });
    const REALclassDefinition* record = info->record;
    if (fixed) {
      EXPECT_EQ(info->dataSize, info->extension ? 0 : std::stoul(row->declaration.substr(6)));
    }
    EXPECT_TRUE(record->version == 9 && !record->superName && !record->events && !record->eventCount);
    EXPECT_TRUE(std::all_of(std::begin(record->reserved), std::end(record->reserved), [](uint32_t w) { return !w; }));
    EXPECT_TRUE(info->extension ? !record->constructor && !record->destructor : record->constructor && record->destructor);
    EXPECT_EQ(record->instanceDataOffset, info->dataOffset);
    EXPECT_TRUE(info->extension || (info->dataOffset != 0 && offsets.insert(info->dataOffset).second));
    for (uint32_t i = 0; i < record->methodCount; ++i) EXPECT_EQ(record->methods[i].flags, 0u) << record->methods[i].declaration;
    ASSERT_EQ(record->propertyCount, properties.size());
    for (uint32_t i = 0; i < record->propertyCount; ++i) {
      const REALpropertyDefinition& r = record->properties[i];
      const Property& p = properties[i];
      SCOPED_TRACE(p.name);
      EXPECT_EQ(r.name, p.name);
      EXPECT_TRUE(!r.group && !r.flags && !r.reserved[0] && !r.reserved[1] && !r.reserved[2]);
      EXPECT_EQ(r.getter == kStandardAccessor && r.setter == kStandardAccessor, !p.own);
      EXPECT_TRUE(p.own ? r.getter && r.setter && r.param == 0 : !fixed || r.param == p.offset) << r.param;
      if (!p.own || !kHostPlatform) continue;
      ph::Ref instance = host().NewInstance(row->owner);
      uint8_t* data = static_cast<uint8_t*>(instance.handle()) + info->dataOffset;
      host().SetProperty(instance, p.name, -1234.5625);
      double stored, planted = 0.1 + p.offset;
      std::memcpy(&stored, data + p.offset, 8);
      EXPECT_EQ(stored, -1234.5625);
      std::memcpy(data + p.offset, &planted, 8);
      EXPECT_EQ(host().GetProperty(instance, p.name).AsDouble(), planted);
    }
  }
  // The palette: its count, a reserved word, then the colours.
  ph::Ref p = host().NewInstance("PaletteQVT");
  uint32_t* words = reinterpret_cast<uint32_t*>(static_cast<uint8_t*>(p.handle()) + host().FindClass("PaletteQVT")->dataOffset);
  EXPECT_EQ(words[0], 256u);
  EXPECT_EQ(words[1], 0xFFFFFFFFu);
  host().AssignMethod(p, "Col", {255}, ph::Color{0x00102030u});
  EXPECT_EQ(words[2 + 255], 0x00102030u);
}

// Hosts from 5.9 on get method records of four words, and so does one whose
// answer is not a number (it cannot be shown to be old); older ones, or one
// that cannot say, three words without flags. Global methods keep the full
// form, registered one by one from a single array.
TEST_F(ApiSurface, MethodRecordsAreFourWordsForNewHostsThreeForOldOnes) {
  struct Case { double version; std::set<std::string> without; size_t words; };
  for (const Case& c : {Case{5.9, {}, 4}, Case{2007.0, {}, 4}, Case{std::nan(""), {}, 4}, Case{5.8, {}, 3},
                        Case{2007.0, {"REALGetRBVersion"}, 3}}) {
    SCOPED_TRACE(testing::Message() << c.version << " " << c.without.size());
    const std::unique_ptr<ph::Host> privateHost = PrivateHost(c.without, c.version);
    size_t classes = 0;
    const REALmethodDefinition* global = nullptr;
    for (const ph::Registration& r : privateHost->Registrations()) {
      if (r.kind == ph::Registration::Kind::Method) {
        EXPECT_TRUE(!global || r.record == global + 1);
        global = static_cast<const REALmethodDefinition*>(r.record);
        EXPECT_EQ(global->flags, 0u);
        continue;
      }
      ++classes;
      const auto* record = static_cast<const REALclassDefinition*>(r.record);
      const ph::ClassInfo& mine = *host().FindClass(record->name);
      ASSERT_EQ(record->methodCount, mine.methods.size());
      auto word = [&](uint32_t i, size_t k) { return reinterpret_cast<void* const*>(record->methods)[c.words * i + k]; };
      for (uint32_t i = 0; i < record->methodCount; ++i) {
        EXPECT_NE(word(i, 0), nullptr);
        EXPECT_EQ(word(i, 1) != nullptr, mine.methods[i].setter != nullptr);
        EXPECT_STREQ(static_cast<const char*>(word(i, 2)), mine.methods[i].declaration.text.c_str());
      }
    }
    EXPECT_EQ(classes, 9u);
    for (const std::string& p : privateHost->TakeProblems()) ADD_FAILURE() << p;
  }
}

// docs/api.md: sections "## Picture methods", "## graphics methods", "## Global
// methods" and "## Class NAME"; entries "#### `declaration`", followed by
// " *(assignable)*" when it has a setter; properties "- `Name as Type`" in
// class sections; examples indented "    picturehost ..." lines after their
// entry. Other lines, and headings inside fenced blocks, are prose. Every
// declaration and property is documented once under its owner and nothing
// else is; every entry has an example that calls it, and every example runs
// the way the command line runs it (in a scratch directory that sees the
// source tree's tests/ folder for its data files): a nil result is fine, bad
// input is not. `picturehost help NAME` shows every line of the entries of
// NAME and the lines of its entries (prose without its backticks).
TEST_F(ApiSurface, DocumentsExactlyTheApiWithExamplesThatCallIt) {
  using Key = std::pair<std::string, std::string>;  // owner ("Picture", "graphics", "global" or a class), text
  std::map<Key, bool> declarations;                  // -> has a setter
  std::map<std::string, std::set<std::string>> properties, documentedProperties;
  for (const Row& row : Api()) {
    if (row.method()) declarations[{row.owner, row.text()}] = row.setter();
    for (const Property& p : row.properties()) properties[row.owner].insert(p.name + " as " + p.type);
  }
  struct Entry { Key key; int line; bool called = false; std::vector<std::string> body; };
  std::vector<Entry> entries;
  std::set<Key> documented;
  const std::map<std::string, std::string> owners = {
      {"## Picture methods", "Picture"}, {"## graphics methods", "graphics"}, {"## Global methods", "global"}};
  const std::regex entry("#### `([^`]*)`(.*)"), property("- `(\\w+ as \\w+)`.*");
  std::ifstream in(std::string(PICTURE_SOURCE_DIR) + "/docs/api.md");
  TempDir dir("api-examples");
  std::filesystem::create_directory_symlink(std::filesystem::path(PICTURE_SOURCE_DIR) / "tests", dir.path() / "tests");
  const std::filesystem::path saved = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  std::smatch m;
  std::string line, owner;
  bool fenced = false, inEntry = false;
  for (int number = 1; std::getline(in, line); ++number) {
    const std::string where = "line " + std::to_string(number) + ": ";
    if (line.rfind("```", 0) == 0) fenced = !fenced;
    inEntry = inEntry && (fenced || line.rfind('#', 0) != 0);
    if (inEntry && !line.empty() && line.rfind("```", 0) != 0) {
      std::string shown = line;
      if (!fenced && line.rfind("    ", 0) != 0) shown.erase(std::remove(shown.begin(), shown.end(), '`'), shown.end());
      entries.back().body.push_back(shown);
    }
    if (line.rfind("    picturehost ", 0) == 0) {
      if (entries.empty()) {
        ADD_FAILURE() << where << "an example before any entry";
        continue;
      }
      std::istringstream words(line.substr(16));  // split at spaces outside single quotes, the quotes removed
      std::vector<std::string> arguments;
      for (std::string word; words >> std::quoted(word, '\'');) arguments.push_back(word);
      ph::Execution run;
      std::ostringstream printed;
      try {
        const ph::Options o = ph::ParseOptions(arguments);
        ph::Execute(host(), o, run);
        ph::Deliver(host(), o, run, printed);
      } catch (const ph::NilResult&) {
      } catch (const std::exception& error) {
        ADD_FAILURE() << where << line << ": " << error.what();
      }
      for (const ph::Invoked& i : run.invoked)
        entries.back().called |= Key{i.owner, i.method->declaration.text} == entries.back().key;
    } else if (fenced) {
    } else if (line.rfind("## ", 0) == 0) {
      owner = owners.count(line) ? owners.at(line) : line.rfind("## Class ", 0) == 0 ? line.substr(9) : "";
    } else if (std::regex_match(line, m, entry)) {
      const Key key{owner, m[1]};
      const auto it = declarations.find(key);
      if (owner.empty()) ADD_FAILURE() << where << "an entry outside the API sections";
      else if (it == declarations.end()) ADD_FAILURE() << where << m[1] << " is no declaration of " << owner;
      else EXPECT_EQ(m[2].str().find("*(assignable)*") != std::string::npos, it->second) << where << "setter";
      EXPECT_TRUE(documented.insert(key).second) << where << "documented twice";
      entries.push_back({key, number, false, {m[1]}});
      inEntry = true;
    } else if (properties.count(owner) && std::regex_match(line, m, property)) {
      documentedProperties[owner].insert(m[1]);
    }
  }
  std::filesystem::current_path(saved);
  ASSERT_GT(entries.size(), 50u) << "docs/api.md was not read";
  for (const Entry& e : entries) {
    EXPECT_TRUE(e.called) << "line " << e.line << ": no example calls " << e.key.second;
    const std::string help = ph::HelpFor(e.key.second.substr(0, e.key.second.find_first_of(" (")));
    for (const std::string& shown : e.body) EXPECT_NE(help.find(shown), std::string::npos) << shown << " in\n" << help;
  }
  for (const auto& [key, setter] : declarations) EXPECT_TRUE(documented.count(key)) << key.first << ": " << key.second << " is not documented";
  EXPECT_EQ(documentedProperties, properties);  // the extensions have none
}

}  // namespace
