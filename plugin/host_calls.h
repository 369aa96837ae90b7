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
void REALDrawPicturePrimitive(REALgraphicsStruct* graphics, REALpictureStruct* picture,
                              const RB::Rect* rect, int32_t flags);
REALpictureStruct* REALBuildPictureFromBuffer(int32_t width, int32_t height, RBPixelType type,
                                              void* buffer, int32_t rowBytes);
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
int32_t REALMemoryBlockGetSize(REALmemoryBlockStruct* block);
