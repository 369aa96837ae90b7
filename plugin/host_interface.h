// The records and handle types shared by the REALbasic host and this plug-in.
//
// The host reads the registration records and writes one word of each class
// record; the plug-in reads the picture description and the string record that
// the host fills. On 32-bit x86 every record has exactly the byte layout the
// host expects (checked below); on x86-64 pointer fields are 8 bytes wide and
// the same header serves the emulated host and the plug-in alike.
#pragma once

#include <cstddef>
#include <cstdint>

// Opaque host handles. Nil is a null pointer.
struct REALobjectStruct;
struct REALpictureStruct;
struct REALgraphicsStruct;
struct REALmemoryBlockStruct;
struct REALstringStruct;
struct REALfolderItemStruct;
struct REALcontrolInstanceStruct;
struct REALwindowStruct;
struct REALsocketStruct;
struct REALintArrayStruct;
struct REALstringArrayStruct;
struct REALobjectArrayStruct;
struct REALevent;
struct REALcontrol;
struct REALmoduleDefinition;

// One registered method: 16 bytes on 32-bit x86 (12 in the old-host form,
// which keeps only the first three words).
struct REALmethodDefinition {
  void* function;        // handler
  void* setterFunction;  // setter handler, or null
  const char* declaration;
  uint32_t flags;
};

// The old-host (below 5.9) form of a method record.
struct REALmethodDefinitionOld {
  void* function;
  void* setterFunction;
  const char* declaration;
};

// One property: 40 bytes on 32-bit x86.
struct REALpropertyDefinition {
  const char* group;
  const char* name;
  const char* type;  // "Picture", "Integer" or "Double"
  uint32_t flags;
  void* getter;  // kStandardAccessor for the host's own accessor
  void* setter;
  uint32_t param;  // offset of the value within the instance data
  uint32_t reserved[3];
};

// Getter/setter word that asks the host for its standard accessor.
inline void* const kStandardAccessor = reinterpret_cast<void*>(~uintptr_t{0});

// A class or class-extension record: 100 bytes on 32-bit x86.
struct REALclassDefinition {
  uint32_t version;
  const char* name;
  const char* superName;
  uint32_t dataSize;
  uint32_t instanceDataOffset;  // written by the host at registration
  void (*constructor)(REALobjectStruct*);
  void (*destructor)(REALobjectStruct*);
  REALpropertyDefinition* properties;
  uint32_t propertyCount;
  REALmethodDefinition* methods;
  uint32_t methodCount;
  void* events;
  uint32_t eventCount;
  uint32_t reserved[12];
};

constexpr uint32_t kRecordVersion = 9;

// The method list of a control record sits at byte offsets 40 (list) and 44
// (count) on 32-bit x86; this plug-in registers no control, so only that part
// of the record is described.
struct REALcontrol {
  uint32_t head[10];
  REALmethodDefinition* methods;
  uint32_t methodCount;
};

// A module record: method list at byte offsets 8 and 12 on 32-bit x86.
struct REALmoduleDefinition {
  uint32_t version;
  const char* name;
  REALmethodDefinition* methods;
  uint32_t methodCount;
};

// Filled by the host when a picture is locked: 24 bytes on 32-bit x86.
struct REALpictureDescription {
  int32_t pictureType;  // 6: handle is a GdkDrawable
  void* pictureData;    // the drawable for type 6
  int32_t width;
  int32_t height;
  int32_t reserved[2];
};

constexpr int32_t kPictureTypeGdkDrawable = 6;

namespace RB {
struct Rect {
  int16_t top, left, bottom, right;
};
}  // namespace RB

// Buffer pixel formats understood by REALBuildPictureFromBuffer. The plug-in
// only uses 4: little-endian 32-bit words 0x00RRGGBB.
enum RBPixelType : int32_t {
  kRBPixelTypeXRGB32 = 4,
};

// The part of the host string record the plug-in reads directly: the word at
// offset 4 is the storage address (the content starts one byte after it), the
// word at offset 12 the content length in bytes.
struct REALstringData {
  int32_t referenceCount;
  const char* storage;
  uint32_t encoding;
  int32_t length;
};

// Text encodings exchanged with the host.
constexpr uint32_t kEncodingMacRoman = 0;
constexpr uint32_t kEncodingUTF16 = 0x100;
constexpr uint32_t kEncodingASCII = 0x600;
constexpr uint32_t kEncodingUTF8 = 0x08000100;

#if defined(__i386__)
static_assert(sizeof(REALmethodDefinition) == 16);
static_assert(sizeof(REALmethodDefinitionOld) == 12);
static_assert(sizeof(REALpropertyDefinition) == 40);
static_assert(offsetof(REALpropertyDefinition, name) == 4);
static_assert(offsetof(REALpropertyDefinition, type) == 8);
static_assert(offsetof(REALpropertyDefinition, getter) == 16);
static_assert(offsetof(REALpropertyDefinition, param) == 24);
static_assert(sizeof(REALclassDefinition) == 100);
static_assert(offsetof(REALclassDefinition, instanceDataOffset) == 16);
static_assert(offsetof(REALclassDefinition, properties) == 28);
static_assert(offsetof(REALclassDefinition, methods) == 36);
static_assert(offsetof(REALclassDefinition, events) == 44);
static_assert(offsetof(REALcontrol, methods) == 40);
static_assert(offsetof(REALcontrol, methodCount) == 44);
static_assert(offsetof(REALmoduleDefinition, methods) == 8);
static_assert(offsetof(REALmoduleDefinition, methodCount) == 12);
static_assert(sizeof(REALpictureDescription) == 24);
static_assert(offsetof(REALpictureDescription, pictureData) == 4);
static_assert(offsetof(REALpictureDescription, width) == 8);
static_assert(offsetof(REALpictureDescription, height) == 12);
static_assert(sizeof(RB::Rect) == 8);
static_assert(offsetof(RB::Rect, left) == 2 && offsetof(RB::Rect, bottom) == 4 && offsetof(RB::Rect, right) == 6);
static_assert(offsetof(REALstringData, storage) == 4);
static_assert(offsetof(REALstringData, length) == 12);
#endif
