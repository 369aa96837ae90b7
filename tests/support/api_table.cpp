#include "tests/support/api_table.h"

#include <limits>

namespace api {

namespace {

constexpr int32_t kMax = std::numeric_limits<int32_t>::max(), kMin = std::numeric_limits<int32_t>::min();
constexpr double kInf = std::numeric_limits<double>::infinity();

}  // namespace

const std::vector<int32_t> kIntegers = {0, 1, -1, 2, 3, 17, 18, 19, 20, 21, 255, 256, 257, 32767, 32768, 65536,
                                        0x40000000, kMax - 1, kMax, kMin, kMin + 1, static_cast<int32_t>(0xAAAAAAAAu)};
const std::vector<double> kDoubles = {0.0, -0.0, 1.0, -1.0, 0.5, 90.0, 255.0, 256.0, -255.0, 360.0, 2147483648.0,
                                      1e300, -1e300, 4.9e-324, kInf, -kInf, std::numeric_limits<double>::quiet_NaN()};
const std::vector<uint32_t> kColors = {0x000000, 0xFFFFFF, 0x808080, 0xFF000000, 0xFFFFFFFF, 0x80808080, 0xFFFFFE};
const std::vector<PictureKind> kPictures = {{1, 1, false, false}, {1, 7, false, false},  {7, 1, false, false},
                                            {3, 5, false, false}, {5, 3, true, false},   {6, 4, false, true},
                                            {64, 48, true, false}, {64, 48, false, true}, {64, 48, false, false}};
const std::vector<int32_t> kBlockSizes = {0, 1, 255, 256, 1024, 3 * 64 * 48, 4 * 64 * 48 + 16};

ph::Ref MakePicture(ph::Host& host, const PictureKind& kind, const std::vector<uint32_t>& pixels) {
  ph::Ref p = kind.foreign ? host.NewForeignPicture(kind.width, kind.height, pixels)
                           : host.NewPicture(kind.width, kind.height, pixels);
  if (kind.masked) host.SetMask(p, host.NewPicture(kind.width, kind.height, std::vector<uint32_t>(pixels.size(), 0x808080)));
  return p;
}

std::string PpicString(int32_t w, int32_t h, int32_t lengthDelta, uint32_t widthField) {
  std::string s = "PPIC" + std::string(36 + 3 * static_cast<size_t>(w) * h, '\x5A');
  const uint32_t length = static_cast<uint32_t>(s.size() + lengthDelta), height = static_cast<uint32_t>(h);
  // Length, width, height, format 32, data offset 40, then 16 reserved zero bytes.
  for (auto [at, v] : {std::pair<size_t, uint32_t>{4, length}, {8, widthField}, {12, height}, {16, 32}, {20, 40}, {24, 0},
                       {28, 0}, {32, 0}, {36, 0}})
    for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
  return s;
}

const std::vector<Text> kStrings = {
    {"", "empty string"}, {"PPIC", "PPIC alone"}, {PpicString(0, 0, 0, 0), "PPIC 0x0"},
    {PpicString(3, 2, 1, 3), "PPIC with a wrong length"}, {PpicString(3, 2, 0, 0x7FFFFFFF), "PPIC claiming 2^31-1 columns"},
    {PpicString(3, 2, 0, 0x80000000u), "PPIC with a negative width"}, {PpicString(3, 2, 0, 3), "PPIC 3x2"}};

ph::Value Member::Call(ph::Host& host, const ph::Ref& receiver, std::vector<ph::Value>& args, ph::Value assigned) const {
  std::vector<ph::Value> passed = args;
  for (size_t i = 0; i < params.size(); ++i)
    if (params[i].byref) passed[i] = ph::Value::ByRef(&args[i]);
  switch (kind) {
    case kExtension: return host.Call(receiver, name, std::move(passed));
    case kGlobal: return host.CallGlobal(name, std::move(passed));
    case kMethod: return host.CallMethod(receiver, name, std::move(passed));
    case kGet: return host.GetProperty(receiver, name);
    case kExtensionSetter: host.Assign(receiver, name, std::move(passed), std::move(assigned)); break;
    case kMethodSetter: host.AssignMethod(receiver, name, std::move(passed), std::move(assigned)); break;
    case kSet: host.SetProperty(receiver, name, std::move(assigned)); break;
  }
  return {};
}

const std::vector<Member>& Members(ph::Host& host) {
  static const std::vector<Member> members = [&] {
    std::vector<Member> l;
    for (const ph::ClassInfo& c : host.Classes()) {
      for (const ph::MethodInfo& m : c.methods) {
        const ph::Declaration& d = m.declaration;
        for (bool setter : {false, true})
          if (!setter || m.setter)
            l.push_back({c.extension ? (setter ? Member::kExtensionSetter : Member::kExtension)
                                     : (setter ? Member::kMethodSetter : Member::kMethod),
                         &c, d.name, c.name + "." + d.name + (setter ? " setter" : ""), d.params, d.result, d.resultName});
      }
      for (const ph::PropertyInfo& p : c.properties)
        for (Member::Kind kind : {Member::kGet, Member::kSet})
          l.push_back({kind, &c, p.name, c.name + "." + p.name + (kind == Member::kGet ? " getter" : " setter"), {},
                       ph::TypeFromName(p.type), p.type});
    }
    for (const ph::MethodInfo& m : host.GlobalMethods()) {
      const ph::Declaration& d = m.declaration;
      l.push_back({Member::kGlobal, nullptr, d.name, d.name, d.params, d.result, d.resultName});
    }
    return l;
  }();
  return members;
}

}  // namespace api
