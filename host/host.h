// The emulated REALbasic host.
//
// It loads the plug-in with dlopen, calls REALPluginMain with a resolver that
// answers the host's entry points by name, keeps the registration records, and
// calls handlers by their declaration strings through libffi. Pictures are
// real GDK pixmaps. Every host object is reference counted and every picture
// description lock is counted: after each call no picture may stay locked, and
// an object released more often than it was referenced, or still referenced
// when its owner is done, is reported as a problem naming the object and the
// method that was running.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "host/declaration.h"
#include "plugin/host_interface.h"

namespace ph {

class Host;
struct Object;

// One owned reference to a host object. Copying adds a reference, destruction
// drops it. An empty Ref is nil.
class Ref {
 public:
  Ref() = default;
  Ref(const Ref& other);
  Ref(Ref&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ref();

  // Takes over a reference the caller already owns.
  static Ref Adopt(Object* object);
  // Gives up the reference without dropping it.
  Object* Release();

  Object* get() const { return object_; }
  void* handle() const;  // what the plug-in sees; null for nil
  explicit operator bool() const { return object_ != nullptr; }

 private:
  Object* object_ = nullptr;
};

struct Color {
  uint32_t value;
};

// An argument or a result of a call. A ByRef argument points at a Value that
// the call may change (the byref parameters of a declaration).
class Value {
 public:
  using Storage = std::variant<std::monostate, int32_t, double, bool, Color, Ref, Value*>;

  Value() = default;
  Value(int32_t v) : v_(v) {}
  Value(double v) : v_(v) {}
  Value(bool v) : v_(v) {}
  Value(Color c) : v_(c) {}
  Value(Ref r) : v_(std::move(r)) {}
  static Value ByRef(Value* target) {
    Value v;
    v.v_ = target;
    return v;
  }

  bool IsNil() const;  // no value, or a nil handle
  int32_t AsInt() const;
  double AsDouble() const;
  bool AsBool() const;
  uint32_t AsColor() const;
  const Ref& AsRef() const;
  Value* Target() const;
  const Storage& storage() const { return v_; }

 private:
  Storage v_;
};

struct HostOptions {
  std::string pluginPath;         // empty: the library the build put beside the host
  double version = 2007.0;        // what "REALGetRBVersion" answers
  std::set<std::string> without;  // entry points the resolver does not know
  bool privateCopy = false;       // load a fresh copy of the library (fresh static data)
  bool display = true;            // false: no X display (registrations only, no pictures)
};

// What the plug-in registered, in the order the host received it.
struct Registration {
  enum class Kind { Class, Extension, Method, Control, Module } kind;
  const void* record;  // the plug-in's record as handed over
};

struct MethodInfo {
  Declaration declaration;
  void* function = nullptr;
  void* setter = nullptr;
};

struct PropertyInfo {
  std::string name;
  std::string type;
  void* getter = nullptr;  // null: the host's standard accessor
  void* setter = nullptr;
  uint32_t offset = 0;
};

struct ClassInfo {
  std::string name;
  bool extension = false;
  REALclassDefinition* record = nullptr;
  uint32_t dataSize = 0;
  uint32_t dataOffset = 0;  // what the host wrote into the record
  std::vector<PropertyInfo> properties;
  std::vector<MethodInfo> methods;
};

// The method of `methods` named `name` (in any case) that takes `count`
// arguments and, when `needSetter`, can be assigned; null when there is none.
// `named`, when given, tells whether any method has that name.
const MethodInfo* FindMethod(const std::vector<MethodInfo>& methods, const std::string& name, size_t count,
                             bool needSetter = false, bool* named = nullptr);

class Host {
 public:
  explicit Host(HostOptions options = {});
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // The host whose entry points answer the plug-in now.
  static Host* Current();

  // --- What registered -------------------------------------------------------
  const std::vector<Registration>& Registrations() const;
  const std::vector<ClassInfo>& Classes() const;  // classes and extensions
  const std::vector<MethodInfo>& GlobalMethods() const;
  const ClassInfo* FindClass(const std::string& name) const;
  const std::vector<std::string>& ResolverRequests() const;  // every name asked, in order
  std::optional<int32_t> AnnouncedVersion() const;           // "RegisterPluginVersion"
  std::vector<std::string> ListLines() const;                // as `picturehost list` prints

  // --- Making and reading host objects ------------------------------------------
  // Pixels are host colours 0x00RRGGBB, row by row.
  Ref NewPicture(int32_t width, int32_t height, std::span<const uint32_t> pixels);
  // A picture whose description is not type 6: readable only through a clone.
  Ref NewForeignPicture(int32_t width, int32_t height, std::span<const uint32_t> pixels);
  Ref LoadPicture(const std::string& fileOrSample);  // image file or sample:WxH
  void SetMask(const Ref& picture, const Ref& mask);
  // The graphics of a picture: the receiver of `graphics` extension methods.
  Ref GraphicsOf(const Ref& picture);
  int32_t Width(const Ref& picture) const;
  int32_t Height(const Ref& picture) const;
  int32_t Depth(const Ref& picture) const;
  std::vector<uint32_t> Pixels(const Ref& picture) const;
  bool SavePicture(const Ref& picture, const std::string& path, std::string* error) const;

  Ref NewMemoryBlock(std::span<const uint8_t> bytes);
  Ref NewMemoryBlock(int32_t size);  // zero-filled
  std::vector<uint8_t> Bytes(const Ref& blockOrString) const;
  Ref NewString(std::string_view bytes);
  Ref NewInstance(const std::string& className);
  std::string ClassOf(const Ref& instance) const;

  // --- Calls by declaration ---------------------------------------------------
  // A Picture (or graphics) extension method of the receiver; the overload is
  // chosen by the number of arguments.
  Value Call(const Ref& receiver, const std::string& name, std::vector<Value> args = {});
  // The setter of an extension method: receiver.name(args) = value.
  void Assign(const Ref& receiver, const std::string& name, std::vector<Value> args, Value value);
  Value CallGlobal(const std::string& name, std::vector<Value> args = {});
  // Methods and properties of class instances.
  Value CallMethod(const Ref& instance, const std::string& name, std::vector<Value> args = {});
  void AssignMethod(const Ref& instance, const std::string& name, std::vector<Value> args, Value value);
  Value GetProperty(const Ref& instance, const std::string& name);
  void SetProperty(const Ref& instance, const std::string& name, Value value);

  // --- Accounting -------------------------------------------------------------
  // Problems found so far (leaks are found by CheckLeaks). Taking them clears them.
  std::vector<std::string> TakeProblems();
  // Objects created since `mark` that are still referenced, each reported as a
  // leak naming the object and the method that made it.
  uint64_t Mark() const;
  std::vector<std::string> LeaksSince(uint64_t mark) const;
  int32_t References(const Ref& object) const;  // the count, the caller's own included
  int32_t Locks(const Ref& picture) const;

  struct State;  // host_state.h
  State& state() { return *s_; }

 private:
  std::unique_ptr<State> s_;
};

// Starts a private Xvfb when no DISPLAY is set and opens GDK; safe to call
// more than once. False with a message when no display can be had.
bool EnsureDisplay(std::string* error);

// The built-in synthetic test picture: the same pixels on every run.
std::vector<uint32_t> SamplePixels(int32_t width, int32_t height);

}  // namespace ph
