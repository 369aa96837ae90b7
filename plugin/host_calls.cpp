#include "plugin/host_calls.h"

HostResolver gResolver = nullptr;

void* HCallResolver(const char* name) { return gResolver ? gResolver(name) : nullptr; }

namespace {

// Booleans cross the boundary as 32-bit words.
using HostBool = int32_t;

HostBool Widen(bool value) { return value ? 1 : 0; }

// Calls the entry point kept in `slot`, asking the resolver for `name` first
// when the slot is empty. A null answer is stored too, so the next call asks
// again; without an entry point the result is the type's zero.
template <typename R, typename... P, typename... A>
R Forward(R (*&slot)(P...), const char* name, A... args) {
  if (!slot) slot = reinterpret_cast<R (*)(P...)>(HCallResolver(name));
  if (!slot) return R();
  return slot(args...);
}

}  // namespace

// Entry points the plug-in uses. Each keeps its own slot.

void REALLockObject(REALobjectStruct* o) {
  static void (*slot)(REALobjectStruct*);
  Forward(slot, "REALLockObject", o);
}
void REALUnlockObject(REALobjectStruct* o) {
  static void (*slot)(REALobjectStruct*);
  Forward(slot, "REALUnlockObject", o);
}
void REALLockPictureDescription(REALpictureStruct* p, REALpictureDescription* d) {
  static void (*slot)(REALpictureStruct*, REALpictureDescription*);
  Forward(slot, "lockPictureDescription", p, d);
}
void REALUnlockPictureDescription(REALpictureStruct* p) {
  static void (*slot)(REALpictureStruct*);
  Forward(slot, "unlockPictureDescription", p);
}
REALpictureStruct* REALNewPicture(int32_t w, int32_t h, int32_t depth) {
  static REALpictureStruct* (*slot)(int32_t, int32_t, int32_t);
  return Forward(slot, "newPicture", w, h, depth);
}
REALgraphicsStruct* REALGetPictureGraphics(REALpictureStruct* p) {
  static REALgraphicsStruct* (*slot)(REALpictureStruct*);
  return Forward(slot, "pluginPictureGraphicsGetter", p);
}
void REALDrawPicturePrimitive(REALgraphicsStruct* g, REALpictureStruct* p, const RB::Rect* r,
                              int32_t flags) {
  static void (*slot)(REALgraphicsStruct*, REALpictureStruct*, const RB::Rect*, int32_t);
  Forward(slot, "REALDrawPicturePrimitive", g, p, r, flags);
}
REALpictureStruct* REALBuildPictureFromBuffer(int32_t w, int32_t h, RBPixelType type,
                                              void* buffer, int32_t rowBytes) {
  static REALpictureStruct* (*slot)(int32_t, int32_t, RBPixelType, void*, int32_t);
  return Forward(slot, "REALBuildPictureFromBuffer", w, h, type, buffer, rowBytes);
}
REALpictureStruct* REALGetPictureMask(REALpictureStruct* p, bool create) {
  static REALpictureStruct* (*slot)(REALpictureStruct*, HostBool);
  return Forward(slot, "REALGetPictureMask", p, Widen(create));
}
REALobjectStruct* REALnewInstance(const char* className) {
  static REALobjectStruct* (*slot)(const char*);
  return Forward(slot, "PluginNewInstance", className);
}
REALmemoryBlockStruct* REALNewMemoryBlock(int32_t size) {
  static REALmemoryBlockStruct* (*slot)(int32_t);
  return Forward(slot, "newMemoryBlock", size);
}
void* REALMemoryBlockGetPtr(REALmemoryBlockStruct* block) {
  static void* (*slot)(REALmemoryBlockStruct*);
  return Forward(slot, "memoryBlockGetPtr", block);
}
REALmemoryBlockStruct* REALPtrToMemoryBlock(void* data) {
  static REALmemoryBlockStruct* (*slot)(void*);
  return Forward(slot, "PtrToMemoryBlock", data);
}
REALstringStruct* originalREALBuildString(const void* data, int32_t length) {
  static REALstringStruct* (*slot)(const void*, int32_t);
  return Forward(slot, "REALBuildString", data, length);
}
void REALSetStringEncoding(REALstringStruct* s, uint32_t encoding) {
  static void (*slot)(REALstringStruct*, uint32_t);
  Forward(slot, "REALSetStringEncoding", s, encoding);
}
REALstringStruct* REALConvertString(REALstringStruct* s, uint32_t encoding) {
  static REALstringStruct* (*slot)(REALstringStruct*, uint32_t);
  return Forward(slot, "REALConvertString", s, encoding);
}
void REALUnlockString(REALstringStruct* s) {
  static void (*slot)(REALstringStruct*);
  Forward(slot, "REALUnlockString", s);
}
uint32_t REALGetFontEncoding(const char* fontName) {
  static uint32_t (*slot)(const char*);
  return Forward(slot, "REALGetFontEncoding", fontName);
}
REALstringStruct* REALpathFromFolderItem(REALfolderItemStruct* item) {
  static REALstringStruct* (*slot)(REALfolderItemStruct*);
  return Forward(slot, "REALpathFromFolderItem", item);
}
double REALGetRBVersion() {
  static double (*slot)();
  return Forward(slot, "REALGetRBVersion");
}
int32_t REALMemoryBlockGetSize(REALmemoryBlockStruct* block) {
  static int32_t (*slot)(REALmemoryBlockStruct*);
  return Forward(slot, "memoryBlockGetSize", block);
}
