#pragma once

#include <functional>
#include <memory>

namespace ombrix::platform {

/// How the network can be reached at this moment.
struct NWPath {
  enum class Status {
    satisfied,           ///< there is a way out
    unsatisfied,         ///< there is none
    requiresConnection,  ///< there may be one after something is switched on
  };

  Status status = Status::satisfied;
  bool isConstrained = false;  ///< Low Data Mode: spare the network
  bool isExpensive = false;    ///< metered: bytes cost money

  friend bool operator==(const NWPath&, const NWPath&) = default;
};

/// Watches the network path. Any thread.
class NWPathMonitor {
 public:
  using UpdateHandler = std::move_only_function<void(const NWPath&)>;

  virtual ~NWPathMonitor() = default;

  /// Called with the path once it is known after `start` and then on every change, one call at a
  /// time, on a thread of the monitor's; set it before `start`. It must be brief.
  virtual void setPathUpdateHandler(UpdateHandler handler) = 0;

  /// Called in the same way whenever links, addresses or routes have changed, also when the path
  /// stays the same: a link without a default route leads to its neighbours. Set it before `start`.
  /// The default implementation never calls it.
  virtual void setNetworkChangeHandler(std::move_only_function<void()> /*handler*/) {}

  /// Begins to watch; a second call does nothing. When the system has too few descriptors left, it
  /// watches nothing until it is started again.
  virtual void start() = 0;

  /// Ends the watch for good: it waits for a call of the handler that runs on another thread, and
  /// none starts after it returns.
  virtual void cancel() = 0;

  /// The path as last seen; determined anew when the monitor does not run.
  [[nodiscard]] virtual NWPath currentPath() const = 0;
};

/// Makes monitors; a service that hosts and tests may replace.
class NWPathMonitorFactory {
 public:
  virtual ~NWPathMonitorFactory() = default;
  [[nodiscard]] virtual std::shared_ptr<NWPathMonitor> make() = 0;
};

/// Monitors of this machine's links, addresses and routes (the service `pathMonitorFactory`).
///
/// The path is satisfied when a default route leads over a link that is up, running and no
/// loopback: a machine with its loopback alone is unsatisfied, though services on it can be
/// reached. Where the kernel refuses to be asked, it counts as satisfied. No path has the status
/// that a connection is required. Constrained and expensive both state whether NetworkManager calls
/// the network metered; they are false where NetworkManager does not run, and in a monitor that was
/// not started. The first report waits for NetworkManager's answer, at most a second.
std::shared_ptr<NWPathMonitorFactory> makeSystemPathMonitorFactory();

}  // namespace ombrix::platform
