#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Messaging/MessageChannel.hpp"

namespace ombrix::platform {

/// A message channel through files that the programs of an app group share: one file per
/// identifier, which holds its last message.
///
/// - Messages replace each other whole, under file coordination: no reader meets half of one,
///   and a writer that is killed leaves the message before.
/// - A listener is told of each message at most once. Of messages that come faster than they can
///   be told the last one is always told, others may be left out. What was passed before a listener
///   came is not told to it, nor is what this process passes itself, through whichever channel.
/// - The folder of the messages need not exist; it may be made, removed and made again meanwhile.
/// - The last message is kept in memory: asking for it reads the file only after a change. What
///   another process passes is seen a moment later, when the system tells of it.
/// - A file that holds no message counts as none, and is reported once.
///
/// Where the group has no folder when the channel is made, the channel does nothing: it reports
/// that once, keeps no message and calls no listener.
///
/// An identifier is a text of any characters. One whose file name would be longer than file systems
/// allow (about 240 letters; other characters count three times) cannot be passed, which is
/// reported. Listeners end with the channel, but for a call that is on its way. Any thread.
class MMWormhole final : public MessageChannel {
 public:
  using ErrorHandler = std::function<void(const std::string& message)>;

  /// @param applicationGroupIdentifier The group, see `Directories::containerForGroup`.
  /// @param optionalDirectory A folder in the group's, for the messages; else they lie in it.
  /// @param onError Told of every failure in a readable sentence, on the thread that met it; when
  ///   empty, failures are logged as errors.
  explicit MMWormhole(std::string_view applicationGroupIdentifier,
                      const std::optional<std::string>& optionalDirectory = std::nullopt,
                      ErrorHandler onError = {});
  ~MMWormhole() override;

  /// Where the messages lie; nothing when the channel does nothing.
  [[nodiscard]] std::optional<URL> folder() const;

  /// Returns when the message is on its way; one that cannot be written is reported and lost, and
  /// the result is false.
  bool passMessageObject(const PropertyList& message, std::string_view identifier) override;

  [[nodiscard]] std::optional<PropertyList> messageWithIdentifier(
      std::string_view identifier) const override;

  void clearMessageContentsForIdentifier(std::string_view identifier) override;

  /// Listeners run one after the other.
  ObservationToken listenForMessageWithIdentifier(std::string_view identifier,
                                                  Listener listener) override;

  void close() override;

 private:
  class Impl;

  const std::shared_ptr<Impl> impl_;
};

}  // namespace ombrix::platform
