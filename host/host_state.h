// Internal state of the emulated host, shared by host.cpp (objects, calls,
// accounting) and entry_points.cpp (the services the plug-in resolves).
#pragma once

#include <gdk/gdk.h>

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/host.h"

namespace ph {

// Bad use of the host by its caller (unknown method, wrong arguments): the
// command line turns it into exit status 1.
struct HostError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class ObjectKind { Picture, Graphics, MemoryBlock, String, Instance, FolderItem };

const char* KindName(ObjectKind kind);

struct Object {
  ObjectKind kind;
  uint64_t id = 0;
  int32_t references = 1;
  bool dead = false;     // the last reference is gone
  int32_t holders = 0;   // the caller's Refs that point here: a dead object stays while any does
  std::string origin;    // what made it, and during which call
  std::string releaser;  // what dropped the last reference, and during which call
  void* handle = nullptr;
  Host::State* owner = nullptr;

  // Picture
  GdkPixmap* pixmap = nullptr;
  int32_t width = 0, height = 0, depth = 32;
  int32_t pictureType = kPictureTypeGdkDrawable;
  int32_t locks = 0;
  Object* mask = nullptr;  // held with one reference

  // Graphics: the picture it draws into, held with one reference
  Object* target = nullptr;

  // Memory block: its own bytes, or a view of memory owned by the plug-in.
  // Its own bytes are exactly as many as asked, so that the address sanitizer
  // sees a read or write one past the end.
  std::unique_ptr<uint8_t[]> bytes;
  int32_t size = 0;
  uint8_t* view = nullptr;
  int32_t viewSize = 0;

  // String
  std::unique_ptr<REALstringData> string;
  std::vector<char> storage;  // content starts at storage[1] and ends the storage

  // Instance
  const ClassInfo* cls = nullptr;
  uint8_t* memory = nullptr;  // header area, then the instance data at cls->dataOffset, and no more

  // Folder item
  std::string path;

  std::string Describe() const;
};

struct Host::State {
  Host* self = nullptr;
  HostOptions options;
  void* library = nullptr;
  std::string copyPath;  // private copy of the library, removed at the end

  std::vector<Registration> registrations;
  std::vector<ClassInfo> classes;  // stable: reserved before registration
  std::vector<MethodInfo> globals;
  std::vector<std::string> requests;
  std::optional<int32_t> announcedVersion;

  std::map<uint64_t, std::unique_ptr<Object>> objects;  // by id, dead ones until purged
  std::unordered_map<void*, Object*> byHandle;
  uint64_t nextId = 1;
  std::vector<std::string> problems;
  std::string activity = "registration";  // the call running now
  int depth = 0;                          // nesting of host-made calls

  Object* NewObject(ObjectKind kind, const std::string& what);
  Object* Find(const void* handle, const char* service);  // reports an unknown handle
  Object* FindKind(const void* handle, ObjectKind kind, const char* service);
  void AddReference(Object* o, const char* service);
  void DropReference(Object* o, const char* service);
  std::string Where(const char* service) const;
  void Destroy(Object* o);
  void Problem(const std::string& text);
  void CheckAfterCall();
  void Purge();

  // Pictures
  Object* MakePicture(int32_t width, int32_t height, const char* service);
  void DrawPixels(Object* picture, const uint32_t* pixels, int32_t rowWords);
  std::vector<uint32_t> ReadPixels(const Object* picture) const;

  // Strings and blocks
  Object* MakeString(const void* bytes, int32_t length, uint32_t encoding, const char* service);
  Object* MakeBlock(int32_t size, const char* service);
  Object* MakeInstance(const ClassInfo& cls, const char* service);

  // Registration
  void RegisterClassRecord(REALclassDefinition* record, bool extension);
  void RegisterGlobal(REALmethodDefinition* method);
  const ClassInfo* FindClassInfo(const std::string& name, bool extension) const;
};

// Drops the X events queued for this process. Nothing here runs an event
// loop, and reading a pixmap back queues a NoExpose event each time, so the
// queue would grow for the life of the process.
void DiscardEvents();

// Entry points: the resolver's answer for a name, or null.
void* ResolveEntryPoint(const std::string& name);

// Blocks and strings: the bytes the plug-in sees.
uint8_t* BlockData(Object* block);
int32_t BlockSize(const Object* block);

}  // namespace ph
