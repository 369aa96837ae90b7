// A plug-in with one fault per handler, for the tests of the host's own
// checks: each must be reported, never pass unseen or crash the host.
#include <cstdint>

#include "plugin/entry_point_names.h"
#include "plugin/host_interface.h"

namespace {

void* (*gResolve)(const char*) = nullptr;

template <typename F>
F Entry(const char* name) {
  return reinterpret_cast<F>(gResolve(name));
}

// Drops references to its receiver that it never took.
void Release(REALobjectStruct* self, int32_t times) {
  while (times-- > 0) Entry<void (*)(void*)>(entry_point::UnlockObject)(self);
}

// Writes the byte after the block's last one.
void WritePastBlock(REALmemoryBlockStruct* block) {
  auto* bytes = Entry<uint8_t* (*)(void*)>(entry_point::MemoryBlockGetPtr)(block);
  bytes[Entry<int32_t (*)(void*)>(entry_point::MemoryBlockGetSize)(block)] = 1;
}

// Reads the byte after the string's content.
int32_t ReadPastString(REALstringStruct* string) {
  const auto* record = reinterpret_cast<const REALstringData*>(string);
  return record->storage[1 + record->length];
}

int32_t AddOne(int32_t value) { return value + 1; }  // overflows for the largest integer

REALclassDefinition gOverrun{};

// Writes the byte after its 4 bytes of instance data.
void WritePastInstance(REALobjectStruct* self) {
  reinterpret_cast<uint8_t*>(self)[gOverrun.instanceDataOffset + gOverrun.dataSize] = 1;
}

REALmethodDefinition gPictureMethods[] = {{reinterpret_cast<void*>(Release), nullptr, "ReleaseQVT(times as Integer)", 0}};
REALmethodDefinition gGlobals[] = {
    {reinterpret_cast<void*>(WritePastBlock), nullptr, "WritePastBlockQVT(m as MemoryBlock)", 0},
    {reinterpret_cast<void*>(ReadPastString), nullptr, "ReadPastStringQVT(s as String) as Integer", 0},
    {reinterpret_cast<void*>(AddOne), nullptr, "AddOneQVT(i as Integer) as Integer", 0},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void REALPluginMain(void* (*resolve)(const char*)) {
  gResolve = resolve;
  static REALclassDefinition picture{};
  picture.version = kRecordVersion;
  picture.name = "Picture";
  picture.methods = gPictureMethods;
  picture.methodCount = 1;
  Entry<void (*)(REALclassDefinition*)>(entry_point::RegisterClassExtension)(&picture);
  gOverrun.version = kRecordVersion;
  gOverrun.name = "OverrunQVT";
  gOverrun.dataSize = 4;
  gOverrun.constructor = WritePastInstance;
  Entry<void (*)(REALclassDefinition*)>(entry_point::RegisterClass)(&gOverrun);
  for (REALmethodDefinition& m : gGlobals) Entry<void (*)(REALmethodDefinition*)>(entry_point::RegisterMethod)(&m);
}
