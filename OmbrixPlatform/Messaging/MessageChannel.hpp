#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"

namespace ombrix::platform {

/// Passes values by identifier between the programs of a group; of each identifier the last
/// message stays readable. All operations may be called from any thread.
class MessageChannel {
 public:
  /// Called with a new message.
  using Listener = std::move_only_function<void(const PropertyList& message)>;

  virtual ~MessageChannel() = default;

  /// Leaves a message for those who listen for the identifier or ask for it later; whether it is on
  /// its way. Throws `PropertyListError` for what no property list can hold.
  virtual bool passMessageObject(const PropertyList& message, std::string_view identifier) = 0;

  /// The last message of the identifier, whoever passed it; nothing when there is none.
  [[nodiscard]] virtual std::optional<PropertyList> messageWithIdentifier(
      std::string_view identifier) const = 0;

  /// Removes the message of the identifier. Listeners are not told: that is not a message.
  virtual void clearMessageContentsForIdentifier(std::string_view identifier) = 0;

  /// Calls the listener for every message of the identifier that another program passes, on a
  /// thread of the channel's, until the token ends.
  virtual ObservationToken listenForMessageWithIdentifier(std::string_view identifier,
                                                          Listener listener) = 0;

  /// Ends the listening of a channel that the caller has made, for programs that end in order: no
  /// listener runs when it returns, and none is called any more. Messages can still be passed and
  /// asked for. Again: nothing. Not from a listener, which stops the program.
  virtual void close() {}
};

}  // namespace ombrix::platform
