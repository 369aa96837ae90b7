#include "tests/tone/tone_test_support.h"

#include <cstring>

#include "host/host_state.h"
#include "plugin/host_calls.h"

namespace tone_test {

namespace {

struct Hooks {
  bool active = false;
  bool refuseNewPictures = false;
  std::vector<LockEvent> events;
} gHooks;

using LockFn = void (*)(void*, REALpictureDescription*);
using UnlockFn = void (*)(void*);
using NewPictureFn = void* (*)(int32_t, int32_t, int32_t);

void LoggedLock(void* picture, REALpictureDescription* d) {
  if (gHooks.active) gHooks.events.push_back({true, picture});
  reinterpret_cast<LockFn>(ph::ResolveEntryPoint("lockPictureDescription"))(picture, d);
}

void LoggedUnlock(void* picture) {
  if (gHooks.active) gHooks.events.push_back({false, picture});
  reinterpret_cast<UnlockFn>(ph::ResolveEntryPoint("unlockPictureDescription"))(picture);
}

void* MaybeNewPicture(int32_t w, int32_t h, int32_t depth) {
  if (gHooks.active && gHooks.refuseNewPictures) return nullptr;
  return reinterpret_cast<NewPictureFn>(ph::ResolveEntryPoint("newPicture"))(w, h, depth);
}

void* Resolve(const char* name) {
  if (!std::strcmp(name, "lockPictureDescription")) return reinterpret_cast<void*>(LoggedLock);
  if (!std::strcmp(name, "unlockPictureDescription")) return reinterpret_cast<void*>(LoggedUnlock);
  if (!std::strcmp(name, "newPicture")) return reinterpret_cast<void*>(MaybeNewPicture);
  return ph::ResolveEntryPoint(name);
}

}  // namespace

DirectCalls::DirectCalls(ph::Host& host) {
  // Any call makes the host the one whose services answer.
  host.CallGlobal("TintPictureQVT", {ph::Value(ph::Ref()), ph::Color{0}, ph::Color{0}});
  gResolver = Resolve;
  gHooks = Hooks{};
  gHooks.active = true;
}

DirectCalls::~DirectCalls() { gHooks = Hooks{}; }

std::vector<LockEvent> DirectCalls::TakeEvents() {
  std::vector<LockEvent> taken;
  taken.swap(gHooks.events);
  return taken;
}

void DirectCalls::RefuseNewPictures(bool refuse) { gHooks.refuseNewPictures = refuse; }

}  // namespace tone_test
