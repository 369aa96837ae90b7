// Registration of the plug-in's classes, class extensions and global methods
// with the host, and the way class handlers reach their instance data.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

extern "C" __attribute__((visibility("default"))) void REALPluginMain(void* (*resolver)(const char*));

void PluginEntry();
void PluginStart(const char* name);
void REALRegisterClass(REALclassDefinition* record);
void REALRegisterClassExtension(REALclassDefinition* record);
void REALRegisterMethod(REALmethodDefinition* method);

extern const char* rbpluginname;

// The class extensions and the global methods (registration.cpp).
extern REALclassDefinition graphicseClass;
extern REALclassDefinition PictureExtensionClass;
extern REALmethodDefinition GlobalMethods[];
extern const uint32_t GlobalMethodCount;

// A handler's address as a registration record holds it.
template <typename Fn>
void* HandlerAddress(Fn* function) {
  return reinterpret_cast<void*>(function);
}

// The instance data of a class instance lies at the offset the host wrote into
// the class record at registration; it is never a constant.
template <typename T>
T& InstanceData(REALobjectStruct* instance, const REALclassDefinition& record) {
  return *reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(instance) + record.instanceDataOffset);
}
