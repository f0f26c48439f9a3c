#pragma once

#include <memory>
#include <mutex>

#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {

/// Tells handlers that memory is low, so that they release some. Any thread.
class MemoryWarningSource {
 public:
  MemoryWarningSource() = default;
  MemoryWarningSource(const MemoryWarningSource&) = delete;
  MemoryWarningSource& operator=(const MemoryWarningSource&) = delete;
  virtual ~MemoryWarningSource() = default;

  /// Calls the handler at each warning, on the thread that sends it, until the token ends.
  ObservationToken connect(Signal<>::Handler handler);

  /// Sends a warning to all handlers: for hosts that receive warnings themselves.
  void send() const { signal_.send(); }

 protected:
  /// Starts watching the system; called once, before the first handler is added.
  virtual void startWatching() {}

 private:
  Signal<> signal_;
  std::once_flag watching_;
};

/// Watches the kernel's pressure-stall information, otherwise the events of the program's control
/// group, on a thread of its own; if neither is available, only the host sends warnings.
std::shared_ptr<MemoryWarningSource> makeSystemMemoryWarningSource();

/// The memory warnings of this process (the service `memoryWarnings`).
MemoryWarningSource& UIApplicationDidReceiveMemoryWarningNotification();

}  // namespace ombrix::platform
