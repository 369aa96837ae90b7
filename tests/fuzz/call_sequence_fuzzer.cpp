// Sequences of calls of everything the plug-in registered: extension methods
// of Picture and graphics (and their setters), global methods, class methods
// (and their setters), and class properties, read and written. The list is
// taken from the host's registrations, so it follows the inventory.
//
// The input is a sequence of steps. A step either adds an object to a pool
// (pictures of odd sizes, foreign pictures, pictures with masks, memory blocks
// short and long, strings, class instances, graphics) or drops one, or calls
// one registered member with a receiver and arguments from the pool and from
// tables of adversarial values (nil, 0, negative and near-2^31 integers, NaN,
// infinities and huge doubles, colours with the top byte set). Results join
// the pool.
//
// No call may change the pictures it is given (nothing works in place on
// this platform). After every call the host's accounting must be clean: no
// problem recorded, and every live object referenced exactly as often as
// something holds it (the pool, a picture property of an instance, a
// picture's mask, a graphics' picture). At the end of the input, with the pool emptied, nothing made
// during the input may still be referenced.
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/host_state.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

using ph::Type;

// --- What can be called ---------------------------------------------------------

struct Callable {
  enum Kind { kExtension, kExtensionSetter, kGlobal, kMethod, kMethodSetter, kGet, kSet } kind;
  const ph::ClassInfo* cls = nullptr;
  const ph::MethodInfo* method = nullptr;
  const ph::PropertyInfo* property = nullptr;
  std::string label;
};

std::vector<Callable>& Callables() {
  static std::vector<Callable> list = [] {
    std::vector<Callable> l;
    ph::Host& host = fuzz::TheHost();
    for (const ph::ClassInfo& c : host.Classes()) {
      for (const ph::MethodInfo& m : c.methods) {
        const std::string label = c.name + "." + m.declaration.name;
        const auto call = c.extension ? Callable::kExtension : Callable::kMethod;
        const auto set = c.extension ? Callable::kExtensionSetter : Callable::kMethodSetter;
        l.push_back({call, &c, &m, nullptr, label});
        if (m.setter) l.push_back({set, &c, &m, nullptr, label + " setter"});
      }
      for (const ph::PropertyInfo& p : c.properties) {
        l.push_back({Callable::kGet, &c, nullptr, &p, c.name + "." + p.name + " getter"});
        l.push_back({Callable::kSet, &c, nullptr, &p, c.name + "." + p.name + " setter"});
      }
    }
    for (const ph::MethodInfo& m : host.GlobalMethods()) {
      l.push_back({Callable::kGlobal, nullptr, &m, nullptr, m.declaration.name});
    }
    return l;
  }();
  return list;
}

std::vector<const ph::ClassInfo*>& Classes() {
  static std::vector<const ph::ClassInfo*> list = [] {
    std::vector<const ph::ClassInfo*> l;
    for (const ph::ClassInfo& c : fuzz::TheHost().Classes()) {
      if (!c.extension) l.push_back(&c);
    }
    return l;
  }();
  return list;
}

// --- The pool of objects ------------------------------------------------------------

// One object the program holds. `keep` holds what must outlive it: a palette's
// "Mem" block is a view into the palette and is only valid while the palette
// lives, so the pool keeps the palette as long as the block.
struct Item {
  ph::Ref ref;
  ph::Ref keep;
};

constexpr size_t kPoolLimit = 40;
constexpr int kMaxSteps = 64;

class Pool {
 public:
  Pool() = default;
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  ~Pool() { Clear(); }

  void Add(ph::Ref ref, ph::Ref keep = {}) {
    if (!ref) return;
    if (items_.size() >= kPoolLimit) items_.erase(items_.begin());
    items_.push_back({std::move(ref), std::move(keep)});
  }

  // An object of the kind (and class) from the pool, or nil.
  ph::Ref Pick(fuzz::Input& in, ph::ObjectKind kind, const std::string& className = {}) {
    std::vector<size_t> fits;
    for (size_t i = 0; i < items_.size(); ++i) {
      const ph::Object* o = items_[i].ref.get();
      if (o->kind != kind) continue;
      if (kind == ph::ObjectKind::Instance && strcasecmp(o->cls->name.c_str(), className.c_str()) != 0) continue;
      fits.push_back(i);
    }
    const uint8_t choice = in.Byte();
    if (fits.empty() || choice % 8 == 7) return {};  // nil now and then
    return items_[fits[choice % fits.size()]].ref;
  }

  void Drop(fuzz::Input& in) {
    if (items_.empty()) return;
    items_.erase(items_.begin() + static_cast<ptrdiff_t>(in.Below(items_.size())));
  }

  void Clear() {
    while (!items_.empty()) items_.pop_back();
  }

  // How often the pool holds each object.
  void CountHolders(std::map<const ph::Object*, int32_t>& holders) const {
    for (const Item& item : items_) {
      ++holders[item.ref.get()];
      if (item.keep) ++holders[item.keep.get()];
    }
  }

 private:
  std::vector<Item> items_;
};

// --- Accounting after every call ---------------------------------------------------

// Every live object must be referenced exactly as often as it is held: by the
// pool, by a Picture property of an instance (standard accessors keep one
// reference), as a picture's mask or as a graphics' picture.
void Audit(ph::Host& host, const Pool& pool, const std::string& after) {
  fuzz::ExpectNoProblems(after);
  std::map<const ph::Object*, int32_t> holders;
  pool.CountHolders(holders);
  ph::Host::State& s = host.state();
  for (const auto& [id, object] : s.objects) {
    const ph::Object* o = object.get();
    if (o->dead) continue;
    if (o->mask) ++holders[o->mask];
    if (o->target) ++holders[o->target];
    if (o->kind == ph::ObjectKind::Instance) {
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
  }
  for (const auto& [id, object] : s.objects) {
    const ph::Object* o = object.get();
    if (o->dead) {
      if (holders.count(o)) fuzz::Fail("after " + after + ": " + o->Describe() + " was released while still held");
      continue;
    }
    const int32_t held = holders.count(o) ? holders[o] : 0;
    if (o->references != held) {
      fuzz::Fail("after " + after + ": " + o->Describe() + " has " + std::to_string(o->references) +
                 " reference(s) but is held " + std::to_string(held) + " time(s)");
    }
  }
}

// --- Making objects ------------------------------------------------------------------

struct Size {
  int32_t w, h;
};

const Size kPictureSizes[] = {{1, 1},  {1, 2},   {2, 1},   {2, 2},   {3, 3},  {5, 3},   {3, 5},  {7, 1},
                              {1, 7},  {16, 16}, {17, 13}, {64, 48}, {31, 33}, {100, 1}, {1, 100}, {6, 6},
                              {20, 20}, {4, 9},  {9, 4},   {13, 2}};

std::vector<uint32_t> PixelsFrom(fuzz::Input& in, int32_t w, int32_t h) {
  const size_t n = static_cast<size_t>(w) * h;
  if (in.Bool()) return ph::SamplePixels(w, h);
  std::vector<uint8_t> bytes(3 * n);
  fuzz::FillFrom(in.Take(in.Byte() % 64), bytes.data(), bytes.size());
  std::vector<uint32_t> pixels(n);
  for (size_t i = 0; i < n; ++i) {
    pixels[i] = uint32_t{bytes[3 * i]} << 16 | uint32_t{bytes[3 * i + 1]} << 8 | bytes[3 * i + 2];
  }
  return pixels;
}

Size PictureSize(fuzz::Input& in) {
  if (in.Byte() % 4 == 0) return {1 + in.Byte() % 64, 1 + in.Byte() % 64};
  return in.Pick(kPictureSizes);
}

ph::Ref MakeBlock(ph::Host& host, fuzz::Input& in) {
  static const int32_t kSizes[] = {0, 1, 2, 3, 4, 7, 8, 255, 256, 257, 1023, 1024, 1025, 1032, 3 * 64 * 48, 4 * 64 * 48, 65536};
  int32_t size = in.Bool() ? in.Pick(kSizes) : static_cast<int32_t>(in.U16() % 20000);
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  fuzz::FillFrom(in.Take(in.Byte() % 32), bytes.data(), bytes.size());
  return host.NewMemoryBlock(bytes);
}

ph::Ref MakeString(ph::Host& host, fuzz::Input& in) {
  if (in.Bool()) {
    // A PPIC header of a small picture, the pixels from the input.
    const int32_t w = in.Byte() % 9, h = in.Byte() % 9;
    std::string s(40 + 3 * w * h, '\0');
    auto put = [&](size_t at, uint32_t v) {
      for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
    };
    s.replace(0, 4, "PPIC");
    put(4, static_cast<uint32_t>(s.size()));
    put(8, static_cast<uint32_t>(w));
    put(12, static_cast<uint32_t>(h));
    put(16, 32);
    put(20, 40);
    fuzz::FillFrom(in.Take(in.Byte() % 16), reinterpret_cast<uint8_t*>(s.data()) + 40, s.size() - 40);
    return host.NewString(s);
  }
  const auto bytes = in.Take(in.Byte());
  return host.NewString(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

// --- Arguments -----------------------------------------------------------------------------

ph::ObjectKind KindOf(Type t) {
  switch (t) {
    case Type::Picture: return ph::ObjectKind::Picture;
    case Type::MemoryBlock: return ph::ObjectKind::MemoryBlock;
    case Type::String: return ph::ObjectKind::String;
    case Type::Graphics: return ph::ObjectKind::Graphics;
    default: return ph::ObjectKind::Instance;
  }
}

ph::Value ValueOf(Type type, const std::string& typeName, fuzz::Input& in, Pool& pool) {
  switch (type) {
    case Type::Integer: return fuzz::AdversarialInt(in);
    case Type::Double: return fuzz::AdversarialDouble(in);
    case Type::Boolean: return in.Bool();
    case Type::Color: return ph::Color{fuzz::AdversarialColor(in)};
    case Type::None: return {};
    default: return pool.Pick(in, KindOf(type), typeName);
  }
}

bool NameIs(const std::string& name, const char* what) { return strcasecmp(name.c_str(), what) == 0; }

// Keeps one input from asking for gigabytes: a width and height pair whose
// picture the plug-in would accept (at most 32767 a side and 2^31 bytes of
// writer) but which exceeds 2^18 pixels is folded into a small size. Pairs
// beyond what the plug-in accepts stay as they are: refusing them is its job.
void CapSizes(const ph::Declaration& d, std::vector<ph::Value>& args) {
  int wi = -1, hi = -1;
  for (size_t i = 0; i < d.params.size(); ++i) {
    if (d.params[i].type != Type::Integer || d.params[i].byref) continue;
    if (NameIs(d.params[i].name, "width")) wi = static_cast<int>(i);
    if (NameIs(d.params[i].name, "height")) hi = static_cast<int>(i);
  }
  if (wi < 0 || hi < 0) return;
  const int64_t w = args[wi].AsInt(), h = args[hi].AsInt();
  if (w < 1 || h < 1 || w > 32767 || h > 32767 || w * h <= (1 << 18) || (h + 1) * w > INT32_MAX / 4) return;
  args[wi] = static_cast<int32_t>(1 + w % 512);
  args[hi] = static_cast<int32_t>(1 + h % 512);
}

// Results (and byref outputs) that are objects join the pool; a palette's
// memory block keeps its palette alive.
void Keep(Pool& pool, const ph::Value& v, const ph::Ref& receiver, const Callable& c) {
  if (v.IsNil()) return;
  if (!std::holds_alternative<ph::Ref>(v.storage())) return;
  const bool view = c.kind == Callable::kMethod && v.AsRef().get()->kind == ph::ObjectKind::MemoryBlock;
  pool.Add(v.AsRef(), view ? receiver : ph::Ref());
}

ph::Ref Receiver(ph::Host& host, fuzz::Input& in, Pool& pool, const Callable& c) {
  if (c.kind == Callable::kExtension || c.kind == Callable::kExtensionSetter) {
    if (NameIs(c.cls->name, "graphics")) {
      ph::Ref g = pool.Pick(in, ph::ObjectKind::Graphics);
      if (g) return g;
      ph::Ref picture = pool.Pick(in, ph::ObjectKind::Picture);
      if (!picture) picture = host.NewPicture(2, 2, std::vector<uint32_t>(4, 0x123456));
      g = host.GraphicsOf(picture);
      pool.Add(g);
      return g;
    }
    return pool.Pick(in, ph::ObjectKind::Picture);  // nil too
  }
  ph::Ref instance = pool.Pick(in, ph::ObjectKind::Instance, c.cls->name);
  if (!instance) {
    instance = host.NewInstance(c.cls->name);
    pool.Add(instance);
  }
  return instance;
}

void CallOne(ph::Host& host, fuzz::Input& in, Pool& pool, const Callable& c) {
  ph::Ref receiver;
  if (c.kind != Callable::kGlobal) receiver = Receiver(host, in, pool, c);
  if (c.kind == Callable::kGet || c.kind == Callable::kSet) {
    const ph::PropertyInfo& p = *c.property;
    if (c.kind == Callable::kGet) {
      Keep(pool, host.GetProperty(receiver, p.name), receiver, c);
    } else {
      host.SetProperty(receiver, p.name, ValueOf(ph::TypeFromName(p.type), p.type, in, pool));
    }
    return;
  }
  const ph::Declaration& d = c.method->declaration;
  std::vector<ph::Value> args;
  std::vector<ph::Value> byref(d.params.size());
  for (size_t i = 0; i < d.params.size(); ++i) {
    const ph::Param& p = d.params[i];
    ph::Value v = ValueOf(p.type, p.typeName, in, pool);
    if (p.byref) {
      byref[i] = std::move(v);
      args.push_back(ph::Value::ByRef(&byref[i]));
    } else {
      args.push_back(std::move(v));
    }
  }
  CapSizes(d, args);
  // Nothing changes the pictures it is given on this platform (in-place
  // access does not exist): small ones are compared before and after.
  std::vector<std::pair<ph::Ref, std::vector<uint32_t>>> given;
  auto remember = [&](const ph::Ref& r) {
    if (r && r.get()->kind == ph::ObjectKind::Picture && host.Width(r) * host.Height(r) <= 4096) {
      given.emplace_back(r, host.Pixels(r));
    }
  };
  remember(receiver);
  for (const ph::Value& v : args) {
    if (std::holds_alternative<ph::Ref>(v.storage())) remember(v.AsRef());
  }
  switch (c.kind) {
    case Callable::kExtension: Keep(pool, host.Call(receiver, d.name, args), receiver, c); break;
    case Callable::kGlobal: Keep(pool, host.CallGlobal(d.name, args), receiver, c); break;
    case Callable::kMethod: Keep(pool, host.CallMethod(receiver, d.name, args), receiver, c); break;
    case Callable::kExtensionSetter:
      host.Assign(receiver, d.name, args, ValueOf(d.result, d.resultName, in, pool));
      break;
    case Callable::kMethodSetter:
      host.AssignMethod(receiver, d.name, args, ValueOf(d.result, d.resultName, in, pool));
      break;
    default: break;
  }
  for (const ph::Value& v : byref) Keep(pool, v, receiver, c);
  for (const auto& [picture, pixels] : given) {
    if (host.Pixels(picture) != pixels) fuzz::Fail(c.label + " changed a picture it was given");
  }
}

// Steps 0 to 15 make or drop objects; the others call a registered member,
// chosen by the next two bytes (little-endian) modulo the number of members.
void Step(ph::Host& host, fuzz::Input& in, Pool& pool) {
  const uint8_t op = in.Byte();
  std::string label;
  try {
    switch (op) {
      case 0:
      case 1:
      case 2: {
        label = "making a picture";
        const Size s = PictureSize(in);
        pool.Add(host.NewPicture(s.w, s.h, PixelsFrom(in, s.w, s.h)));
        break;
      }
      case 3: {
        label = "making a foreign picture";
        const Size s = PictureSize(in);
        pool.Add(host.NewForeignPicture(s.w, s.h, PixelsFrom(in, s.w, s.h)));
        break;
      }
      case 4: {
        label = "setting a mask";
        ph::Ref picture = pool.Pick(in, ph::ObjectKind::Picture);
        if (picture) {
          const int32_t w = host.Width(picture), h = host.Height(picture);
          host.SetMask(picture, host.NewPicture(w, h, PixelsFrom(in, w, h)));
        }
        break;
      }
      case 5:
      case 6:
        label = "making a memory block";
        pool.Add(MakeBlock(host, in));
        break;
      case 7:
        label = "making a string";
        pool.Add(MakeString(host, in));
        break;
      case 8:
      case 9: {
        const ph::ClassInfo* c = Classes()[in.Below(Classes().size())];
        label = "new " + c->name;
        pool.Add(host.NewInstance(c->name));
        break;
      }
      case 10: {
        label = "taking a graphics";
        ph::Ref picture = pool.Pick(in, ph::ObjectKind::Picture);
        if (picture) pool.Add(host.GraphicsOf(picture));
        break;
      }
      case 11:
      case 12:
        label = "dropping an object";
        pool.Drop(in);
        break;
      case 13:
      case 14:
      case 15: label = "nothing"; break;
      default: {
        const Callable& c = Callables()[in.U16() % Callables().size()];
        label = c.label;
        CallOne(host, in, pool, c);
        break;
      }
    }
  } catch (const ph::HostError& e) {
    // The target only makes calls the host accepts; anything else is a fault
    // of the target itself and must not pass unnoticed.
    fuzz::Fail(label + ": the host refused the call: " + e.what());
  }
  Audit(host, pool, label);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::Start();
  Callables();
  Classes();
  return 0;
}

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
