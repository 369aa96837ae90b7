// The exported entry point and the registration sequence.
#include <cstdlib>

#include "plugin/entry_point_names.h"
#include "plugin/host_calls.h"
#include "plugin/registration.h"

const char* rbpluginname = nullptr;

namespace {

// Hosts below this version read method lists in the 12-byte form. A host
// without "REALGetRBVersion" answers 0.0 and counts as old; an unordered
// comparison (not-a-number) counts as new.
constexpr double kFullMethodRecordVersion = 5.9;

// Replaces a method list by a copy in the 12-byte form for an old host. The
// 16-byte list stays where it is; the copy is never freed (the host keeps it).
// When the copy cannot be made the list is left as it was.
void AdaptMethodList(REALmethodDefinition*& methods, uint32_t count) {
  if (!(REALGetRBVersion() < kFullMethodRecordVersion) || !methods || count == 0) return;
  auto* copy = static_cast<REALmethodDefinitionOld*>(std::calloc(count, sizeof(REALmethodDefinitionOld)));
  if (!copy) return;
  for (uint32_t i = 0; i < count; ++i) {
    copy[i] = {methods[i].function, methods[i].setterFunction, methods[i].declaration};
  }
  methods = reinterpret_cast<REALmethodDefinition*>(copy);
}

// Finds a registration entry point on first use, adapts the record's method
// list (class, extension, control and module records) for an old host, and hands the record over when the host has the
// entry.
template <typename Record>
void Register(void (*&slot)(Record*), const char* name, Record* record) {
  if (!slot) slot = reinterpret_cast<void (*)(Record*)>(HCallResolver(name));
  if constexpr (requires { record->methods; }) {
    AdaptMethodList(record->methods, record->methodCount);
  }
  if (slot) slot(record);
}

}  // namespace

void REALRegisterClass(REALclassDefinition* record) {
  static void (*slot)(REALclassDefinition*) = nullptr;
  Register(slot, entry_point::RegisterClass, record);
}

void REALRegisterClassExtension(REALclassDefinition* record) {
  static void (*slot)(REALclassDefinition*) = nullptr;
  Register(slot, entry_point::RegisterClassExtension, record);
}

void REALRegisterMethod(REALmethodDefinition* method) {
  static void (*slot)(REALmethodDefinition*) = nullptr;
  Register(slot, entry_point::RegisterMethod, method);
}

void REALRegisterControl(REALcontrol* record) {
  static void (*slot)(REALcontrol*) = nullptr;
  Register(slot, entry_point::RegisterControl, record);
}

void REALRegisterModule(REALmoduleDefinition* record) {
  static void (*slot)(REALmoduleDefinition*) = nullptr;
  Register(slot, entry_point::RegisterModule, record);
}

void PluginStart(const char* name) { rbpluginname = name; }

extern "C" void REALPluginMain(void* (*resolver)(const char*)) {
  gResolver = resolver;
  if (auto announce = reinterpret_cast<void (*)(int32_t)>(HCallResolver(entry_point::RegisterPluginVersion))) {
    announce(9);
  }
  PluginEntry();
}
