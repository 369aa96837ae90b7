// The names under which the plug-in asks its host for services, byte for byte
// as the runtime answers them, each with an identifier. The plug-in resolves
// them (host_calls.cpp, plugin_main.cpp) and the emulated host answers them
// (host/entry_points.cpp, with a function of each identifier's name), both
// from this one list.
#pragma once

#define PICTURE_ENTRY_POINTS(X)                             \
  X(RegisterPluginVersion, "RegisterPluginVersion")         \
  X(GetRBVersion, "REALGetRBVersion")                       \
  X(RegisterClass, "PluginRegisterClass")                   \
  X(RegisterClassExtension, "PluginRegisterClassExtension") \
  X(RegisterMethod, "PluginRegisterMethod")                 \
  X(RegisterControl, "PluginRegisterControl")               \
  X(RegisterModule, "PluginRegisterModule")                 \
  X(LockObject, "REALLockObject")                           \
  X(UnlockObject, "REALUnlockObject")                       \
  X(LockDescription, "lockPictureDescription")              \
  X(LockDescriptionWithFlags, "REALLockPictureDescription") \
  X(UnlockDescription, "unlockPictureDescription")          \
  X(NewPicture, "newPicture")                               \
  X(PictureGraphics, "pluginPictureGraphicsGetter")         \
  X(DrawPicturePrimitive, "REALDrawPicturePrimitive")       \
  X(BuildPictureFromBuffer, "REALBuildPictureFromBuffer")   \
  X(GetPictureMask, "REALGetPictureMask")                   \
  X(NewInstance, "PluginNewInstance")                       \
  X(NewMemoryBlock, "newMemoryBlock")                       \
  X(MemoryBlockGetPtr, "memoryBlockGetPtr")                 \
  X(MemoryBlockGetSize, "memoryBlockGetSize")               \
  X(PtrToMemoryBlock, "PtrToMemoryBlock")                   \
  X(BuildString, "REALBuildString")                         \
  X(SetStringEncoding, "REALSetStringEncoding")             \
  X(GetStringEncoding, "REALGetStringEncoding")             \
  X(ConvertString, "REALConvertString")                     \
  X(LockString, "REALLockString")                           \
  X(UnlockString, "REALUnlockString")                       \
  X(GetFontEncoding, "REALGetFontEncoding")                 \
  X(PathFromFolderItem, "REALpathFromFolderItem")           \
  X(FolderItemFromPath, "FolderItemFromPath")               \
  X(InRuntime, "REALinRuntime")                             \
  X(GraphicsDrawLine, "RuntimeGraphicsDrawLine")            \
  X(BuildPictureFromGWorld, "REALBuildPictureFromGWorld")   \
  X(GetEventInstance, "GetEventInstance")                   \
  X(GetControlBounds, "GetControlBounds")                   \
  X(GetControlVisible, "GetControlVisible")                 \
  X(GetControlEnabled, "REALGetControlEnabled")             \
  X(GetControlWindow, "getControlWindow")                   \
  X(MarkSocketUsage, "PluginMarkSocketUsage")               \
  X(SocketRead, "pluginSocketRead")                         \
  X(SocketWrite, "SocketWrite")                             \
  X(SocketLookahead, "pluginSocketLookahead")               \
  X(MessageBox, "RuntimeMsgBox")                            \
  X(RaiseException, "RuntimeRaiseException")                \
  X(ArrayUBound, "RuntimeUBound")                           \
  X(ArrayInt, "RuntimeDirectReadIntArray")                  \
  X(ArrayString, "RuntimeDirectReadStringArray")            \
  X(ArrayObject, "RuntimeDirectReadObjectArray")            \
  X(GetTabPanelVisible, "GetTabPanelVisible")               \
  X(YieldToRB, "REALYieldToRB")                             \
  X(IsHIViewWindow, "REALIsHIViewWindow")                   \
  X(InDebugMode, "REALInDebugMode")                         \
  X(GraphicsDC, "REALGraphicsDC")                           \
  X(LoadGlobalMethod, "REALLoadGlobalMethod")               \
  X(LoadObjectMethod, "REALLoadObjectMethod")               \
  X(GetPropValueInt, "REALGetPropValueInt")                 \
  X(SetPropValueString, "REALSetPropValueString")           \
  X(GetWindowHandle, "REALGetWindowHandle")

// Each name as a constant: entry_point::LockObject is "REALLockObject".
namespace entry_point {
#define PICTURE_ENTRY_POINT_NAME(id, name) inline constexpr char id[] = name;
PICTURE_ENTRY_POINTS(PICTURE_ENTRY_POINT_NAME)
#undef PICTURE_ENTRY_POINT_NAME
}  // namespace entry_point
