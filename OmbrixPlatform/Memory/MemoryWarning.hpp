#pragma once

#include <memory>
#include <mutex>

#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {

/// Tells handlers that memory runs short, so that they give some back. Any thread.
class MemoryWarningSource {
 public:
  MemoryWarningSource() = default;
  MemoryWarningSource(const MemoryWarningSource&) = delete;
  MemoryWarningSource& operator=(const MemoryWarningSource&) = delete;
  virtual ~MemoryWarningSource() = default;

  /// Calls the handler at each warning, on the thread that brings it, until the token ends.
  ObservationToken connect(Signal<>::Handler handler);

  /// Sends a warning to all: for hosts that learn of it themselves.
  void send() const { signal_.send(); }

 protected:
  /// Begins to watch the system; called once, when somebody wants to know.
  virtual void startWatching() {}

 private:
  Signal<> signal_;
  std::once_flag watching_;
};

/// Watches the kernel's pressure-stall information, else the events of the program's control group,
/// on a thread of its own; where there is neither, warnings come from the host alone.
std::shared_ptr<MemoryWarningSource> makeSystemMemoryWarningSource();

/// The memory warnings of this process (the service `memoryWarnings`).
MemoryWarningSource& UIApplicationDidReceiveMemoryWarningNotification();

}  // namespace ombrix::platform
