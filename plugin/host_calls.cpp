#include "plugin/host_calls.h"

#include "plugin/entry_point_names.h"

HostResolver gResolver = nullptr;

void* HCallResolver(const char* name) { return gResolver ? gResolver(name) : nullptr; }

namespace {

// Booleans cross the boundary as 32-bit words: widened going in, cut to the
// low byte coming back.
using HostBool = int32_t;

HostBool Widen(bool value) { return value ? 1 : 0; }
bool LowByte(HostBool value) { return (static_cast<uint32_t>(value) & 0xFF) != 0; }

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
  Forward(slot, entry_point::LockObject, o);
}
void REALUnlockObject(REALobjectStruct* o) {
  static void (*slot)(REALobjectStruct*);
  Forward(slot, entry_point::UnlockObject, o);
}
void REALLockPictureDescription(REALpictureStruct* p, REALpictureDescription* d) {
  static void (*slot)(REALpictureStruct*, REALpictureDescription*);
  Forward(slot, entry_point::LockDescription, p, d);
}
void REALUnlockPictureDescription(REALpictureStruct* p) {
  static void (*slot)(REALpictureStruct*);
  Forward(slot, entry_point::UnlockDescription, p);
}
REALpictureStruct* REALNewPicture(int32_t w, int32_t h, int32_t depth) {
  static REALpictureStruct* (*slot)(int32_t, int32_t, int32_t);
  return Forward(slot, entry_point::NewPicture, w, h, depth);
}
REALgraphicsStruct* REALGetPictureGraphics(REALpictureStruct* p) {
  static REALgraphicsStruct* (*slot)(REALpictureStruct*);
  return Forward(slot, entry_point::PictureGraphics, p);
}
void REALDrawPicturePrimitive(REALgraphicsStruct* g, REALpictureStruct* p, const RB::Rect* r, int32_t flags) {
  static void (*slot)(REALgraphicsStruct*, REALpictureStruct*, const RB::Rect*, int32_t);
  Forward(slot, entry_point::DrawPicturePrimitive, g, p, r, flags);
}
REALpictureStruct* REALBuildPictureFromBuffer(int32_t w, int32_t h, RBPixelType type, void* buffer, int32_t rowBytes) {
  static REALpictureStruct* (*slot)(int32_t, int32_t, RBPixelType, void*, int32_t);
  return Forward(slot, entry_point::BuildPictureFromBuffer, w, h, type, buffer, rowBytes);
}
REALpictureStruct* REALGetPictureMask(REALpictureStruct* p, bool create) {
  static REALpictureStruct* (*slot)(REALpictureStruct*, HostBool);
  return Forward(slot, entry_point::GetPictureMask, p, Widen(create));
}
REALobjectStruct* REALnewInstance(const char* className) {
  static REALobjectStruct* (*slot)(const char*);
  return Forward(slot, entry_point::NewInstance, className);
}
REALmemoryBlockStruct* REALNewMemoryBlock(int32_t size) {
  static REALmemoryBlockStruct* (*slot)(int32_t);
  return Forward(slot, entry_point::NewMemoryBlock, size);
}
void* REALMemoryBlockGetPtr(REALmemoryBlockStruct* block) {
  static void* (*slot)(REALmemoryBlockStruct*);
  return Forward(slot, entry_point::MemoryBlockGetPtr, block);
}
REALmemoryBlockStruct* REALPtrToMemoryBlock(void* data) {
  static REALmemoryBlockStruct* (*slot)(void*);
  return Forward(slot, entry_point::PtrToMemoryBlock, data);
}
REALstringStruct* originalREALBuildString(const void* data, int32_t length) {
  static REALstringStruct* (*slot)(const void*, int32_t);
  return Forward(slot, entry_point::BuildString, data, length);
}
void REALSetStringEncoding(REALstringStruct* s, uint32_t encoding) {
  static void (*slot)(REALstringStruct*, uint32_t);
  Forward(slot, entry_point::SetStringEncoding, s, encoding);
}
REALstringStruct* REALConvertString(REALstringStruct* s, uint32_t encoding) {
  static REALstringStruct* (*slot)(REALstringStruct*, uint32_t);
  return Forward(slot, entry_point::ConvertString, s, encoding);
}
void REALUnlockString(REALstringStruct* s) {
  static void (*slot)(REALstringStruct*);
  Forward(slot, entry_point::UnlockString, s);
}
uint32_t REALGetFontEncoding(const char* fontName) {
  static uint32_t (*slot)(const char*);
  return Forward(slot, entry_point::GetFontEncoding, fontName);
}
REALstringStruct* REALpathFromFolderItem(REALfolderItemStruct* item) {
  static REALstringStruct* (*slot)(REALfolderItemStruct*);
  return Forward(slot, entry_point::PathFromFolderItem, item);
}
double REALGetRBVersion() {
  static double (*slot)();
  return Forward(slot, entry_point::GetRBVersion);
}

// The rest of the layer: entry points that no method of this plug-in calls,
// kept so that every host service a plug-in may use is reached the same way.

bool REALinRuntime() {
  static HostBool (*slot)();
  return LowByte(Forward(slot, entry_point::InRuntime));
}
void GraphicsDrawLine(REALgraphicsStruct* g, int32_t x1, int32_t y1, int32_t x2, int32_t y2) {
  static void (*slot)(REALgraphicsStruct*, int32_t, int32_t, int32_t, int32_t);
  Forward(slot, entry_point::GraphicsDrawLine, g, x1, y1, x2, y2);
}
void REALLockString(REALstringStruct* s) {
  static void (*slot)(REALstringStruct*);
  Forward(slot, entry_point::LockString, s);
}
REALpictureStruct* REALBuildPictureFromGWorld(void* world, bool giveOwnership) {
  static REALpictureStruct* (*slot)(void*, HostBool);
  return Forward(slot, entry_point::BuildPictureFromGWorld, world, Widen(giveOwnership));
}
void* REALGetEventInstance(REALcontrolInstanceStruct* c, REALevent* e) {
  static void* (*slot)(REALcontrolInstanceStruct*, REALevent*);
  return Forward(slot, entry_point::GetEventInstance, c, e);
}
void REALGetControlBounds(REALcontrolInstanceStruct* c, RB::Rect* bounds) {
  static void (*slot)(REALcontrolInstanceStruct*, RB::Rect*);
  Forward(slot, entry_point::GetControlBounds, c, bounds);
}
bool REALGetControlVisible(REALcontrolInstanceStruct* c) {
  static HostBool (*slot)(REALcontrolInstanceStruct*);
  return LowByte(Forward(slot, entry_point::GetControlVisible, c));
}
bool REALGetControlEnabled(REALcontrolInstanceStruct* c) {
  static HostBool (*slot)(REALcontrolInstanceStruct*);
  return LowByte(Forward(slot, entry_point::GetControlEnabled, c));
}
REALfolderItemStruct* REALFolderItemFromPath(const char* path) {
  static REALfolderItemStruct* (*slot)(const char*);
  return Forward(slot, entry_point::FolderItemFromPath, path);
}
REALwindowStruct* REALGetControlWindow(REALcontrolInstanceStruct* c) {
  static REALwindowStruct* (*slot)(REALcontrolInstanceStruct*);
  return Forward(slot, entry_point::GetControlWindow, c);
}
void REALMarkSocketUsage() {
  static void (*slot)();
  Forward(slot, entry_point::MarkSocketUsage);
}
REALstringStruct* REALSocketRead(REALsocketStruct* s, int32_t count) {
  static REALstringStruct* (*slot)(REALsocketStruct*, int32_t);
  return Forward(slot, entry_point::SocketRead, s, count);
}
void REALSocketWrite(REALsocketStruct* s, REALstringStruct* data) {
  static void (*slot)(REALsocketStruct*, REALstringStruct*);
  Forward(slot, entry_point::SocketWrite, s, data);
}
REALstringStruct* REALSocketLookahead(REALsocketStruct* s, int32_t count) {
  static REALstringStruct* (*slot)(REALsocketStruct*, int32_t);
  return Forward(slot, entry_point::SocketLookahead, s, count);
}
void REALMessageBox(REALstringStruct* text) {
  static void (*slot)(REALstringStruct*);
  Forward(slot, entry_point::MessageBox, text);
}
int32_t REALMemoryBlockGetSize(REALmemoryBlockStruct* block) {
  static int32_t (*slot)(REALmemoryBlockStruct*);
  return Forward(slot, entry_point::MemoryBlockGetSize, block);
}
void REALRaiseException(REALobjectStruct* exception) {
  static void (*slot)(REALobjectStruct*);
  Forward(slot, entry_point::RaiseException, exception);
}
int32_t REALGetArrayUBound(void* array) {
  static int32_t (*slot)(void*);
  return Forward(slot, entry_point::ArrayUBound, array);
}
int32_t REALGetArrayInt(REALintArrayStruct* array, int32_t index) {
  static int32_t (*slot)(REALintArrayStruct*, int32_t);
  return Forward(slot, entry_point::ArrayInt, array, index);
}
REALstringStruct* REALGetArrayString(REALstringArrayStruct* array, int32_t index) {
  static REALstringStruct* (*slot)(REALstringArrayStruct*, int32_t);
  return Forward(slot, entry_point::ArrayString, array, index);
}
REALobjectStruct* REALGetArrayObject(REALobjectArrayStruct* array, int32_t index) {
  static REALobjectStruct* (*slot)(REALobjectArrayStruct*, int32_t);
  return Forward(slot, entry_point::ArrayObject, array, index);
}
bool REALGetTabPanelVisible(REALcontrolInstanceStruct* c) {
  static HostBool (*slot)(REALcontrolInstanceStruct*);
  return LowByte(Forward(slot, entry_point::GetTabPanelVisible, c));
}
void REALYieldToRB() {
  static void (*slot)();
  Forward(slot, entry_point::YieldToRB);
}
uint32_t REALGetStringEncoding(REALstringStruct* s) {
  static uint32_t (*slot)(REALstringStruct*);
  return Forward(slot, entry_point::GetStringEncoding, s);
}
bool REALIsHIViewWindow(REALwindowStruct* w) {
  static HostBool (*slot)(REALwindowStruct*);
  return LowByte(Forward(slot, entry_point::IsHIViewWindow, w));
}
bool REALInDebugMode() {
  static HostBool (*slot)();
  return LowByte(Forward(slot, entry_point::InDebugMode));
}
void* REALGraphicsDC(REALgraphicsStruct* g) {
  static void* (*slot)(REALgraphicsStruct*);
  return Forward(slot, entry_point::GraphicsDC, g);
}
void* REALLoadGlobalMethod(const char* module, const char* prototype) {
  static void* (*slot)(const char*, const char*);
  return Forward(slot, entry_point::LoadGlobalMethod, module, prototype);
}
void* REALLoadObjectMethod(REALobjectStruct* object, const char* prototype) {
  static void* (*slot)(REALobjectStruct*, const char*);
  return Forward(slot, entry_point::LoadObjectMethod, object, prototype);
}
bool REALGetPropValue(REALobjectStruct* object, const char* name, int32_t* value) {
  static HostBool (*slot)(REALobjectStruct*, const char*, int32_t*);
  return LowByte(Forward(slot, entry_point::GetPropValueInt, object, name, value));
}
bool REALSetPropValue(REALobjectStruct* object, const char* name, REALstringStruct* value) {
  static HostBool (*slot)(REALobjectStruct*, const char*, REALstringStruct*);
  return LowByte(Forward(slot, entry_point::SetPropValueString, object, name, value));
}
void REALLockPictureDescription(REALpictureStruct* p, REALpictureDescription* d, int32_t flags) {
  static void (*slot)(REALpictureStruct*, REALpictureDescription*, int32_t);
  Forward(slot, entry_point::LockDescriptionWithFlags, p, d, flags);
}
void* REALGetWindowHandle(REALwindowStruct* w) {
  static void* (*slot)(REALwindowStruct*);
  return Forward(slot, entry_point::GetWindowHandle, w);
}
