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

namespace ombrix::platform {

/// A folder with what a program or library is delivered with: an Info.plist that describes it, and
/// its texts in "<language>.lproj/<table>.strings".
///
/// Files are read when first asked for and kept. All operations may be called from any thread.
class Bundle {
 public:
  /// @param folder Need not exist: a bundle without files knows nothing and gives fallbacks.
  explicit Bundle(URL folder);
  /// @param info What stands for the Info.plist: a dictionary.
  Bundle(URL folder, PropertyList info);
  ~Bundle();
  Bundle(const Bundle&) = delete;
  Bundle& operator=(const Bundle&) = delete;

  /// The running program's bundle, from the slot `services().mainBundle`.
  static Bundle& main();

  /// The folder "share/<name>" beside or above the library or program that holds an address (a
  /// function of the caller), else "<name>" in one of $XDG_DATA_DIRS; nothing when there is none.
  static std::optional<URL> resourceFolder(std::string_view name, const void* address);

  [[nodiscard]] const URL& bundleURL() const noexcept { return folder_; }

  /// What Info.plist says under a key; null when it says nothing or cannot be read. Valid as long
  /// as the bundle.
  [[nodiscard]] const PropertyList* objectForInfoDictionaryKey(std::string_view key) const;

  /// The text under "CFBundleIdentifier".
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const;

  /// The text of a key in the best language that the bundle has for the user: the preferred ones,
  /// then the one Info.plist names under "CFBundleDevelopmentRegion", then English.
  /// @param fallback Given where the table has no such text; the key itself when this is empty.
  [[nodiscard]] std::string localizedString(std::string_view key, std::string_view fallback = {},
                                            std::string_view table = "Localizable") const;

  /// The same, or nothing where the table has no such text.
  [[nodiscard]] std::optional<std::string> localizedStringIfPresent(
      std::string_view key, std::string_view table = "Localizable") const;

  /// The same in the best language for somebody who prefers others than the user.
  /// @param languages Language tags, the best one first.
  [[nodiscard]] std::optional<std::string> localizedStringIfPresent(
      std::string_view key, std::string_view table, std::vector<std::string> languages) const;

 private:
  struct Texts;

  [[nodiscard]] std::shared_ptr<Texts> textsFor(std::vector<std::string> preferred) const;

  const URL folder_;
  mutable std::once_flag infoRead_;
  mutable PropertyList info_;
  mutable std::mutex mutex_;                                                  // guards `texts_`
  mutable std::map<std::vector<std::string>, std::shared_ptr<Texts>> texts_;  // by preferences
};

/// The bundle of the running program: "../share/<program>" seen from the program's folder where
/// that has an Info.plist, else the program's folder itself.
std::shared_ptr<Bundle> makeMainBundle();

/// Who the running program is: what its files and settings are named after.
struct BundleIdentity {
  std::string identifier;                ///< In reverse domain notation, as in "org.example.skier".
  std::string version = {}, build = {};  ///< Unknown when empty.
};

/// Tells who the running program is, where no Info.plist does, or says otherwise. For the host to
/// call before it uses anything else: what was named after the program already stays so.
void setMainBundleIdentity(const BundleIdentity& identity);

/// What the files of this program are named after: the main bundle's identifier, else the
/// program's name.
std::string mainBundleName();

}  // namespace ombrix::platform
