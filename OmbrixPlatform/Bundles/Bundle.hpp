#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform {

/// The folder of a program's or library's resources: an Info.plist that describes it, and its texts
/// in "<language>.lproj/<table>.strings".
///
/// Files are read on first use and kept. All operations may be called from any thread.
class Bundle {
 public:
  /// @param folder Need not exist: a bundle without files returns fallbacks only.
  explicit Bundle(URL folder);
  /// @param info Replaces the Info.plist: a dictionary.
  Bundle(URL folder, PropertyList info);
  ~Bundle();
  Bundle(const Bundle&) = delete;
  Bundle& operator=(const Bundle&) = delete;

  /// The running program's bundle, from the slot `services().mainBundle`.
  static Bundle& main();

  /// The folder "share/<name>" beside or above the library or program that contains an address (say
  /// a function of the caller), otherwise "<name>" in one of $XDG_DATA_DIRS; empty if none exists.
  static std::optional<URL> resourceFolder(std::string_view name, const void* address);

  [[nodiscard]] const URL& bundleURL() const noexcept { return folder_; }

  /// The value of a key in Info.plist; null when it is missing or the file cannot be read. Valid as
  /// long as the bundle.
  [[nodiscard]] const PropertyList* objectForInfoDictionaryKey(std::string_view key) const;

  /// The text under "CFBundleIdentifier".
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const;

  /// The text of a key in the best language that the bundle has for the user: the preferred ones,
  /// then the one that Info.plist names under "CFBundleDevelopmentRegion", then English.
  /// @param fallback Returned if the table lacks the text; if it is empty, the key is returned.
  [[nodiscard]] std::string localizedString(std::string_view key, std::string_view fallback = {},
                                            std::string_view table = "Localizable") const;

  /// The same, but empty if the table lacks the text.
  [[nodiscard]] std::optional<std::string> localizedStringIfPresent(
      std::string_view key, std::string_view table = "Localizable") const;

  /// The same in the best language for other preferences than the user's.
  /// @param languages Language tags, the best one first.
  [[nodiscard]] std::optional<std::string> localizedStringIfPresent(
      std::string_view key, std::string_view table, std::vector<std::string> languages) const;

 private:
  struct Texts;

  [[nodiscard]] std::shared_ptr<Texts> textsFor(std::vector<std::string> preferred) const;

  const URL folder_;
  mutable std::once_flag infoRead_;
  mutable PropertyList info_;
  mutable Mutex mutex_;
  // By preferences.
  mutable std::map<std::vector<std::string>, std::shared_ptr<Texts>> texts_
      OMBRIX_GUARDED_BY(mutex_);
};

/// The bundle of the running program: "../share/<program>", relative to the program's folder, if
/// that has an Info.plist, otherwise the program's folder itself.
std::shared_ptr<Bundle> makeMainBundle();

/// The identity of the running program, after which its files and settings are named.
struct BundleIdentity {
  std::string identifier;                ///< In reverse domain notation: "org.example.skier".
  std::string version = {}, build = {};  ///< Unknown when empty.
};

/// Sets the identity of the running program, overriding Info.plist. The host calls it before it
/// uses anything else: names that were already derived stay.
void setMainBundleIdentity(const BundleIdentity& identity);

/// The name for this program's files: the main bundle's identifier, otherwise the program's
/// name.
std::string mainBundleName();

}  // namespace ombrix::platform
