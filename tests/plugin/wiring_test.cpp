// The whole REALbasic-visible API, and what each registered member answers.
//
// `picturehost list` must print exactly the registrations below: the seven
// classes with their properties and methods, the graphics and Picture
// extensions and the twenty global methods, in the order the host receives
// them. And every registered method (and every property with accessors of
// its own) is called through the host with arguments under which its answer
// differs from that of each sibling: each other member of the same receiver,
// class or the globals with the same parameter and result types, called with
// the same arguments. So a handler registered under a sibling's declaration
// gives a wrong answer here. The expected answers are worked out by hand.
#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "host/host_state.h"
#include "tests/support/host_fixture.h"
#include "tests/support/picturehost_run.h"

namespace {

using Args = std::vector<ph::Value>;

// Each class or extension in registration order with its properties ("  TYPE:
// A B" for the properties A and B of that type); its methods are the rows of
// that target, in order. "global" marks where the global methods come.
const char* const kSections = R"(class PictureSepiaQVT
  Picture: SourcePicture DestinationPicture
  Integer: MaxX MinX MaxY MinY SepiaRed SepiaGreen SepiaBlue
  Double: FactorRed FactorBlue FactorGreen
class PictureConvolutionQVT
  Picture: SourcePicture DestinationPicture
  Integer: ValueCount
class PictureLut3DQVT
  Picture: SourcePicture DestinationPicture
  Integer: MaxX MinX MaxY MinY
class PaletteQVT
  Integer: Count
class PictureMatrixQVT
  Picture: SourcePicture DestinationPicture
  Integer: Displacement
  Double: ScaleFactor
  Integer: MaxX MinX MaxY MinY
class PictureMatrix3DQVT
  Picture: SourcePicture DestinationPicture
  Integer: MaxX MinX MaxY MinY
extension graphics
extension Picture
global
class PictureMinMaxQVT
  Integer: RedMaxX RedMaxY RedMax RedMinX RedMinY RedMin GreenMaxX GreenMaxY GreenMax GreenMinX GreenMinY GreenMin
  Integer: BlueMaxX BlueMaxY BlueMax BlueMinX BlueMinY BlueMin SumMaxX SumMaxY SumMax SumMinX SumMinY SumMin
)";

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

struct Row {
  std::string target;  // "Picture", "graphics", "global" or a class
  // The declaration as registered, " =" at the end when it has a setter; or
  // "property NAME" for a property with accessors of its own.
  std::string declaration;
  std::function<Args()> args;  // the receiver or instance first, except for globals
  std::string expected;

  bool property() const { return declaration.rfind("property ", 0) == 0; }
  bool setter() const { return declaration.ends_with(" ="); }
  std::string text() const { return declaration.substr(0, declaration.size() - (setter() ? 2 : 0)); }
  std::string name() const {
    return property() ? declaration.substr(9) : declaration.substr(0, declaration.find_first_of("( "));
  }
  // Siblings share this: the target and the parameter and result types.
  std::string signature() const {
    if (property()) return target + " property";
    const std::optional<ph::Declaration> d = ph::ParseDeclaration(text());
    std::string s = target + " (";
    for (const ph::Param& p : d->params) s += std::string(p.byref ? "byref " : "") + ph::TypeName(p.type) + ",";
    return s + ") " + ph::TypeName(d->result) + d->resultName;
  }
};

// Members that do the same thing by design, so no argument can tell them apart.
const std::set<std::pair<std::string, std::string>> kSameByDesign = {
    {"FindRed", "FindMaxRed"}, {"FindGreen", "FindMaxGreen"}, {"FindBlue", "FindMaxBlue"},
    {"FindSum", "FindMaxSum"}, {"FindAll", "FindMaxAll"}};

// The lines `picturehost list` prints for the sections and rows.
std::vector<std::string> ExpectedList(const std::vector<Row>& rows) {
  std::vector<std::string> lines;
  std::string target;
  auto methods = [&] {
    for (const Row& row : rows) {
      if (row.target != target || row.property()) continue;
      lines.push_back((target == "global" ? "global " : "  method ") + row.text());
      if (row.setter()) lines.push_back("    setter " + row.text());
    }
  };
  std::istringstream in(kSections);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("  ", 0) == 0) {
      const size_t colon = line.find(": ");
      std::istringstream names(line.substr(colon + 2));
      for (std::string name; names >> name;) lines.push_back("  property " + name + " as " + line.substr(2, colon - 2));
      continue;
    }
    methods();
    target = line.substr(line.find(' ') + 1);
    if (line != "global") lines.push_back(line);
  }
  methods();
  return lines;
}

class Wiring : public HostTest {
 protected:
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
    Args a = row.args();
    if (row.target == "global") {
      std::string out = Print(host().CallGlobal(name, a), {});
      for (const ph::Value& v : a) out += Effect(v);
      return out;
    }
    const ph::Ref self = a.front().AsRef();
    const Args rest(a.begin() + 1, a.end());
    const bool extension = row.target == "Picture" || row.target == "graphics";
    const ph::Value result = extension        ? host().Call(self, name, rest)
                             : row.property() ? host().GetProperty(self, name)
                                              : host().CallMethod(self, name, rest);
    std::string out = Print(result, self);
    for (const ph::Value& v : rest) out += Effect(v);
    if (extension) return out;
    for (const ph::PropertyInfo& p : host().FindClass(row.target)->properties) {
      const ph::Value value = host().GetProperty(self, p.name);
      if (p.name == "DestinationPicture") out += " dest " + Print(value, {});
      if (row.target == "PictureMinMaxQVT") out += " " + Print(value, {});
    }
    return out;
  }
};

TEST_F(Wiring, ListedInOrderAndEachMemberGivesItsOwnAnswer) {
  const uint32_t A = 0x102030, B = 0x405060, C = 0x708090, D = 0xA0B0C0;
  ph::Ref quad = Picture(2, 2, {A, B, C, D});  // A B / C D
  const auto handle = static_cast<int32_t>(reinterpret_cast<uintptr_t>(quad.get()->pixmap));
  auto picture = [this](int32_t w, int32_t h, uint32_t colour) { return ph::Value(Flat(w, h, colour)); };
  auto block = [this](std::vector<uint8_t> bytes) { return ph::Value(host().NewMemoryBlock(bytes)); };
  auto instance = [this](const char* cls, std::vector<std::pair<const char*, ph::Value>> properties,
                         std::vector<std::pair<std::pair<const char*, Args>, ph::Value>> assigned = {}) {
    ph::Ref object = host().NewInstance(cls);
    for (auto& [name, value] : properties) host().SetProperty(object, name, value);
    for (auto& [call, value] : assigned) host().AssignMethod(object, call.first, call.second, value);
    return ph::Value(object);
  };
  const auto q = [&] { return Args{quad}; };
  const auto grey100 = [&](Args more) {
    more.insert(more.begin(), picture(1, 1, 0x646464));
    return more;
  };
  const auto rgb123 = [&](Args more) {
    more.insert(more.begin(), picture(1, 1, 0x010203));
    return more;
  };
  const auto masked = [&] {
    ph::Ref p = Flat(1, 1, 0);
    host().SetMask(p, Flat(1, 1, 0));
    return Args{p};
  };
  // A PPIC string of one pixel (1, 2, 3): header fields length 43, width 1,
  // height 1, 32, data offset 40, then zeros.
  const std::string ppic = std::string("PPIC\0\0\0\x2B\0\0\0\x01\0\0\0\x01\0\0\0\x20\0\0\0\x28", 24) + std::string(16, '\0') + "\x01\x02\x03";
  const std::string ppicHex = "505049430000002B00000001000000010000002000000028" + std::string(32, '0') + "010203";
  // Filters: one pixel (17, 34, 51), whose components are lookup-table nodes.
  const auto filter = [&](const char* cls, std::vector<std::pair<std::pair<const char*, Args>, ph::Value>> assigned,
                          std::vector<std::pair<const char*, ph::Value>> properties = {}) {
    properties.insert(properties.begin(), {"SourcePicture", picture(1, 1, 0x112233)});
    return Args{instance(cls, properties, assigned)};
  };
  const auto closing = [&](const char* cls) {
    return [&, cls] {
      return Args{instance(cls, {{"SourcePicture", picture(1, 1, 0)}, {"DestinationPicture", picture(1, 1, 0)}})};
    };
  };
  const auto convolution = [&] {
    // ValueCount 3, Hor = (0, 3, 0) and Ver = (0, 0.5, 0) on a flat (100, 40,
    // 20): red 300 clamps to 255, then 127.5 truncates to 127 (with the two
    // lists swapped it would be 150).
    return Args{instance("PictureConvolutionQVT", {{"SourcePicture", picture(3, 3, 0x642814)}},
                         {{{"Hor", {1}}, 3.0}, {{"Ver", {1}}, 0.5}})};
  };
  const auto matrix = [&] {
    // Cell (2, 2) = 3 and ScaleFactor 0.5 on a flat (100, 40, 20): the centre
    // becomes (150, 60, 30); the two-pixel frame stays black.
    return Args{instance("PictureMatrixQVT", {{"SourcePicture", picture(5, 5, 0x642814)}, {"ScaleFactor", 0.5}},
                         {{{"Matrix", {2, 2}}, 3}})};
  };
  const auto sepia = [&] {
    return filter("PictureSepiaQVT", {},
                  {{"FactorRed", 1.0}, {"FactorGreen", 0.5}, {"FactorBlue", 0.25}, {"SepiaRed", 10}, {"SepiaBlue", -10}});
  };
  std::array<ph::Value, 4> outputs;  // CountColorsQVT's byref variables
  const auto palette = [&] {
    return Args{instance("PaletteQVT", {}, {{{"Col", {0}}, ph::Color{0x123456}}, {{"Col", {1}}, ph::Color{0xABCDEF}}})};
  };
  const std::string copyChannel = "(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean";

  std::vector<Row> rows = {
      // L = (17 x 1024 + 34 x 512 + 51 x 256) / 1024 = 46, plus the tints 10, 0, -10.
      {"PictureSepiaQVT", "Close", closing("PictureSepiaQVT"), "nil dest nil"},
      {"PictureSepiaQVT", "Run as boolean", sepia, "true dest " + Pic(1, 1, {0x382E24})},
      {"PictureSepiaQVT", "property FactorRed", sepia, "1 dest nil"},
      {"PictureSepiaQVT", "property FactorGreen", sepia, "0.5 dest nil"},
      {"PictureSepiaQVT", "property FactorBlue", sepia, "0.25 dest nil"},
      {"PictureConvolutionQVT", "Close", closing("PictureConvolutionQVT"), "nil dest nil"},
      {"PictureConvolutionQVT", "Run(channels as integer) as boolean", [&] { return Args{convolution().front(), 1}; },
       "true dest " + OnePixel(3, 3, 4, 0x7F2814)},
      {"PictureConvolutionQVT", "Ver(index as integer) as double =", [&] { return Args{convolution().front(), 1}; },
       "0.5 dest nil"},
      {"PictureConvolutionQVT", "Hor(index as integer) as double =", [&] { return Args{convolution().front(), 1}; },
       "3 dest nil"},
      // Node (1, 2, 3) maps to (200, 100, 50).
      {"PictureLut3DQVT", "Close", closing("PictureLut3DQVT"), "nil dest nil"},
      {"PictureLut3DQVT", "Run as boolean",
       [&] { return filter("PictureLut3DQVT", {{{"Table", {1, 2, 3, 0}}, 200.0}, {{"Table", {1, 2, 3, 1}}, 100.0},
                                               {{"Table", {1, 2, 3, 2}}, 50.0}}); },
       "true dest " + Pic(1, 1, {0xC86432})},
      {"PictureLut3DQVT", "Table(r as integer, g as integer, b as integer, x as integer) as double =",
       [&] { return Args{filter("PictureLut3DQVT", {{{"Table", {1, 2, 3, 1}}, 100.0}}).front(), 1, 2, 3, 1}; },
       "100 dest nil"},
      {"PaletteQVT", "Col(i as integer) as color =", [&] { return Args{palette().front(), 1}; }, "ABCDEF"},
      {"PaletteQVT", "Mem as Memoryblock", palette, "mb1024:56341200EFCDAB000000000000000000"},
      {"PaletteQVT", "CountColors as integer", palette, "3"},
      {"PaletteQVT", "Close", palette, "nil"},
      {"PaletteQVT", "NewPicture(width as integer,height as integer) as picture",
       [&] { return Args{palette().front(), 3, 2}; }, "3x2 depth 8"},
      {"PictureMatrixQVT", "Close", closing("PictureMatrixQVT"), "nil dest nil"},
      {"PictureMatrixQVT", "Run as boolean", matrix, "true dest " + OnePixel(5, 5, 12, 0x963C1E)},
      {"PictureMatrixQVT", "RunRGB(red as boolean, green as boolean, blue as boolean) as boolean",
       [&] { return Args{matrix().front(), true, false, true}; }, "true dest " + OnePixel(5, 5, 12, 0x96001E)},
      {"PictureMatrixQVT", "Matrix(x as integer, y as integer) as integer =",
       [&] { return Args{instance("PictureMatrixQVT", {}, {{{"Matrix", {1, 2}}, 7}}), 1, 2}; }, "7 dest nil"},
      {"PictureMatrixQVT", "property ScaleFactor", matrix, "0.5 dest nil"},
      // Red and blue exchanged.
      {"PictureMatrix3DQVT", "Close", closing("PictureMatrix3DQVT"), "nil dest nil"},
      {"PictureMatrix3DQVT", "Run as boolean",
       [&] { return filter("PictureMatrix3DQVT", {{{"Matrix", {2, 0}}, 1.0}, {{"Matrix", {1, 1}}, 1.0}, {{"Matrix", {0, 2}}, 1.0}}); },
       "true dest " + Pic(1, 1, {0x332211})},
      {"PictureMatrix3DQVT", "Matrix(x as integer, y as integer) as double =",
       [&] { return Args{filter("PictureMatrix3DQVT", {{{"Matrix", {1, 2}}, 0.75}}).front(), 1, 2}; }, "0.75 dest nil"},
      {"graphics", "PaintDesktopQVT", [&] { return Args{host().GraphicsOf(quad)}; }, "nil"},

      // Scrolling never moves pixels here: horizontal reports true, vertical only for 0.
      {"Picture", "ScrollVerticalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean",
       [&] { return Args{quad, 1, true, false}; }, "false"},
      {"Picture", "ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean",
       [&] { return Args{quad, 1, true, false}; }, "true"},
      {"Picture", "ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as boolean",
       [&] { return Args{quad, 1, 0, true, false}; }, "true"},
      {"Picture", "HasMaskQVT as boolean", masked, "true"},
      // 100 + d; 100 x (255 - |d|) / 255 (+ d when d >= 0); (100 - 127) x (1 + d) + 127.
      {"Picture", "ChangeBrightnessAbsoluteQVT(r as double, g as double, b as double) as picture",
       [&] { return grey100({50.0, -50.0, 10.0}); }, Pic(1, 1, {0x96326E})},
      {"Picture", "ChangeBrightnessLinearQVT(r as double, g as double, b as double) as picture",
       [&] { return grey100({50.0, -50.0, 10.0}); }, Pic(1, 1, {0x82506A})},
      {"Picture", "ChangeBrightnessAbsoluteQVT(x as double) as picture", [&] { return grey100({50.0}); }, Pic(1, 1, {0x969696})},
      {"Picture", "ChangeBrightnessLinearQVT(x as double) as picture", [&] { return grey100({50.0}); }, Pic(1, 1, {0x828282})},
      {"Picture", "ChangeCustomQVT(a as double, b as double) as picture", [&] { return grey100({0.5, 7.0}); },
       Pic(1, 1, {0x393939})},
      {"Picture", "ChangeContrastQVT(x as double) as picture", [&] { return grey100({0.5}); }, Pic(1, 1, {0x565656})},
      {"Picture", "ChangeContrastQVT(xr as double, xg as double, xb as double) as picture",
       [&] { return grey100({0.5, -0.5, 0.0}); }, Pic(1, 1, {0x567164})},
      {"Picture", "PaletteQVT as PaletteQVT =", q, "nil"},
      {"Picture", "DataTypeQVT as integer", q, "6"},
      {"Picture", "DataHandleQVT as integer", q, std::to_string(handle)},
      {"Picture", "MakeHBITMAPQVT as integer", q, "0"},
      {"Picture", "InvertQVT(left as integer,top as integer,width as integer,height as integer) as picture",
       [&] { return Args{quad, 1, 0, 1, 2}; }, Pic(2, 2, {0, ~B & 0xFFFFFF, 0, ~D & 0xFFFFFF})},
      {"Picture", "Rotate90QVT as picture", q, Pic(2, 2, {B, D, A, C})},
      {"Picture", "Rotate180QVT as picture", q, Pic(2, 2, {D, C, B, A})},
      {"Picture", "Rotate270QVT as picture", q, Pic(2, 2, {C, A, D, B})},
      {"Picture", "RotateQVT(angle as double,background as color) as picture",
       [&] { return Args{quad, 180.0, ph::Color{0xFFFFFF}}; }, Pic(2, 2, {D, C, B, A})},
      {"Picture", "VMirrorQVT as picture", q, Pic(2, 2, {C, D, A, B})},
      {"Picture", "HMirrorQVT as picture", q, Pic(2, 2, {B, A, D, C})},
      {"Picture", "CloneQVT as picture", q, Pic(2, 2, {A, B, C, D})},
      {"Picture", "BitmapQVT as picture", q, "self " + Pic(2, 2, {A, B, C, D})},
      {"Picture", "ScaleQVT(width as integer, height as integer, AntiAlias as boolean) as picture",
       [&] { return Args{quad, 1, 1, false}; }, Pic(1, 1, {0x586878})},
      {"Picture", "EmbeddedMaskQVT(swap as boolean) as picture =", [&] { return Args{quad, false}; },
       Pic(2, 2, {0xFFFFFF, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF})},
      {"Picture", "PicHandleQVT as picture", q, "nil"},
      // Luminance levels (0.177 R + 0.813 G + 0.01 B) 29 (A) to 173 (D): lo = 28,
      // hi = 172, each channel s to trunc((s - 28) x 255 / 144).
      {"Picture", "AutoLevelQVT as picture", q, Pic(2, 2, {0x000723, 0x3F5C78, 0x94B1CD, 0xE9FFFF})},
      {"Picture", "PicHandleDataQVT as string", q, "nil"},
      {"Picture", "CountColorQVT(col as color) as integer", [&] { return Args{quad, ph::Color{B}}; }, "1"},
      // Histograms of red, blue, green (in that order): one pixel at 1, 3, 2.
      {"Picture",
       "CountColorsQVT(byref red as memoryblock, byref blue as memoryblock, byref green as memoryblock, byref count as integer)",
       [&] {
         outputs = {ph::Value(ph::Ref()), ph::Value(ph::Ref()), ph::Value(ph::Ref()), ph::Value(0)};
         return rgb123({ph::Value::ByRef(&outputs[0]), ph::Value::ByRef(&outputs[1]), ph::Value::ByRef(&outputs[2]),
                        ph::Value::ByRef(&outputs[3])});
       },
       "nil mb1024:00000000010000000000000000000000 mb1024:00000000000000000000000001000000 "
       "mb1024:00000000000000000100000000000000 1"},
      {"Picture", "TransformColorsQVT(red as memoryblock, blue as memoryblock, green as memoryblock) as picture",
       [&] {
         return rgb123({block(std::vector<uint8_t>(256, 0x11)), block(std::vector<uint8_t>(256, 0x33)),
                        block(std::vector<uint8_t>(256, 0x22))});
       },
       Pic(1, 1, {0x112233}) + " mb256:11111111111111111111111111111111 mb256:33333333333333333333333333333333 "
                               "mb256:22222222222222222222222222222222"},
      {"Picture", "CopyRGBtoMemoryblockQVT(destination as memoryblock, offset as integer) as boolean",
       [&] { return rgb123({block(std::vector<uint8_t>(8)), 1}); }, "true mb8:0001020300000000"},
      {"Picture",
       "CopyARGBtoMemoryblockQVT(destination as memoryblock, offset as integer, LittleEndian as boolean, AlphaValue as integer) as boolean",
       [&] { return rgb123({block(std::vector<uint8_t>(8)), 0, true, 0x7F}); }, "true mb8:0302017F00000000"},
      {"Picture", "CopyRtoMemoryblockQVT" + copyChannel, [&] { return rgb123({block(std::vector<uint8_t>(8)), 1, 2}); },
       "true mb8:0001000000000000"},
      {"Picture", "CopyGtoMemoryblockQVT" + copyChannel, [&] { return rgb123({block(std::vector<uint8_t>(8)), 1, 2}); },
       "true mb8:0002000000000000"},
      {"Picture", "CopyBtoMemoryblockQVT" + copyChannel, [&] { return rgb123({block(std::vector<uint8_t>(8)), 1, 2}); },
       "true mb8:0003000000000000"},

      {"global", "MemoryblockRGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer) as picture",
       [&] { return Args{block({1, 2, 3, 4, 5, 6, 7}), 1, 2, 1}; }, Pic(2, 1, {0x020304, 0x050607}) + " mb7:01020304050607"},
      {"global",
       "MemoryblockARGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, LittleEndian as boolean) as picture",
       [&] { return Args{block({1, 2, 3, 4, 5, 6, 7, 8}), 0, 2, 1, false}; },
       Pic(2, 1, {0x020304, 0x060708}) + " mb8:0102030405060708"},
      {"global",
       "MemoryblockGrayToPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, PixelByteSize as integer) as picture",
       [&] { return Args{block({1, 2, 3, 4, 5, 6, 7, 8}), 0, 2, 1, 3}; },
       Pic(2, 1, {0x010101, 0x040404}) + " mb8:0102030405060708"},
      {"global", "BuildPictureWithPicHandleDataQVT(data as string) as picture", [&] { return Args{host().NewString(ppic)}; }, "nil"},
      {"global", "BuildPictureWithGWorldHandleQVT(handle as integer, ByPassOwernerShip as boolean) as picture",
       [] { return Args{1, true}; }, "nil"},
      {"global", "NewGrayPaletteQVT as PaletteQVT", [] { return Args{}; }, "256 010101"},
      {"global", "NewWebPaletteQVT as PaletteQVT", [] { return Args{}; }, "216 FFFFCC"},
      {"global", "NewRedPaletteQVT as PaletteQVT", [] { return Args{}; }, "256 010000"},
      {"global", "NewGreenPaletteQVT as PaletteQVT", [] { return Args{}; }, "256 000100"},
      {"global", "NewBluePaletteQVT as PaletteQVT", [] { return Args{}; }, "256 000001"},
      {"global", "NewSystemPaletteQVT as PaletteQVT", [] { return Args{}; }, "nil"},
      {"global", "NewWindowsPaletteQVT as PaletteQVT", [] { return Args{}; }, "256 808080"},
      {"global", "NewPalmPaletteQVT as PaletteQVT", [] { return Args{}; }, "230 FFCCFF"},
      {"global", "NewPaletteQVT(count as integer) as PaletteQVT", [] { return Args{3}; }, "1 000000"},
      {"global", "BinaryStringtoPictureQVT(data as String) as Picture", [&] { return Args{host().NewString(ppic)}; },
       Pic(1, 1, {0x010203})},
      {"global", "PicturetoBinaryStringQVT(p as picture) as string", [&] { return Args{picture(1, 1, 0x010203)}; },
       "str:" + ppicHex},
      // (16, 32, 48), (64, 80, 96) and (112, 128, 144): red of the first,
      // green of the third, blue of the second; or the mask weight 128 mixing
      // (s x 127 + d x 128) / 255.
      {"global", "CombinePicturesQVT(red as picture, blue as picture, green as picture) as picture",
       [&] { return Args{picture(1, 1, A), picture(1, 1, B), picture(1, 1, C)}; }, Pic(1, 1, {0x108060})},
      {"global", "BlendPicturesQVT(source as picture, sourcepercent as double, dest as picture, destpercent as double) as picture",
       [&] { return Args{picture(1, 1, A), 0.5, picture(1, 1, B), 0.25}; }, Pic(1, 1, {0x182430})},
      {"global", "BlendPicturesWithMaskQVT(source as picture, dest as picture, mask as picture) as picture",
       [&] { return Args{picture(1, 1, A), picture(1, 1, B), picture(1, 1, C)}; }, Pic(1, 1, {0x283848})},
      {"global", "TintPictureQVT(source as picture, GreyBase as color, SepiaBase as color) as picture",
       [&] { return Args{picture(1, 1, A), ph::Color{0xFF0000}, ph::Color{0xFF8000}}; }, Pic(1, 1, {0x100800})},
  };
  // The finder on (10, 200, 30) (50, 20, 90), as (X Y value) triples of the
  // maximum and the minimum of red, green, blue and the sum: each method
  // writes its own, the others stay 0.
  const char* const quantities[] = {"All", "Red", "Green", "Blue", "Sum"};
  const std::string maxima[] = {"1 0 50", "0 0 200", "1 0 90", "0 0 240"}, minima[] = {"0 0 10", "1 0 20", "0 0 30", "1 0 160"};
  const auto finder = [&] { return Args{instance("PictureMinMaxQVT", {}), ph::Value(Picture(2, 1, {0x0AC81E, 0x32145A}))}; };
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
  rows.push_back({"PictureMinMaxQVT", "Close", [&] { return Args{instance("PictureMinMaxQVT", {})}; }, found(-1, false)});

  // The list, the first difference named.
  const Outcome run = Picturehost({"list"});
  EXPECT_EQ(run.status, 0) << run.err;
  std::vector<std::string> lines;
  std::istringstream out(run.out);
  for (std::string line; std::getline(out, line);) lines.push_back(line);
  const std::vector<std::string> expected = ExpectedList(rows);
  lines.resize(std::max(lines.size(), expected.size()), "(no line)");
  for (size_t i = 0; i < lines.size(); ++i) {
    ASSERT_EQ(lines[i], i < expected.size() ? expected[i] : "(no line)") << "line " << i + 1;
  }

  std::map<std::string, std::vector<const Row*>> families;
  for (const Row& row : rows) families[row.signature()].push_back(&row);
  for (const Row& row : rows) {
    EXPECT_EQ(Call(row, row.name()), row.expected) << row.target << " " << row.declaration;
    for (const Row* sibling : families[row.signature()]) {
      if (sibling == &row || kSameByDesign.count({row.name(), sibling->name()}) ||
          kSameByDesign.count({sibling->name(), row.name()}))
        continue;
      EXPECT_NE(Call(row, sibling->name()), row.expected)
          << row.target << " " << row.declaration << ": its arguments give the same answer as " << sibling->name();
    }
  }
}

}  // namespace
