#include "tests/support/direct_calls.h"

#include <cstring>

#include "host/host_state.h"
#include "plugin/entry_point_names.h"
#include "plugin/host_calls.h"

namespace {

// The switches of the live DirectCalls; all off when there is none. The
// plug-in code keeps the first address it resolves for a name, so the hooks
// stay installed and only their switches change.
struct Hooks {
  bool active = false;
  bool refuseNewPictures = false;
  int failBuildsFrom = 0;
  int builds = 0;
  bool failConversions = false;
  bool hideBlockData = false;
  std::vector<LockEvent> events;
} gHooks;
int gVersionQuestions = 0;

template <typename F>
F Real(const char* name) {
  return reinterpret_cast<F>(ph::ResolveEntryPoint(name));
}

void LoggedLock(void* picture, REALpictureDescription* d) {
  if (gHooks.active) gHooks.events.push_back({true, picture});
  Real<void (*)(void*, REALpictureDescription*)>(entry_point::LockDescription)(picture, d);
}
void LoggedUnlock(void* picture) {
  if (gHooks.active) gHooks.events.push_back({false, picture});
  Real<void (*)(void*)>(entry_point::UnlockDescription)(picture);
}
void* MaybeNewPicture(int32_t w, int32_t h, int32_t depth) {
  return gHooks.refuseNewPictures ? nullptr : Real<void* (*)(int32_t, int32_t, int32_t)>(entry_point::NewPicture)(w, h, depth);
}
void* MaybeBuild(int32_t w, int32_t h, int32_t type, void* buffer, int32_t rowBytes) {
  if (++gHooks.builds >= gHooks.failBuildsFrom && gHooks.failBuildsFrom > 0) return nullptr;
  return Real<void* (*)(int32_t, int32_t, int32_t, void*, int32_t)>(entry_point::BuildPictureFromBuffer)(w, h, type, buffer, rowBytes);
}
void* MaybeConvert(void* text, uint32_t encoding) {
  return gHooks.failConversions ? nullptr : Real<void* (*)(void*, uint32_t)>(entry_point::ConvertString)(text, encoding);
}
void* MaybeBlockData(void* block) {
  return gHooks.hideBlockData ? nullptr : Real<void* (*)(void*)>(entry_point::MemoryBlockGetPtr)(block);
}
double CountedVersion() {
  ++gVersionQuestions;
  return Real<double (*)()>(entry_point::GetRBVersion)();
}

void* Resolve(const char* name) {
  static const std::pair<const char*, void*> kHooks[] = {
      {entry_point::LockDescription, reinterpret_cast<void*>(LoggedLock)},
      {entry_point::UnlockDescription, reinterpret_cast<void*>(LoggedUnlock)},
      {entry_point::NewPicture, reinterpret_cast<void*>(MaybeNewPicture)},
      {entry_point::BuildPictureFromBuffer, reinterpret_cast<void*>(MaybeBuild)},
      {entry_point::ConvertString, reinterpret_cast<void*>(MaybeConvert)},
      {entry_point::MemoryBlockGetPtr, reinterpret_cast<void*>(MaybeBlockData)},
      {entry_point::GetRBVersion, reinterpret_cast<void*>(CountedVersion)}};
  for (const auto& [hooked, address] : kHooks)
    if (!std::strcmp(name, hooked)) return address;
  return ph::ResolveEntryPoint(name);
}

}  // namespace

DirectCalls::DirectCalls(ph::Host& host) : host_(host) {
  host.NewMemoryBlock(1);  // makes `host` the one whose services answer
  gResolver = Resolve;
  gHooks = Hooks{};
  gHooks.active = true;
}

DirectCalls::~DirectCalls() { gHooks = Hooks{}; }
void DirectCalls::RefuseNewPictures(bool refuse) { gHooks.refuseNewPictures = refuse; }
void DirectCalls::FailBuildsFrom(int n) {
  gHooks.failBuildsFrom = n;
  gHooks.builds = 0;
}
int DirectCalls::Builds() const { return gHooks.builds; }
void DirectCalls::FailConversions(bool fail) { gHooks.failConversions = fail; }
void DirectCalls::HideBlockData(bool hide) { gHooks.hideBlockData = hide; }
int DirectCalls::VersionQuestions() const { return gVersionQuestions; }

std::vector<LockEvent> DirectCalls::TakeLockEvents() {
  std::vector<LockEvent> taken;
  taken.swap(gHooks.events);
  return taken;
}

ph::Ref DirectCalls::Adopt(const void* handle) {
  if (!handle) return {};
  return ph::Ref::Adopt(host_.state().byHandle.at(const_cast<void*>(handle)));
}
