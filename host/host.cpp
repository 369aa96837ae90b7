#include <dlfcn.h>
#include <ffi.h>
#include <unistd.h>

#include <strings.h>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/host_state.h"

namespace ph {

namespace {

Host* gCurrent = nullptr;

// Hosts below this version read method lists in the 12-byte form.
constexpr double kFullMethodRecordVersion = 5.9;

// Instance data starts this far into an instance, plus 8 bytes per class
// registered before, so that no two classes share an offset.
constexpr uint32_t kFirstInstanceOffset = 64;

bool SameName(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

std::string Hex(const void* p) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", p);
  return text;
}

std::string DefaultPluginPath() {
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (exe.parent_path() / "libPicture.so").string();
}

}  // namespace

const char* KindName(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::Picture: return "picture";
    case ObjectKind::Graphics: return "graphics";
    case ObjectKind::MemoryBlock: return "memoryblock";
    case ObjectKind::String: return "string";
    case ObjectKind::Instance: return "instance";
    case ObjectKind::FolderItem: return "folderitem";
  }
  return "object";
}

std::string Object::Describe() const {
  std::string text = std::string(KindName(kind)) + " #" + std::to_string(id);
  if (kind == ObjectKind::Picture) text += " (" + std::to_string(width) + "x" + std::to_string(height) + ")";
  if (kind == ObjectKind::Instance && cls) text += " (" + cls->name + ")";
  return text + " made by " + origin;
}

// ---------------------------------------------------------------------------
// References and values

Ref::Ref(const Ref& other) : object_(other.object_) {
  if (object_) {
    ++object_->holders;
    object_->owner->AddReference(object_, "caller");
  }
}

Ref Ref::Adopt(Object* object) {
  Ref r;
  r.object_ = object;
  if (object) ++object->holders;
  return r;
}

Object* Ref::Release() {
  Object* o = object_;
  if (o) --o->holders;
  object_ = nullptr;
  return o;
}

Ref::~Ref() {
  if (object_) {
    Host::State* s = object_->owner;
    --object_->holders;
    gCurrent = s->self;  // a release may run a destructor in the plug-in
    s->DropReference(object_, "caller");
    if (s->depth == 0) {
      s->CheckAfterCall();
      s->Purge();
    }
  }
}

void* Ref::handle() const { return object_ ? object_->handle : nullptr; }

bool Value::IsNil() const {
  if (std::holds_alternative<std::monostate>(v_)) return true;
  if (auto r = std::get_if<Ref>(&v_)) return !*r;
  return false;
}

int32_t Value::AsInt() const {
  if (auto v = std::get_if<int32_t>(&v_)) return *v;
  throw HostError("value is not an integer");
}

double Value::AsDouble() const {
  if (auto v = std::get_if<double>(&v_)) return *v;
  if (auto v = std::get_if<int32_t>(&v_)) return *v;
  throw HostError("value is not a number");
}

bool Value::AsBool() const {
  if (auto v = std::get_if<bool>(&v_)) return *v;
  throw HostError("value is not a boolean");
}

uint32_t Value::AsColor() const {
  if (auto v = std::get_if<Color>(&v_)) return v->value;
  if (auto v = std::get_if<int32_t>(&v_)) return static_cast<uint32_t>(*v);
  throw HostError("value is not a color");
}

const Ref& Value::AsRef() const {
  static const Ref kNil;
  if (auto v = std::get_if<Ref>(&v_)) return *v;
  if (std::holds_alternative<std::monostate>(v_)) return kNil;
  throw HostError("value is not an object");
}

Value* Value::Target() const {
  if (auto v = std::get_if<Value*>(&v_)) return *v;
  return nullptr;
}

// ---------------------------------------------------------------------------
// Objects

Object* Host::State::NewObject(ObjectKind kind, const std::string& what) {
  auto object = std::make_unique<Object>();
  object->kind = kind;
  object->id = nextId++;
  object->owner = this;
  object->origin = what + (depth > 0 ? " during " + activity : std::string(" for the caller"));
  object->handle = object.get();
  Object* raw = object.get();
  objects.emplace(raw->id, std::move(object));
  return raw;
}

Object* Host::State::Find(const void* handle, const char* service) {
  if (!handle) return nullptr;
  auto it = byHandle.find(const_cast<void*>(handle));
  if (it == byHandle.end()) {
    Problem(std::string(service) + " was given an unknown handle " + Hex(handle));
    return nullptr;
  }
  return it->second;
}

Object* Host::State::FindKind(const void* handle, ObjectKind kind, const char* service) {
  Object* o = Find(handle, service);
  if (o && o->kind != kind) {
    Problem(std::string(service) + " was given " + o->Describe() + ", not a " + KindName(kind));
    return nullptr;
  }
  if (o && o->dead) {
    Problem(std::string(service) + " was given " + o->Describe() + " after its last release");
    return nullptr;
  }
  return o;
}

void Host::State::AddReference(Object* o, const char* service) {
  if (o->dead) {
    Problem(std::string(service) + " referenced " + o->Describe() + " after its last release");
    return;
  }
  ++o->references;
}

// The service and the call it came in; the caller's own releases come after
// its calls.
std::string Host::State::Where(const char* service) const {
  return std::string(service) + (depth > 0 ? " in " + activity : std::string(" after the call"));
}

void Host::State::DropReference(Object* o, const char* service) {
  if (o->dead) {
    Problem("released twice: " + o->Describe() + "; last released by " + o->releaser + ", then again by " +
            Where(service));
    return;
  }
  if (--o->references == 0) {
    o->releaser = Where(service);
    Destroy(o);
  }
}

void Host::State::Destroy(Object* o) {
  o->dead = true;
  switch (o->kind) {
    case ObjectKind::Picture:
      if (o->locks > 0) Problem(o->Describe() + " released while its description was locked, in " + activity);
      if (o->pixmap) g_object_unref(o->pixmap);
      o->pixmap = nullptr;
      if (o->mask) DropReference(o->mask, "picture release");
      o->mask = nullptr;
      break;
    case ObjectKind::Graphics:
      if (o->target) DropReference(o->target, "graphics release");
      o->target = nullptr;
      break;
    case ObjectKind::Instance: {
      if (o->cls->record && o->cls->record->destructor) {
        const std::string saved = activity;
        activity = "destructor of " + o->cls->name;
        ++depth;
        o->cls->record->destructor(static_cast<REALobjectStruct*>(o->handle));
        --depth;
        activity = saved;
      }
      break;
    }
    default: break;
  }
}

void Host::State::Problem(const std::string& text) { problems.push_back(text); }

// After a call no picture may stay locked, and every live object must have at
// least one reference for each Ref of the caller that points at it: fewer
// means the call released it more often than it referenced it (or handed it
// back without a reference). The count is set right after the report, so
// that the caller's own releases do not report it again.
void Host::State::CheckAfterCall() {
  for (auto& [id, o] : objects) {
    if (o->kind == ObjectKind::Picture && o->locks != 0) {
      Problem(o->Describe() + " left with " + std::to_string(o->locks) + " description lock(s) after " + activity);
      o->locks = 0;
    }
    if (!o->dead && o->references < o->holders) {
      Problem("released twice: " + o->Describe() + "; after " + activity + " it has " + std::to_string(o->references) +
              " reference(s) while the caller holds " + std::to_string(o->holders));
      o->references = o->holders;
    }
  }
}

// Forgets objects whose last reference is gone, once no Ref of the caller
// points at them any more. Until then a dead object stays as a tombstone, so
// that another release, by the plug-in or by a Ref the caller still holds, is
// reported as released twice instead of touching freed memory; a handle of a
// forgotten object is reported as unknown.
void Host::State::Purge() {
  for (auto it = objects.begin(); it != objects.end();) {
    Object* o = it->second.get();
    if (o->dead && o->holders == 0) {
      byHandle.erase(o->handle);
      std::free(o->memory);
      it = objects.erase(it);
    } else {
      ++it;
    }
  }
}

Object* Host::State::MakeString(const void* bytes, int32_t length, uint32_t encoding, const char* service) {
  if (length < 0 || (length > 0 && !bytes)) return nullptr;
  Object* o = NewObject(ObjectKind::String, service);
  o->storage.assign(static_cast<size_t>(length) + 1, 0);  // no terminating zero
  o->storage[0] = static_cast<char>(length & 0xFF);
  if (length > 0) std::memcpy(o->storage.data() + 1, bytes, static_cast<size_t>(length));
  o->string = std::make_unique<REALstringData>();
  o->string->referenceCount = 1;
  o->string->storage = o->storage.data();
  o->string->encoding = encoding;
  o->string->length = length;
  o->handle = o->string.get();
  byHandle[o->handle] = o;
  return o;
}

Object* Host::State::MakeBlock(int32_t size, const char* service) {
  constexpr int32_t kLargestBlock = 1 << 30;
  if (size < 0 || size > kLargestBlock) return nullptr;
  Object* o = NewObject(ObjectKind::MemoryBlock, service);
  o->bytes.reset(new uint8_t[static_cast<size_t>(size)]());  // never a null address, even for 0 bytes
  o->size = size;
  byHandle[o->handle] = o;
  return o;
}

Object* Host::State::MakeInstance(const ClassInfo& cls, const char* service) {
  Object* o = NewObject(ObjectKind::Instance, service + (" " + cls.name));
  o->cls = &cls;
  o->memory = static_cast<uint8_t*>(std::calloc(1, cls.dataOffset + cls.dataSize));
  o->handle = o->memory;
  byHandle[o->handle] = o;
  if (cls.record && cls.record->constructor) {
    const std::string saved = activity;
    activity = "constructor of " + cls.name;
    ++depth;
    cls.record->constructor(static_cast<REALobjectStruct*>(o->handle));
    --depth;
    activity = saved;
  }
  return o;
}

uint8_t* BlockData(Object* block) { return block->view ? block->view : block->bytes.get(); }

int32_t BlockSize(const Object* block) { return block->view ? block->viewSize : block->size; }

// ---------------------------------------------------------------------------
// Registration

const ClassInfo* Host::State::FindClassInfo(const std::string& name, bool extension) const {
  for (const ClassInfo& c : classes) {
    if (c.extension == extension && SameName(c.name, name)) return &c;
  }
  return nullptr;
}

void Host::State::RegisterClassRecord(REALclassDefinition* record, bool extension) {
  registrations.push_back({extension ? Registration::Kind::Extension : Registration::Kind::Class, record});
  if (classes.size() == classes.capacity()) {
    Problem("too many classes registered");
    return;
  }
  ClassInfo info;
  info.name = record->name ? record->name : "";
  info.extension = extension;
  info.record = record;
  info.dataSize = record->dataSize;
  if (!extension) {
    size_t classCount = 0;
    for (const ClassInfo& c : classes) classCount += c.extension ? 0 : 1;
    info.dataOffset = kFirstInstanceOffset + 8 * static_cast<uint32_t>(classCount);
    record->instanceDataOffset = info.dataOffset;
  }
  const bool oldLists = options.version < kFullMethodRecordVersion || options.without.count("REALGetRBVersion");
  for (uint32_t i = 0; i < record->methodCount; ++i) {
    MethodInfo m;
    const char* text;
    if (oldLists) {
      const auto& old = reinterpret_cast<const REALmethodDefinitionOld*>(record->methods)[i];
      m.function = old.function;
      m.setter = old.setterFunction;
      text = old.declaration;
    } else {
      const auto& full = record->methods[i];
      m.function = full.function;
      m.setter = full.setterFunction;
      text = full.declaration;
    }
    auto parsed = ParseDeclaration(text ? text : "");
    if (!parsed) {
      Problem("class " + info.name + ": unreadable declaration \"" + (text ? text : "") + "\"");
      continue;
    }
    m.declaration = *parsed;
    info.methods.push_back(std::move(m));
  }
  for (uint32_t i = 0; i < record->propertyCount; ++i) {
    const REALpropertyDefinition& p = record->properties[i];
    PropertyInfo prop;
    prop.name = p.name ? p.name : "";
    prop.type = p.type ? p.type : "";
    prop.getter = p.getter == kStandardAccessor ? nullptr : p.getter;
    prop.setter = p.setter == kStandardAccessor ? nullptr : p.setter;
    prop.offset = p.param;
    const Type t = TypeFromName(prop.type);
    if (t != Type::Integer && t != Type::Double && t != Type::Picture) {
      Problem("class " + info.name + ": property " + prop.name + " of unsupported type " + prop.type);
    }
    const uint32_t valueSize = t == Type::Integer ? 4 : t == Type::Double ? 8 : sizeof(void*);
    if ((!prop.getter || !prop.setter) && prop.offset + valueSize > info.dataSize) {
      Problem("class " + info.name + ": property " + prop.name + " lies outside the instance data");
    }
    info.properties.push_back(std::move(prop));
  }
  classes.push_back(std::move(info));
}

void Host::State::RegisterGlobal(REALmethodDefinition* method) {
  registrations.push_back({Registration::Kind::Method, method});
  auto parsed = ParseDeclaration(method->declaration ? method->declaration : "");
  if (!parsed) {
    Problem(std::string("unreadable global declaration \"") + (method->declaration ? method->declaration : "") + "\"");
    return;
  }
  globals.push_back({*parsed, method->function, method->setterFunction});
}

// ---------------------------------------------------------------------------
// Loading

Host::Host(HostOptions options) : s_(std::make_unique<State>()) {
  s_->self = this;
  std::string error;
  if (options.display && !EnsureDisplay(&error)) throw HostError(error);
  s_->options = std::move(options);
  s_->classes.reserve(64);
  std::string path = s_->options.pluginPath.empty() ? DefaultPluginPath() : s_->options.pluginPath;
  if (s_->options.privateCopy) {
    // dlopen shares one image per file; a copy gives fresh static records.
    char pattern[] = "/tmp/picturehost-plugin-XXXXXX";
    int fd = mkstemp(pattern);
    if (fd < 0) throw HostError("cannot make a copy of " + path);
    close(fd);
    std::error_code ec;
    std::filesystem::copy_file(path, pattern, std::filesystem::copy_options::overwrite_existing, ec);
    if (ec) throw HostError("cannot copy " + path + ": " + ec.message());
    s_->copyPath = pattern;
    path = pattern;
  }
  s_->library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!s_->library) throw HostError(std::string("cannot load the plug-in: ") + dlerror());
  auto main = reinterpret_cast<void (*)(void* (*)(const char*))>(dlsym(s_->library, "REALPluginMain"));
  if (!main) throw HostError("the plug-in has no REALPluginMain");
  gCurrent = this;
  s_->activity = "registration";
  ++s_->depth;
  main([](const char* name) -> void* {
    Host::State& s = gCurrent->state();
    s.requests.emplace_back(name ? name : "");
    if (!name || s.options.without.count(name)) return nullptr;
    return ResolveEntryPoint(name);
  });
  --s_->depth;
  s_->CheckAfterCall();
}

Host::~Host() {
  if (!s_->copyPath.empty()) std::filesystem::remove(s_->copyPath);
  if (gCurrent == this) gCurrent = nullptr;
}

Host* Host::Current() { return gCurrent; }

const std::vector<Registration>& Host::Registrations() const { return s_->registrations; }
const std::vector<ClassInfo>& Host::Classes() const { return s_->classes; }
const std::vector<MethodInfo>& Host::GlobalMethods() const { return s_->globals; }
const std::vector<std::string>& Host::ResolverRequests() const { return s_->requests; }
std::optional<int32_t> Host::AnnouncedVersion() const { return s_->announcedVersion; }

const ClassInfo* Host::FindClass(const std::string& name) const {
  if (const ClassInfo* c = s_->FindClassInfo(name, false)) return c;
  return s_->FindClassInfo(name, true);
}

std::vector<std::string> Host::ListLines() const {
  std::vector<std::string> lines;
  size_t classIndex = 0, globalIndex = 0;
  for (const Registration& r : s_->registrations) {
    if (r.kind == Registration::Kind::Method) {
      if (globalIndex < s_->globals.size()) lines.push_back("global " + s_->globals[globalIndex++].declaration.text);
      continue;
    }
    if (r.kind != Registration::Kind::Class && r.kind != Registration::Kind::Extension) {
      lines.push_back(r.kind == Registration::Kind::Control ? "control" : "module");
      continue;
    }
    if (classIndex >= s_->classes.size()) continue;
    const ClassInfo& c = s_->classes[classIndex++];
    lines.push_back((c.extension ? "extension " : "class ") + c.name);
    for (const PropertyInfo& p : c.properties) lines.push_back("  property " + p.name + " as " + p.type);
    for (const MethodInfo& m : c.methods) {
      lines.push_back("  method " + m.declaration.text);
      if (m.setter) lines.push_back("    setter " + m.declaration.text);
    }
  }
  return lines;
}

// ---------------------------------------------------------------------------
// Host objects for the caller

Ref Host::NewPicture(int32_t width, int32_t height, std::span<const uint32_t> pixels) {
  gCurrent = this;
  if (pixels.size() != static_cast<size_t>(width) * static_cast<size_t>(height)) {
    throw HostError("NewPicture: pixel count does not match the size");
  }
  Object* o = s_->MakePicture(width, height, "NewPicture");
  if (!o) throw HostError("cannot make a picture of " + std::to_string(width) + "x" + std::to_string(height));
  s_->DrawPixels(o, pixels.data(), width);
  return Ref::Adopt(o);
}

Ref Host::NewForeignPicture(int32_t width, int32_t height, std::span<const uint32_t> pixels) {
  Ref r = NewPicture(width, height, pixels);
  r.get()->pictureType = 2;  // not a drawable the plug-in can copy directly
  return r;
}

void Host::SetMask(const Ref& picture, const Ref& mask) {
  Object* p = picture.get();
  if (!p || p->kind != ObjectKind::Picture) throw HostError("SetMask: not a picture");
  if (p->mask) s_->DropReference(p->mask, "SetMask");
  p->mask = mask.get();
  if (p->mask) s_->AddReference(p->mask, "SetMask");
}

Ref Host::GraphicsOf(const Ref& picture) {
  gCurrent = this;
  Object* p = picture.get();
  if (!p || p->kind != ObjectKind::Picture) throw HostError("GraphicsOf: not a picture");
  Object* g = s_->NewObject(ObjectKind::Graphics, "GraphicsOf");
  g->target = p;
  s_->AddReference(p, "GraphicsOf");
  s_->byHandle[g->handle] = g;
  return Ref::Adopt(g);
}

int32_t Host::Width(const Ref& picture) const { return picture ? picture.get()->width : 0; }
int32_t Host::Height(const Ref& picture) const { return picture ? picture.get()->height : 0; }
int32_t Host::Depth(const Ref& picture) const { return picture ? picture.get()->depth : 0; }

std::vector<uint32_t> Host::Pixels(const Ref& picture) const {
  if (!picture || picture.get()->kind != ObjectKind::Picture) throw HostError("Pixels: not a picture");
  return s_->ReadPixels(picture.get());
}

Ref Host::NewMemoryBlock(std::span<const uint8_t> bytes) {
  gCurrent = this;
  Object* o = s_->MakeBlock(static_cast<int32_t>(bytes.size()), "NewMemoryBlock");
  if (!o) throw HostError("cannot make a memory block of " + std::to_string(bytes.size()) + " bytes");
  if (!bytes.empty()) std::memcpy(o->bytes.get(), bytes.data(), bytes.size());
  return Ref::Adopt(o);
}

Ref Host::NewMemoryBlock(int32_t size) {
  gCurrent = this;
  Object* o = s_->MakeBlock(size, "NewMemoryBlock");
  if (!o) throw HostError("cannot make a memory block of " + std::to_string(size) + " bytes");
  return Ref::Adopt(o);
}

std::vector<uint8_t> Host::Bytes(const Ref& object) const {
  Object* o = object.get();
  if (!o) return {};
  if (o->kind == ObjectKind::MemoryBlock) {
    const uint8_t* data = BlockData(o);
    return {data, data + BlockSize(o)};
  }
  if (o->kind == ObjectKind::String) {
    const REALstringData* s = o->string.get();
    const auto* data = reinterpret_cast<const uint8_t*>(s->storage + 1);
    return {data, data + s->length};
  }
  throw HostError("Bytes: not a memory block or string");
}

Ref Host::NewString(std::string_view bytes) {
  gCurrent = this;
  Object* o = s_->MakeString(bytes.data(), static_cast<int32_t>(bytes.size()), 0xFFFF, "NewString");
  return Ref::Adopt(o);
}

Ref Host::NewInstance(const std::string& className) {
  gCurrent = this;
  const ClassInfo* cls = s_->FindClassInfo(className, false);
  if (!cls) throw HostError("no class named " + className);
  s_->activity = "new " + className;
  Object* o = s_->MakeInstance(*cls, "New");
  s_->CheckAfterCall();
  return Ref::Adopt(o);
}

std::string Host::ClassOf(const Ref& instance) const {
  Object* o = instance.get();
  return o && o->kind == ObjectKind::Instance ? o->cls->name : std::string();
}

// ---------------------------------------------------------------------------
// Calls through libffi

namespace {

union Slot {
  int32_t i;
  uint32_t u;
  double d;
  uint8_t b;
  void* p;
};

ObjectKind KindOf(Type t) {
  switch (t) {
    case Type::Picture: return ObjectKind::Picture;
    case Type::MemoryBlock: return ObjectKind::MemoryBlock;
    case Type::String: return ObjectKind::String;
    case Type::Graphics: return ObjectKind::Graphics;
    default: return ObjectKind::Instance;
  }
}

bool IsHandle(Type t) {
  return t == Type::Picture || t == Type::MemoryBlock || t == Type::String || t == Type::Graphics || t == Type::Object;
}

ffi_type* FfiType(Type t) {
  switch (t) {
    case Type::Integer: return &ffi_type_sint32;
    case Type::Color: return &ffi_type_uint32;
    case Type::Double: return &ffi_type_double;
    case Type::Boolean: return &ffi_type_uint8;
    case Type::None: return &ffi_type_void;
    default: return &ffi_type_pointer;
  }
}

// Puts a caller's value into an argument slot of the declared type.
void ToSlot(const Value& v, const std::string& what, Type type, const std::string& typeName, Slot& slot) {
  slot.p = nullptr;
  try {
    switch (type) {
      case Type::Integer: slot.i = v.AsInt(); return;
      case Type::Color: slot.u = v.AsColor(); return;
      case Type::Double: slot.d = v.AsDouble(); return;
      case Type::Boolean: slot.b = v.AsBool() ? 1 : 0; return;
      case Type::None: return;
      default: break;
    }
    const Ref& r = v.AsRef();
    if (r) {
      Object* o = r.get();
      const bool kindOk = o->kind == KindOf(type) && (type != Type::Object || SameName(o->cls->name, typeName));
      if (!kindOk) throw HostError("a " + std::string(KindName(o->kind)) + " where a " + typeName + " is expected");
    }
    slot.p = r.handle();
  } catch (const HostError& e) {
    throw HostError(what + ": " + e.what());
  }
}

}  // namespace

static Value Invoke(Host::State& s, void* function, const std::string& label, const Declaration& d,
                    std::optional<void*> receiver, std::vector<Value>& args, const Value* assigned) {
  std::vector<ffi_type*> types;
  std::vector<Slot> slots(args.size() + 2);
  std::vector<Slot> byrefSlots(args.size());
  std::vector<void*> values;
  size_t n = 0;
  if (receiver) {  // extension and class methods: the object comes first, nil or not
    slots[n].p = *receiver;
    types.push_back(&ffi_type_pointer);
    values.push_back(&slots[n++]);
  }
  for (size_t i = 0; i < args.size(); ++i) {
    const Param& p = d.params[i];
    const std::string what = label + " parameter " + p.name;
    if (p.byref) {
      Value* target = args[i].Target();
      if (!target) throw HostError(what + " is byref: pass a variable");
      ToSlot(*target, what, p.type, p.typeName, byrefSlots[i]);
      if (IsHandle(p.type)) {
        // The variable's reference now lives in the slot the plug-in may change.
        if (auto* r = std::get_if<Ref>(&const_cast<Value::Storage&>(target->storage()))) r->Release();
        *target = Value();
      }
      slots[n].p = &byrefSlots[i];
      types.push_back(&ffi_type_pointer);
    } else {
      ToSlot(args[i], what, p.type, p.typeName, slots[n]);
      types.push_back(FfiType(p.type));
    }
    values.push_back(&slots[n++]);
  }
  if (assigned) {
    ToSlot(*assigned, label + " assigned value", d.result, d.resultName, slots[n]);
    types.push_back(FfiType(d.result));
    values.push_back(&slots[n++]);
  }

  const Type resultType = assigned ? Type::None : d.result;
  ffi_cif cif;
  if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(types.size()), FfiType(resultType), types.data()) !=
      FFI_OK) {
    throw HostError(label + ": cannot prepare the call");
  }
  union {
    ffi_arg integer;
    double d;
    void* p;
  } result{};
  ffi_call(&cif, reinterpret_cast<void (*)()>(function), &result, values.data());

  auto handleValue = [&](void* handle, Type type, const char* what) -> Value {
    if (!handle) return Value();
    Object* o = s.FindKind(handle, KindOf(type), what);
    if (!o) return Value();
    return Value(Ref::Adopt(o));
  };
  for (size_t i = 0; i < args.size(); ++i) {
    const Param& p = d.params[i];
    if (!p.byref) continue;
    Value* target = args[i].Target();
    switch (p.type) {
      case Type::Integer: *target = Value(byrefSlots[i].i); break;
      case Type::Color: *target = Value(Color{byrefSlots[i].u}); break;
      case Type::Double: *target = Value(byrefSlots[i].d); break;
      case Type::Boolean: *target = Value(byrefSlots[i].b != 0); break;
      default: *target = handleValue(byrefSlots[i].p, p.type, "a byref parameter"); break;
    }
  }
  switch (resultType) {
    case Type::None: return Value();
    case Type::Integer: return Value(static_cast<int32_t>(result.integer));
    case Type::Color: return Value(Color{static_cast<uint32_t>(result.integer)});
    case Type::Double: return Value(result.d);
    case Type::Boolean: return Value((result.integer & 0xFF) != 0);
    default: return handleValue(result.p, resultType, "a returned value");
  }
}

const MethodInfo* FindMethod(const std::vector<MethodInfo>& methods, const std::string& name, size_t count,
                             bool needSetter, bool* named) {
  if (named) *named = false;
  for (const MethodInfo& m : methods) {
    if (!SameName(m.declaration.name, name)) continue;
    if (named) *named = true;
    if (m.declaration.params.size() == count && (!needSetter || m.setter)) return &m;
  }
  return nullptr;
}

namespace {

const MethodInfo* MethodOrError(const std::vector<MethodInfo>& methods, const std::string& owner,
                                const std::string& name, size_t count, bool needSetter) {
  bool named = false;
  if (const MethodInfo* m = FindMethod(methods, name, count, needSetter, &named)) return m;
  if (!named) throw HostError(owner + " has no method " + name);
  if (needSetter)
    throw HostError(owner + "." + name + " with " + std::to_string(count) + " argument(s) cannot be assigned");
  throw HostError(owner + "." + name + " takes no " + std::to_string(count) + " argument(s)");
}

// Runs one call from the caller: names the activity for the accounting and
// checks the locks afterwards.
template <typename F>
auto Activity(Host::State& s, Host* host, const std::string& label, F&& f) {
  gCurrent = host;
  const std::string saved = s.activity;
  s.activity = label;
  ++s.depth;
  struct Leave {
    Host::State& s;
    std::string saved;
    ~Leave() {
      --s.depth;
      if (s.depth == 0) {
        s.CheckAfterCall();
        s.Purge();
        DiscardEvents();
      }
      s.activity = saved;
    }
  } leave{s, saved};
  return f();
}

const ClassInfo& ExtensionOf(const Host::State& s, const Ref& receiver) {
  Object* o = receiver.get();
  const char* name = o && o->kind == ObjectKind::Graphics ? "graphics" : "Picture";
  if (o && o->kind != ObjectKind::Picture && o->kind != ObjectKind::Graphics) {
    throw HostError("the receiver is neither a picture nor a graphics");
  }
  const ClassInfo* c = s.FindClassInfo(name, true);
  if (!c) throw HostError(std::string("no extension of ") + name + " registered");
  return *c;
}

const ClassInfo& ClassOfInstance(const Ref& instance) {
  Object* o = instance.get();
  if (!o || o->kind != ObjectKind::Instance) throw HostError("not a class instance");
  return *o->cls;
}

// Finds NAME among `methods` and calls it, or with a value its setter, as one
// call of the caller, named `prefix` and the method's name in the accounting.
Value CallNamed(Host::State& s, Host* host, const std::vector<MethodInfo>& methods, const std::string& owner,
                const std::string& prefix, const std::string& name, std::optional<void*> receiver,
                std::vector<Value>& args, const Value* assigned) {
  const MethodInfo* m = MethodOrError(methods, owner, name, args.size(), assigned != nullptr);
  return Activity(s, host, prefix + m->declaration.name + (assigned ? " setter" : ""), [&] {
    return Invoke(s, assigned ? m->setter : m->function, m->declaration.name, m->declaration, receiver, args, assigned);
  });
}

}  // namespace

Value Host::Call(const Ref& receiver, const std::string& name, std::vector<Value> args) {
  const ClassInfo& c = ExtensionOf(*s_, receiver);
  return CallNamed(*s_, this, c.methods, c.name, "", name, receiver.handle(), args, nullptr);
}

void Host::Assign(const Ref& receiver, const std::string& name, std::vector<Value> args, Value value) {
  const ClassInfo& c = ExtensionOf(*s_, receiver);
  CallNamed(*s_, this, c.methods, c.name, "", name, receiver.handle(), args, &value);
}

Value Host::CallGlobal(const std::string& name, std::vector<Value> args) {
  return CallNamed(*s_, this, s_->globals, "global", "", name, std::nullopt, args, nullptr);
}

Value Host::CallMethod(const Ref& instance, const std::string& name, std::vector<Value> args) {
  const ClassInfo& c = ClassOfInstance(instance);
  return CallNamed(*s_, this, c.methods, c.name, c.name + ".", name, instance.handle(), args, nullptr);
}

void Host::AssignMethod(const Ref& instance, const std::string& name, std::vector<Value> args, Value value) {
  const ClassInfo& c = ClassOfInstance(instance);
  CallNamed(*s_, this, c.methods, c.name, c.name + ".", name, instance.handle(), args, &value);
}

namespace {

const PropertyInfo& FindProperty(const ClassInfo& c, const std::string& name) {
  for (const PropertyInfo& p : c.properties) {
    if (SameName(p.name, name)) return p;
  }
  throw HostError(c.name + " has no property " + name);
}

// A property accessor called like a method: (instance, param) → value, or
// (instance, param, value).
Declaration AccessorDeclaration(const PropertyInfo& p) {
  Declaration d;
  d.name = p.name;
  d.text = p.name + " as " + p.type;
  d.params.push_back({"param", Type::Integer, "integer", false});
  d.result = TypeFromName(p.type);
  d.resultName = p.type;
  return d;
}

}  // namespace

Value Host::GetProperty(const Ref& instance, const std::string& name) {
  const ClassInfo& c = ClassOfInstance(instance);
  const PropertyInfo& p = FindProperty(c, name);
  if (p.getter) {
    std::vector<Value> args{Value(static_cast<int32_t>(p.offset))};
    return Activity(*s_, this, c.name + "." + p.name + " getter", [&] {
      return Invoke(*s_, p.getter, p.name, AccessorDeclaration(p), instance.handle(), args, nullptr);
    });
  }
  uint8_t* at = instance.get()->memory + c.dataOffset + p.offset;
  switch (TypeFromName(p.type)) {
    case Type::Integer: {
      int32_t v;
      std::memcpy(&v, at, sizeof v);
      return Value(v);
    }
    case Type::Double: {
      double v;
      std::memcpy(&v, at, sizeof v);
      return Value(v);
    }
    default: {
      void* handle;
      std::memcpy(&handle, at, sizeof handle);
      if (!handle) return Value();
      Object* o = s_->FindKind(handle, ObjectKind::Picture, "the standard getter");
      if (!o) return Value();
      s_->AddReference(o, "the standard getter");
      return Value(Ref::Adopt(o));
    }
  }
}

void Host::SetProperty(const Ref& instance, const std::string& name, Value value) {
  const ClassInfo& c = ClassOfInstance(instance);
  const PropertyInfo& p = FindProperty(c, name);
  const Type type = TypeFromName(p.type);
  if (p.setter) {
    std::vector<Value> args{Value(static_cast<int32_t>(p.offset))};
    Declaration d = AccessorDeclaration(p);
    Activity(*s_, this, c.name + "." + p.name + " setter",
             [&] { return Invoke(*s_, p.setter, p.name, d, instance.handle(), args, &value); });
    return;
  }
  uint8_t* at = instance.get()->memory + c.dataOffset + p.offset;
  Slot slot;
  ToSlot(value, c.name + "." + p.name, type, p.type, slot);
  switch (type) {
    case Type::Integer: std::memcpy(at, &slot.i, sizeof slot.i); break;
    case Type::Double: std::memcpy(at, &slot.d, sizeof slot.d); break;
    default: {
      // The instance holds one reference to the picture in the field.
      void* old;
      std::memcpy(&old, at, sizeof old);
      if (Object* o = value.AsRef().get()) s_->AddReference(o, "the standard setter");
      std::memcpy(at, &slot.p, sizeof slot.p);
      gCurrent = this;
      s_->activity = c.name + "." + p.name + " setter";
      if (Object* o = s_->Find(old, "the standard setter")) s_->DropReference(o, "the standard setter");
      break;
    }
  }
}

// ---------------------------------------------------------------------------
// Accounting

std::vector<std::string> Host::TakeProblems() {
  s_->Purge();
  std::vector<std::string> taken;
  taken.swap(s_->problems);
  return taken;
}

uint64_t Host::Mark() const { return s_->nextId - 1; }

std::vector<std::string> Host::LeaksSince(uint64_t mark) const {
  std::vector<std::string> leaks;
  for (auto it = s_->objects.upper_bound(mark); it != s_->objects.end(); ++it) {
    const Object* o = it->second.get();
    if (!o->dead) {
      leaks.push_back(o->Describe() + " still has " + std::to_string(o->references) + " reference(s)");
    }
  }
  return leaks;
}

int32_t Host::References(const Ref& object) const { return object ? object.get()->references : 0; }
int32_t Host::Locks(const Ref& picture) const { return picture ? picture.get()->locks : 0; }

}  // namespace ph
