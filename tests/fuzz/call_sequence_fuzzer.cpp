// Sequences of calls of the registered API (tests/support/api_table.h):
// extension methods of Picture and graphics (and their setters), global
// methods, class methods (and their setters), and class properties, read and
// written.
//
// The input is a sequence of steps. A step either adds an object to a pool
// (a picture of the table's kinds or of any small size, a memory block of the
// table's sizes or any, a string of the table or a PPIC string or raw bytes,
// a class instance, a graphics), sets a mask or drops an object, or calls one
// member with a receiver and arguments from the pool and from the table's
// adversarial values (or, now and then, raw input bytes). Results join the
// pool.
//
// No call may change the pictures it is given (nothing works in place on
// this platform). After every call the host's accounting must be clean: no
// problem recorded, and every live object referenced exactly as often as
// something holds it (the pool, a picture property of an instance, a
// picture's mask, a graphics' picture). At the end of the input, with the
// pool emptied, nothing made during the input may still be referenced.
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "host/host_state.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/support/api_table.h"

namespace {

using ph::Type;
using Member = api::Member;

constexpr size_t kPoolLimit = 40;
constexpr int kMaxSteps = 64;

bool NameIs(const std::string& name, const char* what) { return strcasecmp(name.c_str(), what) == 0; }

// The objects the program holds. `keep` holds what must outlive one: a
// palette's "Mem" block is a view into the palette and is only valid while
// the palette lives, so the pool keeps the palette as long as the block.
struct Pool {
  struct Item {
    ph::Ref ref, keep;
  };
  std::vector<Item> items;

  ~Pool() {
    while (!items.empty()) items.pop_back();
  }
  void Add(ph::Ref ref, ph::Ref keep = {}) {
    if (!ref) return;
    if (items.size() >= kPoolLimit) items.erase(items.begin());
    items.push_back({std::move(ref), std::move(keep)});
  }
  // An object of the kind (and class) from the pool, or now and then nil.
  ph::Ref Pick(fuzz::Input& in, ph::ObjectKind kind, const std::string& className = {}) {
    std::vector<size_t> fits;
    for (size_t i = 0; i < items.size(); ++i) {
      const ph::Object* o = items[i].ref.get();
      if (o->kind == kind && (kind != ph::ObjectKind::Instance || NameIs(o->cls->name, className.c_str()))) fits.push_back(i);
    }
    const uint8_t choice = in.Byte();
    if (fits.empty() || choice % 8 == 7) return {};
    return items[fits[choice % fits.size()]].ref;
  }
};

// Every live object must be referenced exactly as often as it is held: by the
// pool, by a Picture property of an instance (standard accessors keep one
// reference), as a picture's mask or as a graphics' picture.
void Audit(ph::Host& host, const Pool& pool, const std::string& after) {
  fuzz::ExpectNoProblems(after);
  std::map<const ph::Object*, int32_t> holders;
  for (const Pool::Item& item : pool.items) {
    ++holders[item.ref.get()];
    if (item.keep) ++holders[item.keep.get()];
  }
  ph::Host::State& s = host.state();
  for (const auto& [id, object] : s.objects) {
    const ph::Object* o = object.get();
    if (o->dead) continue;
    if (o->mask) ++holders[o->mask];
    if (o->target) ++holders[o->target];
    if (o->kind != ph::ObjectKind::Instance) continue;
    for (const ph::PropertyInfo& p : o->cls->properties) {
      if (p.getter || ph::TypeFromName(p.type) != Type::Picture) continue;
      void* handle;
      std::memcpy(&handle, o->memory + o->cls->dataOffset + p.offset, sizeof handle);
      if (!handle) continue;
      auto it = s.byHandle.find(handle);
      if (it == s.byHandle.end()) fuzz::Fail("after " + after + ": " + o->Describe() + " holds an unknown picture");
      ++holders[it->second];
    }
  }
  for (const auto& [id, object] : s.objects) {
    const ph::Object* o = object.get();
    const int32_t held = holders.count(o) ? holders[o] : 0;
    if (o->dead && held) fuzz::Fail("after " + after + ": " + o->Describe() + " was released while still held");
    if (!o->dead && o->references != held)
      fuzz::Fail("after " + after + ": " + o->Describe() + " has " + std::to_string(o->references) +
                 " reference(s) but is held " + std::to_string(held) + " time(s)");
  }
}

// --- Making objects and values ---------------------------------------------------------

std::vector<uint32_t> PixelsFrom(fuzz::Input& in, int32_t w, int32_t h) {
  if (in.Bool()) return ph::SamplePixels(w, h);
  return fuzz::Pixels(in.Take(in.Byte() % 64), static_cast<size_t>(w) * h);
}

// A picture of one of the table's kinds, or of any size up to 100 x 100.
ph::Ref MakePicture(ph::Host& host, fuzz::Input& in, bool foreign) {
  api::PictureKind kind{0, 0, foreign, false};
  if (in.Bool()) kind = in.Pick(api::kPictures);
  else kind.width = 1 + in.Byte() % 100, kind.height = 1 + in.Byte() % 100;
  return api::MakePicture(host, kind, PixelsFrom(in, kind.width, kind.height));
}

ph::Ref MakeBlock(ph::Host& host, fuzz::Input& in) {
  const int32_t size = in.Bool() ? in.Pick(api::kBlockSizes) : static_cast<int32_t>(in.U16() % 20000);
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  fuzz::FillFrom(in.Take(in.Byte() % 32), bytes.data(), bytes.size());
  return host.NewMemoryBlock(bytes);
}

// One of the table's strings, a well-formed PPIC string of a small picture
// whose pixels come from the input, or raw bytes.
ph::Ref MakeString(ph::Host& host, fuzz::Input& in) {
  const uint8_t how = in.Byte() % 3;
  if (how == 0) return host.NewString(in.Pick(api::kStrings).bytes);
  if (how == 1) {
    const int32_t w = in.Byte() % 9, h = in.Byte() % 9;
    std::string s = api::PpicString(w, h, 0, static_cast<uint32_t>(w));
    fuzz::FillFrom(in.Take(in.Byte() % 16), reinterpret_cast<uint8_t*>(s.data()) + 40, s.size() - 40);
    return host.NewString(s);
  }
  const auto bytes = in.Take(in.Byte());
  return host.NewString(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

// A value of the type: numbers from the table, small ones or raw bytes;
// objects from the pool.
ph::Value ValueOf(Type type, const std::string& typeName, fuzz::Input& in, Pool& pool) {
  const uint8_t how = type == Type::Integer || type == Type::Double || type == Type::Color ? in.Byte() % 4 : 0;
  switch (type) {
    case Type::None: return {};
    case Type::Boolean: return in.Bool();
    case Type::Integer: return how < 2 ? in.Pick(api::kIntegers) : how == 2 ? int32_t{static_cast<int8_t>(in.Byte())} : in.I32();
    case Type::Double: return how < 2 ? in.Pick(api::kDoubles) : how == 2 ? static_cast<int8_t>(in.Byte()) / 4.0 : in.Double();
    case Type::Color: return ph::Color{how < 2 ? in.Pick(api::kColors) : in.U32()};
    case Type::Picture: return pool.Pick(in, ph::ObjectKind::Picture);
    case Type::MemoryBlock: return pool.Pick(in, ph::ObjectKind::MemoryBlock);
    case Type::String: return pool.Pick(in, ph::ObjectKind::String);
    case Type::Graphics: return pool.Pick(in, ph::ObjectKind::Graphics);
    default: return pool.Pick(in, ph::ObjectKind::Instance, typeName);
  }
}

// Keeps one input from asking for gigabytes: a width and height pair whose
// picture the plug-in would accept (at most 32767 a side and 2^31 bytes of
// writer) but which exceeds 2^18 pixels is folded into a small size. Pairs
// beyond what the plug-in accepts stay as they are: refusing them is its job.
// The corpus input crash-target-size-overflow asks for pairs on both sides.
void CapSizes(const Member& m, std::vector<ph::Value>& args) {
  int wi = -1, hi = -1;
  for (size_t i = 0; i < m.params.size(); ++i) {
    if (m.params[i].type != Type::Integer || m.params[i].byref) continue;
    if (NameIs(m.params[i].name, "width")) wi = static_cast<int>(i);
    if (NameIs(m.params[i].name, "height")) hi = static_cast<int>(i);
  }
  if (wi < 0 || hi < 0) return;
  const int64_t w = args[wi].AsInt(), h = args[hi].AsInt();
  if (w < 1 || h < 1 || w > 32767 || h > 32767 || w * h <= (1 << 18) || (h + 1) * w > INT32_MAX / 4) return;
  args[wi] = static_cast<int32_t>(1 + w % 512);
  args[hi] = static_cast<int32_t>(1 + h % 512);
}

// Results (and byref outputs) that are objects join the pool; a class
// method's memory block (the palette's "Mem") keeps its receiver alive.
void Keep(Pool& pool, const ph::Value& v, const ph::Ref& receiver, const Member& m) {
  if (v.IsNil() || !std::holds_alternative<ph::Ref>(v.storage())) return;
  const bool view = m.kind == Member::kMethod && v.AsRef().get()->kind == ph::ObjectKind::MemoryBlock;
  pool.Add(v.AsRef(), view ? receiver : ph::Ref());
}

// Picture methods get a picture or nil, graphics methods a graphics (of a
// picture of the pool or a new one), class members an instance of their class.
ph::Ref Receiver(ph::Host& host, fuzz::Input& in, Pool& pool, const Member& m) {
  if (!m.cls) return {};
  if (NameIs(m.cls->name, "Picture")) return pool.Pick(in, ph::ObjectKind::Picture);
  const bool graphics = NameIs(m.cls->name, "graphics");
  ph::Ref r = graphics ? pool.Pick(in, ph::ObjectKind::Graphics) : pool.Pick(in, ph::ObjectKind::Instance, m.cls->name);
  if (r) return r;
  if (graphics) {
    ph::Ref picture = pool.Pick(in, ph::ObjectKind::Picture);
    r = host.GraphicsOf(picture ? picture : host.NewPicture(2, 2, std::vector<uint32_t>(4, 0x123456)));
  } else {
    r = host.NewInstance(m.cls->name);
  }
  pool.Add(r);
  return r;
}

void CallOne(ph::Host& host, fuzz::Input& in, Pool& pool, const Member& m) {
  const ph::Ref receiver = Receiver(host, in, pool, m);
  std::vector<ph::Value> args;
  for (const ph::Param& p : m.params) args.push_back(ValueOf(p.type, p.typeName, in, pool));
  CapSizes(m, args);
  const bool setter = m.kind == Member::kExtensionSetter || m.kind == Member::kMethodSetter || m.kind == Member::kSet;
  const ph::Value assigned = setter ? ValueOf(m.type, m.typeName, in, pool) : ph::Value();
  // Nothing changes the pictures it is given on this platform (in-place
  // access does not exist): small ones are compared before and after.
  std::vector<std::pair<ph::Ref, std::vector<uint32_t>>> given;
  std::vector<ph::Value> seen = args;
  seen.push_back(receiver);
  for (const ph::Value& v : seen) {
    if (!std::holds_alternative<ph::Ref>(v.storage())) continue;
    const ph::Ref& r = v.AsRef();
    if (r && r.get()->kind == ph::ObjectKind::Picture && host.Width(r) * host.Height(r) <= 4096) given.emplace_back(r, host.Pixels(r));
  }
  seen.clear();
  Keep(pool, m.Call(host, receiver, args, assigned), receiver, m);
  for (size_t i = 0; i < m.params.size(); ++i)
    if (m.params[i].byref) Keep(pool, args[i], receiver, m);
  for (const auto& [picture, pixels] : given)
    if (host.Pixels(picture) != pixels) fuzz::Fail(m.label + " changed a picture it was given");
}

// Steps 0 to 15 make or drop objects; the others call a registered member,
// chosen by the next two bytes (little-endian) modulo the number of members,
// with as many bytes for its arguments as the byte after them says, modulo 64.
void Step(ph::Host& host, fuzz::Input& in, Pool& pool) {
  static const std::vector<std::string> classes = [&] {
    std::vector<std::string> l;
    for (const ph::ClassInfo& c : host.Classes())
      if (!c.extension) l.push_back(c.name);
    return l;
  }();
  const uint8_t op = in.Byte();
  std::string label = op == 4 ? "setting a mask" : op == 10 ? "taking a graphics" : op == 11 || op == 12 ? "dropping an object" : "making an object";
  try {
    if (op <= 3) pool.Add(MakePicture(host, in, op == 3));
    if (op == 5 || op == 6) pool.Add(MakeBlock(host, in));
    if (op == 7) pool.Add(MakeString(host, in));
    if (op == 8 || op == 9) pool.Add(host.NewInstance(classes[in.Below(classes.size())]));
    if (op == 4 || op == 10) {
      ph::Ref picture = pool.Pick(in, ph::ObjectKind::Picture);
      const int32_t w = picture ? host.Width(picture) : 0, h = picture ? host.Height(picture) : 0;
      if (picture && op == 4) host.SetMask(picture, host.NewPicture(w, h, PixelsFrom(in, w, h)));
      if (picture && op == 10) pool.Add(host.GraphicsOf(picture));
    }
    if ((op == 11 || op == 12) && !pool.items.empty())
      pool.items.erase(pool.items.begin() + static_cast<ptrdiff_t>(in.Below(pool.items.size())));
    if (op > 15) {
      const Member& m = api::Members(host)[in.U16() % api::Members(host).size()];
      label = m.label;
      // The call reads its receiver and arguments from bytes of its own, so
      // that what it reads does not shift the steps after it.
      // At most 63: a length mutated upwards must not swallow the steps after.
      const auto bytes = in.Take(in.Byte() % 64);
      fuzz::Input args(bytes.data(), bytes.size());
      CallOne(host, args, pool, m);
    }
  } catch (const ph::HostError& e) {
    // The target only makes calls the host accepts; anything else is a fault
    // of the target itself and must not pass unnoticed.
    fuzz::Fail(label + ": the host refused the call: " + e.what());
  }
  Audit(host, pool, label);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ph::Host& host = fuzz::TheHost();
  fuzz::Input in(data, size);
  const uint64_t mark = host.Mark();
  {
    Pool pool;
    for (int step = 0; step < kMaxSteps && !in.empty(); ++step) Step(host, in, pool);
  }
  fuzz::ExpectClean(mark, "the end of the input");
  return 0;
}
