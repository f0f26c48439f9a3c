#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

/// Knows the user's well-known folders. None of them need exist; every URL is marked as a folder.
/// All operations may be called from any thread.
class Directories {
 public:
  virtual ~Directories() = default;

  /// For files that can be made again: $XDG_CACHE_HOME, else .cache in the home folder.
  [[nodiscard]] virtual URL caches() const = 0;

  /// For programs' data: $XDG_DATA_HOME, else .local/share in the home folder.
  [[nodiscard]] virtual URL applicationSupport() const = 0;

  /// The folder above programs' data; the same as `applicationSupport` on this system.
  [[nodiscard]] virtual URL library() const = 0;

  /// For settings: $XDG_CONFIG_HOME, else .config in the home folder.
  [[nodiscard]] virtual URL preferences() const = 0;

  /// The user's documents as user-dirs.dirs names them, else the home folder.
  [[nodiscard]] virtual URL documents() const = 0;

  /// $TMPDIR, else /tmp.
  [[nodiscard]] virtual URL temporary() const = 0;

  /// The folder that the programs of a group share: the one that the host has set, else the folder
  /// of that name in `library` if it exists; otherwise empty.
  [[nodiscard]] virtual std::optional<URL> containerForGroup(std::string_view group) const = 0;

  /// Lets the host set a group's folder, which need not exist yet; without a folder it removes the
  /// setting.
  virtual void setContainerForGroup(std::string_view group, std::optional<URL> container) = 0;
};

/// The folders by the XDG base directory rules: relative and empty values count as unset. Without a
/// usable HOME the password database names the home folder; if that fails, a folder that only the
/// user may enter is made in the temporary folder and used instead. The environment is read when
/// this is made.
std::shared_ptr<Directories> makeSystemDirectories();

}  // namespace ombrix::platform
