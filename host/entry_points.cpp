// The services the host hands out by name. Every one works on the current
// host's state and reports misuse (unknown handles, unbalanced locks, double
// releases) as an accounting problem instead of crashing.
#include <glib.h>

#include <cstdio>
#include <cstring>
#include <unordered_map>

#include "host/host_state.h"
#include "plugin/entry_point_names.h"

namespace ph {

namespace {

using HostBool = int32_t;

Host::State& S() { return Host::Current()->state(); }

// --- Registration ------------------------------------------------------------

void RegisterPluginVersion(int32_t version) { S().announcedVersion = version; }
double GetRBVersion() { return S().options.version; }
void RegisterClass(REALclassDefinition* record) { S().RegisterClassRecord(record, false); }
void RegisterClassExtension(REALclassDefinition* record) { S().RegisterClassRecord(record, true); }
void RegisterMethod(REALmethodDefinition* method) { S().RegisterGlobal(method); }
void RegisterControl(REALcontrol* record) { S().registrations.push_back({Registration::Kind::Control, record}); }
void RegisterModule(REALmoduleDefinition* record) { S().registrations.push_back({Registration::Kind::Module, record}); }

// --- References ----------------------------------------------------------------

void LockObject(void* handle) {
  if (Object* o = S().Find(handle, "REALLockObject")) S().AddReference(o, "REALLockObject");
}

void UnlockObject(void* handle) {
  if (Object* o = S().Find(handle, "REALUnlockObject")) S().DropReference(o, "REALUnlockObject");
}

void LockString(void* handle) {
  if (Object* o = S().FindKind(handle, ObjectKind::String, "REALLockString")) S().AddReference(o, "REALLockString");
}

void UnlockString(void* handle) {
  if (!handle) return;
  Object* o = S().Find(handle, "REALUnlockString");
  if (o && o->kind != ObjectKind::String) {
    S().Problem("REALUnlockString was given " + o->Describe());
  } else if (o) {
    S().DropReference(o, "REALUnlockString");
  }
}

// --- Pictures --------------------------------------------------------------------

void LockDescription(void* handle, REALpictureDescription* d) {
  Object* o = S().FindKind(handle, ObjectKind::Picture, "lockPictureDescription");
  if (!o || !d) return;
  ++o->locks;
  d->pictureType = o->pictureType;
  d->pictureData = o->pictureType == kPictureTypeGdkDrawable ? o->pixmap : nullptr;
  d->width = o->width;
  d->height = o->height;
  d->reserved[0] = o->depth;
  d->reserved[1] = 0;
}

void LockDescriptionWithFlags(void* handle, REALpictureDescription* d, int32_t) { LockDescription(handle, d); }

void UnlockDescription(void* handle) {
  Object* o = S().FindKind(handle, ObjectKind::Picture, "unlockPictureDescription");
  if (!o) return;
  if (o->locks == 0) {
    S().Problem("unbalanced unlockPictureDescription of " + o->Describe() + " in " + S().activity);
    return;
  }
  --o->locks;
}

void* NewPicture(int32_t width, int32_t height, int32_t depth) {
  Object* o = S().MakePicture(width, height, "newPicture");
  if (!o) return nullptr;
  o->depth = depth;
  // A new picture is white.
  std::vector<uint32_t> white(static_cast<size_t>(width) * height, 0xFFFFFF);
  S().DrawPixels(o, white.data(), width);
  return o->handle;
}

void* PictureGraphics(void* handle) {
  Object* picture = S().FindKind(handle, ObjectKind::Picture, "pluginPictureGraphicsGetter");
  if (!picture) return nullptr;
  Object* g = S().NewObject(ObjectKind::Graphics, "pluginPictureGraphicsGetter");
  g->target = picture;
  S().AddReference(picture, "pluginPictureGraphicsGetter");
  S().byHandle[g->handle] = g;
  return g->handle;
}

void DrawPicturePrimitive(void* graphics, void* source, const RB::Rect* rect, int32_t) {
  Object* g = S().FindKind(graphics, ObjectKind::Graphics, "REALDrawPicturePrimitive");
  Object* src = S().FindKind(source, ObjectKind::Picture, "REALDrawPicturePrimitive");
  if (!g || !src || !rect || !g->target) return;
  const int32_t w = std::min<int32_t>(src->width, rect->right - rect->left);
  const int32_t h = std::min<int32_t>(src->height, rect->bottom - rect->top);
  if (w < 1 || h < 1) return;
  GdkGC* gc = gdk_gc_new(g->target->pixmap);
  gdk_draw_drawable(g->target->pixmap, gc, src->pixmap, 0, 0, rect->left, rect->top, w, h);
  g_object_unref(gc);
}

void GraphicsDrawLine(void* graphics, int32_t x1, int32_t y1, int32_t x2, int32_t y2) {
  Object* g = S().FindKind(graphics, ObjectKind::Graphics, "RuntimeGraphicsDrawLine");
  if (!g || !g->target) return;
  GdkGC* gc = gdk_gc_new(g->target->pixmap);
  gdk_draw_line(g->target->pixmap, gc, x1, y1, x2, y2);
  g_object_unref(gc);
}

void* BuildPictureFromBuffer(int32_t width, int32_t height, int32_t type, void* buffer, int32_t rowBytes) {
  if (type != kRBPixelTypeXRGB32 || !buffer || rowBytes < 4 * int64_t{width}) return nullptr;
  Object* o = S().MakePicture(width, height, "REALBuildPictureFromBuffer");
  if (!o) return nullptr;
  S().DrawPixels(o, static_cast<const uint32_t*>(buffer), rowBytes / 4);
  return o->handle;
}

void* GetPictureMask(void* handle, HostBool create) {
  Object* o = S().FindKind(handle, ObjectKind::Picture, "REALGetPictureMask");
  if (!o) return nullptr;
  if (!o->mask && (create & 0xFF)) {
    Object* mask = S().MakePicture(o->width, o->height, "REALGetPictureMask");
    if (!mask) return nullptr;
    std::vector<uint32_t> white(static_cast<size_t>(o->width) * o->height, 0xFFFFFF);
    S().DrawPixels(mask, white.data(), o->width);
    o->mask = mask;  // the picture holds the mask's first reference
  }
  if (!o->mask) return nullptr;
  S().AddReference(o->mask, "REALGetPictureMask");
  return o->mask->handle;
}

void* BuildPictureFromGWorld(void*, HostBool) { return nullptr; }

// --- Instances ---------------------------------------------------------------------

void* NewInstance(const char* className) {
  const ClassInfo* cls = className ? S().FindClassInfo(className, false) : nullptr;
  if (!cls) return nullptr;
  return S().MakeInstance(*cls, "PluginNewInstance")->handle;
}

HostBool GetPropValueInt(void* handle, const char* name, int32_t* value) {
  Object* o = S().FindKind(handle, ObjectKind::Instance, "REALGetPropValueInt");
  if (!o || !name || !value) return 0;
  for (const PropertyInfo& p : o->cls->properties) {
    if (p.name == name && p.type == "Integer" && !p.getter) {
      std::memcpy(value, o->memory + o->cls->dataOffset + p.offset, sizeof *value);
      return 1;
    }
  }
  return 0;
}

HostBool SetPropValueString(void*, const char*, void*) { return 0; }  // no string properties here

// --- Memory blocks -----------------------------------------------------------------

void* NewMemoryBlock(int32_t size) {
  Object* o = S().MakeBlock(size, "newMemoryBlock");
  return o ? o->handle : nullptr;
}

void* MemoryBlockGetPtr(void* handle) {
  Object* o = S().FindKind(handle, ObjectKind::MemoryBlock, "memoryBlockGetPtr");
  return o ? BlockData(o) : nullptr;
}

int32_t MemoryBlockGetSize(void* handle) {
  Object* o = S().FindKind(handle, ObjectKind::MemoryBlock, "memoryBlockGetSize");
  return o ? BlockSize(o) : 0;
}

// A view of memory owned by the plug-in. Its size is known only when the
// memory lies inside the instance data of a class instance: then it reaches
// to the end of that data; otherwise it is 0.
void* PtrToMemoryBlock(void* data) {
  if (!data) return nullptr;
  Object* o = S().NewObject(ObjectKind::MemoryBlock, "PtrToMemoryBlock");
  o->view = static_cast<uint8_t*>(data);
  for (auto& [id, other] : S().objects) {
    if (other->kind != ObjectKind::Instance || other->dead) continue;
    uint8_t* begin = other->memory + other->cls->dataOffset;
    uint8_t* end = begin + other->cls->dataSize;
    if (o->view >= begin && o->view < end) o->viewSize = static_cast<int32_t>(end - o->view);
  }
  S().byHandle[o->handle] = o;
  return o->handle;
}

// --- Strings ------------------------------------------------------------------------

void* BuildString(const void* bytes, int32_t length) {
  Object* o = S().MakeString(bytes, length, 0xFFFF, "REALBuildString");
  return o ? o->handle : nullptr;
}

void SetStringEncoding(void* handle, uint32_t encoding) {
  if (Object* o = S().FindKind(handle, ObjectKind::String, "REALSetStringEncoding")) o->string->encoding = encoding;
}

uint32_t GetStringEncoding(void* handle) {
  Object* o = S().FindKind(handle, ObjectKind::String, "REALGetStringEncoding");
  return o ? o->string->encoding : 0;
}

const char* IconvName(uint32_t encoding) {
  switch (encoding) {
    case kEncodingMacRoman: return "MACINTOSH";
    case kEncodingUTF16: return "UTF-16LE";
    case kEncodingASCII: return "ASCII";
    case kEncodingUTF8: return "UTF-8";
    default: return nullptr;
  }
}

// A new string holding the text in another encoding; null when it cannot be
// converted. Strings of unknown encoding are taken as bytes.
void* ConvertString(void* handle, uint32_t encoding) {
  Object* o = S().FindKind(handle, ObjectKind::String, "REALConvertString");
  if (!o) return nullptr;
  const REALstringData* s = o->string.get();
  const char* from = IconvName(s->encoding);
  const char* to = IconvName(encoding);
  std::string bytes(s->storage + 1, static_cast<size_t>(s->length));
  if (from && to && s->encoding != encoding) {
    gsize written = 0;
    gchar* converted = g_convert(bytes.data(), static_cast<gssize>(bytes.size()), to, from, nullptr, &written, nullptr);
    if (!converted) return nullptr;
    bytes.assign(converted, written);
    g_free(converted);
  }
  Object* result = S().MakeString(bytes.data(), static_cast<int32_t>(bytes.size()), encoding, "REALConvertString");
  return result ? result->handle : nullptr;
}

uint32_t GetFontEncoding(const char*) { return kEncodingUTF8; }

// --- Folder items ---------------------------------------------------------------

void* FolderItemFromPath(const char* path) {
  if (!path) return nullptr;
  Object* o = S().NewObject(ObjectKind::FolderItem, "FolderItemFromPath");
  o->path = path;
  S().byHandle[o->handle] = o;
  return o->handle;
}

void* PathFromFolderItem(void* handle) {
  Object* o = S().FindKind(handle, ObjectKind::FolderItem, "REALpathFromFolderItem");
  if (!o) return nullptr;
  Object* s =
      S().MakeString(o->path.data(), static_cast<int32_t>(o->path.size()), kEncodingUTF8, "REALpathFromFolderItem");
  return s ? s->handle : nullptr;
}

// --- Services this host has no use for -------------------------------------------------

HostBool InRuntime() { return 1; }
HostBool InDebugMode() { return 0; }
HostBool GetControlVisible(void*) { return 0; }
HostBool GetControlEnabled(void*) { return 0; }
HostBool GetTabPanelVisible(void*) { return 0; }
HostBool IsHIViewWindow(void*) { return 0; }
void* GetControlWindow(void*) { return nullptr; }
void* GraphicsDC(void*) { return nullptr; }
void* GetWindowHandle(void*) { return nullptr; }
void* GetEventInstance(void*, void*) { return nullptr; }
void* LoadGlobalMethod(void*, void*) { return nullptr; }
void* LoadObjectMethod(void*, void*) { return nullptr; }
void* SocketRead(void*, int32_t) { return nullptr; }
void* SocketLookahead(void*, int32_t) { return nullptr; }
void* ArrayString(void*, int32_t) { return nullptr; }
void* ArrayObject(void*, int32_t) { return nullptr; }
void MarkSocketUsage() {}
void YieldToRB() {}
void SocketWrite(void*, void*) {}
int32_t ArrayInt(void*, int32_t) { return 0; }
int32_t ArrayUBound(void*) { return -1; }
void GetControlBounds(void*, RB::Rect* bounds) {
  if (bounds) *bounds = {};
}

void MessageBox(void* handle) {
  Object* o = S().FindKind(handle, ObjectKind::String, "RuntimeMsgBox");
  if (o) std::fprintf(stderr, "message: %.*s\n", o->string->length, o->string->storage + 1);
}

void RaiseException(void*) { S().Problem("the plug-in raised an exception in " + S().activity); }

template <typename F>
void* Address(F* f) {
  return reinterpret_cast<void*>(f);
}

}  // namespace

// Every name of the list is answered by the function of the same name above.
void* ResolveEntryPoint(const std::string& name) {
#define PICTURE_SERVICE(id, text) {text, Address(id)},
  static const std::unordered_map<std::string, void*> kServices = {PICTURE_ENTRY_POINTS(PICTURE_SERVICE)};
#undef PICTURE_SERVICE
  auto it = kServices.find(name);
  return it == kServices.end() ? nullptr : it->second;
}

}  // namespace ph
