// SPDX-License-Identifier: GPL-2.0-only
#include "world/library_world.h"

#include <memory>

#include "api/library.h"
#include "call/application_events.h"
#include "runtime/config.h"
#include "runtime/log.h"

namespace zelk::sim {

namespace {

template <class Object>
void MakeAnew(Object& object) {
  std::destroy_at(&object);
  new (&object) Object;
}

// In the order in which a process unloads them. Nothing of this waits: it happens outside of the world.
void MakeLibraryAnew() {
  MakeAnew(Library());
  MakeAnew(Log());
  MakeAnew(Config());
  MakeAnew(ApplicationEvents());
}

}  // namespace

SOutcome RunLibrary(CWorld& world, const std::function<void()>& main) {
  MakeLibraryAnew();
  return world.Run([&main] {
    main();
    Library().Shutdown();
    Log().Finish();
  });
}

}  // namespace zelk::sim
