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
/// - Messages replace each other as a whole, under file coordination: no reader sees half of one,
///   and a writer that is killed leaves the previous message.
/// - A listener receives each message at most once. When messages follow too fast, the last one is
///   always delivered and others may be skipped. A listener does not receive messages passed before
///   it was added, nor those that this process passes, through any channel.
/// - The folder of the messages need not exist; it may be created, removed and created again.
/// - The last message is cached: the file is read again only after a change. A message from another
///   process is seen a moment later, when the system reports the change.
/// - A file that is not a message counts as none, and is reported once.
///
/// If the group has no folder when the channel is created, the channel does nothing: it reports
/// that once, keeps no message and calls no listener.
///
/// An identifier may contain any characters. One whose file name would be longer than file systems
/// allow (about 240 letters; other characters count three times) cannot be passed, which is
/// reported. Listeners end with the channel, except for a call in progress. Any thread.
class MMWormhole final : public MessageChannel {
 public:
  using ErrorHandler = std::function<void(const std::string& message)>;

  /// @param applicationGroupIdentifier The group, see `Directories::containerForGroup`.
  /// @param optionalDirectory A folder for the messages inside the group's; if empty, the group's.
  /// @param onError Called with every failure in a readable sentence, on the thread where it
  ///   occurred; when empty, failures are logged as errors.
  explicit MMWormhole(std::string_view applicationGroupIdentifier,
                      const std::optional<std::string>& optionalDirectory = std::nullopt,
                      ErrorHandler onError = {});
  ~MMWormhole() override;

  /// The folder of the messages; empty when the channel does nothing.
  [[nodiscard]] std::optional<URL> folder() const;

  /// Returns once the message is in its file; if it cannot be written, reports that, drops it and
  /// returns false.
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
