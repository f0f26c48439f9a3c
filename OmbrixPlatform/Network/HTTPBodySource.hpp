#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>

#include "OmbrixPlatform/Network/URLError.hpp"

namespace ombrix::platform {

/// A body that is read in pieces while it is sent, so that it is never in memory as a whole.
///
/// It may be sent several times, one after the other: a redirect that keeps the body wants it
/// again, and so does a connection that died before an answer.
class HTTPBodySource {
 public:
  virtual ~HTTPBodySource() = default;

  /// A regular file, opened now and read from then on, whatever happens to its name. A file that
  /// cannot be opened, or that is not regular (a folder, a pipe, a device), gives a source whose
  /// `length` fails.
  [[nodiscard]] static std::shared_ptr<const HTTPBodySource> file(
      const std::filesystem::path& path);

  /// How many bytes there are; empty when that is unknown: then they are sent in chunks. Called
  /// before each sending, on any thread. An error becomes the task's.
  [[nodiscard]] virtual std::expected<std::optional<std::int64_t>, URLError> length() const = 0;

  /// Reads the next bytes. Called on the network thread, which all transfers of a session share, so
  /// it has to return soon.
  ///
  /// @param offset How many bytes of this sending were read before; 0 starts a new sending.
  /// @return How many were read, 0 at the end. An error becomes the task's.
  [[nodiscard]] virtual std::expected<std::size_t, URLError> read(
      std::int64_t offset, std::span<std::byte> buffer) const = 0;
};

}  // namespace ombrix::platform
