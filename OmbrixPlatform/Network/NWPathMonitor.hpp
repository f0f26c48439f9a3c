#pragma once

#include <functional>
#include <memory>

namespace ombrix::platform {

/// How the network can be reached just now.
struct NWPath {
  enum class Status {
    satisfied,           ///< there is a way out
    unsatisfied,         ///< there is none
    requiresConnection,  ///< there may be one, once something is switched on
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

  /// Called like the other whenever links, addresses or routes have changed, also where the path
  /// stays as it is: a link without a default route leads to its neighbours. Set before `start`; a
  /// monitor that knows nothing of it never calls.
  virtual void setNetworkChangeHandler(std::move_only_function<void()> /*handler*/) {}

  /// Begins to watch; nothing the second time.
  virtual void start() = 0;

  /// Ends it for good: no call of the handler starts after it returns; a call under way on another
  /// thread is waited for.
  virtual void cancel() = 0;

  /// The path as last seen; looked at afresh when the monitor does not run.
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
/// reached. Where the kernel does not let itself be asked it counts as satisfied. None requires a
/// connection. Constrained and expensive both say what NetworkManager says of metering, false
/// where it does not run; a monitor that does not run has not asked it. The first report waits for
/// its answer, at most a second.
std::shared_ptr<NWPathMonitorFactory> makeSystemPathMonitorFactory();

}  // namespace ombrix::platform
