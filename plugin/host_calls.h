// The layer through which every host service is called. Each function finds
// its entry point by name through the resolver on first use, keeps it, and
// forwards arguments and result unchanged. A missing entry point makes the
// call do nothing and return 0 (and is asked for again next time).
#pragma once

#include "plugin/host_interface.h"

using HostResolver = void* (*)(const char* name);

extern HostResolver gResolver;

// Every host object handle (picture, graphics, memory block, instance) is an
// object to the reference counting calls.
template <typename T>
inline REALobjectStruct* AsObject(T* handle) {
  return reinterpret_cast<REALobjectStruct*>(handle);
}

// The resolver's answer for a name, unchanged (null without a resolver).
void* HCallResolver(const char* name);

// Entry points the plug-in uses.
void REALLockObject(REALobjectStruct* object);
void REALUnlockObject(REALobjectStruct* object);
void REALLockPictureDescription(REALpictureStruct* picture, REALpictureDescription* description);
void REALUnlockPictureDescription(REALpictureStruct* picture);
REALpictureStruct* REALNewPicture(int32_t width, int32_t height, int32_t depth);
REALgraphicsStruct* REALGetPictureGraphics(REALpictureStruct* picture);
void REALDrawPicturePrimitive(REALgraphicsStruct* graphics, REALpictureStruct* picture, const RB::Rect* rect,
                              int32_t flags);
REALpictureStruct* REALBuildPictureFromBuffer(int32_t width, int32_t height, RBPixelType type, void* buffer,
                                              int32_t rowBytes);
REALpictureStruct* REALGetPictureMask(REALpictureStruct* picture, bool create);
REALobjectStruct* REALnewInstance(const char* className);
REALmemoryBlockStruct* REALNewMemoryBlock(int32_t size);
void* REALMemoryBlockGetPtr(REALmemoryBlockStruct* block);
REALmemoryBlockStruct* REALPtrToMemoryBlock(void* data);
REALstringStruct* originalREALBuildString(const void* data, int32_t length);
void REALSetStringEncoding(REALstringStruct* string, uint32_t encoding);
REALstringStruct* REALConvertString(REALstringStruct* string, uint32_t encoding);
void REALUnlockString(REALstringStruct* string);
uint32_t REALGetFontEncoding(const char* fontName);
REALstringStruct* REALpathFromFolderItem(REALfolderItemStruct* item);
double REALGetRBVersion();

// The rest of the layer: entry points that no method of this plug-in calls,
// kept so that every host service a plug-in may use is reached the same way.
bool REALinRuntime();
void GraphicsDrawLine(REALgraphicsStruct* graphics, int32_t x1, int32_t y1, int32_t x2, int32_t y2);
void REALLockString(REALstringStruct* string);
REALpictureStruct* REALBuildPictureFromGWorld(void* world, bool giveOwnership);
void* REALGetEventInstance(REALcontrolInstanceStruct* control, REALevent* event);
void REALGetControlBounds(REALcontrolInstanceStruct* control, RB::Rect* bounds);
bool REALGetControlVisible(REALcontrolInstanceStruct* control);
bool REALGetControlEnabled(REALcontrolInstanceStruct* control);
REALfolderItemStruct* REALFolderItemFromPath(const char* path);
REALwindowStruct* REALGetControlWindow(REALcontrolInstanceStruct* control);
void REALMarkSocketUsage();
REALstringStruct* REALSocketRead(REALsocketStruct* socket, int32_t count);
void REALSocketWrite(REALsocketStruct* socket, REALstringStruct* data);
REALstringStruct* REALSocketLookahead(REALsocketStruct* socket, int32_t count);
void REALMessageBox(REALstringStruct* text);
int32_t REALMemoryBlockGetSize(REALmemoryBlockStruct* block);
void REALRaiseException(REALobjectStruct* exception);
int32_t REALGetArrayUBound(void* array);
int32_t REALGetArrayInt(REALintArrayStruct* array, int32_t index);
REALstringStruct* REALGetArrayString(REALstringArrayStruct* array, int32_t index);
REALobjectStruct* REALGetArrayObject(REALobjectArrayStruct* array, int32_t index);
bool REALGetTabPanelVisible(REALcontrolInstanceStruct* control);
void REALYieldToRB();
uint32_t REALGetStringEncoding(REALstringStruct* string);
bool REALIsHIViewWindow(REALwindowStruct* window);
bool REALInDebugMode();
void* REALGraphicsDC(REALgraphicsStruct* graphics);
void* REALLoadGlobalMethod(const char* module, const char* prototype);
void* REALLoadObjectMethod(REALobjectStruct* object, const char* prototype);
bool REALGetPropValue(REALobjectStruct* object, const char* name, int32_t* value);
bool REALSetPropValue(REALobjectStruct* object, const char* name, REALstringStruct* value);
void REALLockPictureDescription(REALpictureStruct* picture, REALpictureDescription* description, int32_t flags);
void* REALGetWindowHandle(REALwindowStruct* window);
