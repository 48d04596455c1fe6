// The library's one object: the registry of routes and FIFOs.
#pragma once

#include <zelk/Block.h>
#include <zelk/Export.h>
#include <zelk/FIFO.h>
#include <zelk/Route.h>

namespace zelk {

/// Creates and deletes routes and FIFOs, and serves the debug console for as long as it lives.
///
/// The first `Instance()` reads "/etc/zelk.conf", sets the logging up and starts the console. At
/// process exit the console ends, then all routes and FIFOs that are left are deleted, newest
/// first.
class ZELK_EXPORT Zelk {
 public:
  /// The singleton; never null. Throws what creating the console's thread throws, and tries again
  /// at the next call. [any-thread]
  static Zelk* Instance();

  // The order of the virtual operations is part of the binary interface.

  /// Creates a route named "Route" plus one capital letter, stopped and empty, with a thread of its
  /// own. `callbacks` may be null and must outlive the route. Null, with the reason logged, for any
  /// other name and for one in use. Throws what creating the thread throws. [any-thread]
  virtual Route* NewRoute(const char* name, Route::Callbacks* callbacks) = 0;

  /// Stops the route, deletes its graph, and returns after its thread has ended. Null is ignored; a
  /// pointer that is no route, and a call from the route's own thread, are logged and refused.
  /// [any-thread]
  virtual void DeleteRoute(Route* route) = 0;

  /// Creates a FIFO of `capacity` elements of `elementSize` bytes that starts with `prefill` zero
  /// elements (at most `capacity`). `rate`, in elements per second, is for time stamps; 0 keeps
  /// none. Null when no name is free; throws std::bad_alloc or std::length_error when the size
  /// cannot be allocated. [any-thread]
  virtual FIFO* NewFIFO(unsigned int rate, unsigned long elementSize, long capacity,
                        long prefill) = 0;

  /// Deletes a FIFO that no thread waits in; call its `Shutdown()` first. Null is ignored, an
  /// unknown pointer is logged. [any-thread]
  virtual void DeleteFIFO(FIFO* fifo) = 0;

  virtual ~Zelk();
};

}  // namespace zelk
