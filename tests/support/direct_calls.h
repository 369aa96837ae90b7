// Direct calls of the plug-in code linked into a test program. While a
// DirectCalls lives, that code reaches the shared host's services through a
// resolver that logs picture description locks and can make a few services
// fail; the host's accounting still sees every object it makes.
#pragma once

#include <vector>

#include "plugin/host_interface.h"
#include "tests/support/host_fixture.h"

// The plug-in's view of a host picture, for calling its handlers directly.
inline REALpictureStruct* Handle(const ph::Ref& r) { return static_cast<REALpictureStruct*>(r.handle()); }

struct LockEvent { bool lock; const void* picture; bool operator==(const LockEvent&) const = default; };

class DirectCalls {
 public:
  explicit DirectCalls(ph::Host& host);
  ~DirectCalls();
  DirectCalls(const DirectCalls&) = delete;
  DirectCalls& operator=(const DirectCalls&) = delete;

  // "newPicture" gives nil: a foreign picture cannot be cloned, so it is unreadable.
  void RefuseNewPictures(bool refuse);
  // "REALBuildPictureFromBuffer" fails from its n-th call on (0: never); counts anew.
  void FailBuildsFrom(int n);
  int Builds() const;  // builds asked for since
  void FailConversions(bool fail);  // "REALConvertString" gives nil
  void HideBlockData(bool hide);    // "memoryBlockGetPtr" gives null
  int VersionQuestions() const;     // "REALGetRBVersion" calls so far
  std::vector<LockEvent> TakeLockEvents();

  // An owned reference to an object whose handle the plug-in returned.
  ph::Ref Adopt(const void* handle);

 private:
  ph::Host& host_;
};
