#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"

namespace ombrix::platform {

/// Passes values by identifier between the programs of a group; the last message of each identifier
/// stays readable. All operations may be called from any thread.
class MessageChannel {
 public:
  /// Called with a new message.
  using Listener = std::move_only_function<void(const PropertyList& message)>;

  virtual ~MessageChannel() = default;

  /// Passes a message to the listeners of the identifier and to later readers; returns whether that
  /// worked. Throws `PropertyListError` for a value that a property list cannot represent.
  virtual bool passMessageObject(const PropertyList& message, std::string_view identifier) = 0;

  /// The last message of the identifier, from any program; empty when there is none.
  [[nodiscard]] virtual std::optional<PropertyList> messageWithIdentifier(
      std::string_view identifier) const = 0;

  /// Removes the message of the identifier. Listeners are not called: that is not a message.
  virtual void clearMessageContentsForIdentifier(std::string_view identifier) = 0;

  /// Calls the listener for every message of the identifier that another program passes, on a
  /// thread of the channel, until the token ends.
  virtual ObservationToken listenForMessageWithIdentifier(std::string_view identifier,
                                                          Listener listener) = 0;

  /// Stops calling listeners, for an orderly shutdown by the owner of the channel: when it returns,
  /// no listener is running and none is called any more. Messages can still be passed and read. A
  /// second call does nothing. Stops the program when called from a listener.
  virtual void close() {}
};

}  // namespace ombrix::platform
