#pragma once

#include <memory>
#include <string_view>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::testing {

/// Empty standard user defaults and an empty cloud store, in a folder of their own, during its
/// scope.
class ScopedDefaults {
 public:
  ScopedDefaults();
  /// Waits until what was set is in the file: a reference that is left would bring it there after
  /// the folder has gone.
  ~ScopedDefaults();
  ScopedDefaults(const ScopedDefaults&) = delete;
  ScopedDefaults& operator=(const ScopedDefaults&) = delete;

  [[nodiscard]] platform::UserDefaults& defaults() const { return *defaults_; }
  [[nodiscard]] platform::NSUbiquitousKeyValueStore& cloud() const { return *cloud_; }

  /// Where the domain "standard" lies.
  [[nodiscard]] const std::filesystem::path& folder() const { return dir_.path(); }

  /// Defaults on the same file, as another process has them.
  [[nodiscard]] std::shared_ptr<platform::UserDefaults> elsewhere() const;

 private:
  ScopedDir dir_;
  std::shared_ptr<platform::UserDefaults> defaults_;
  std::shared_ptr<platform::NSUbiquitousKeyValueStore> cloud_;
  ScopedService<platform::UserDefaults> scopedDefaults_;
  ScopedService<platform::NSUbiquitousKeyValueStore> scopedCloud_;
};

/// A shared settings object of its own during its scope, over `ScopedDefaults`, with the core
/// settings registered and observed.
///
///     ScopedSettings settings("miles");
class ScopedSettings : public ScopedDefaults {
 public:
  enum class Registers { coreSettings, nothing };

  explicit ScopedSettings(Registers registers = Registers::coreSettings);

  /// With a unit system stored: "kilometers", "miles" or "british".
  explicit ScopedSettings(std::string_view metricType);
  ~ScopedSettings();
  ScopedSettings(const ScopedSettings&) = delete;
  ScopedSettings& operator=(const ScopedSettings&) = delete;

  [[nodiscard]] OmbrixSettings& settings() const { return *settings_; }

  /// `maskViaWormhole` with a channel of the caller's.
  void maskVia(std::shared_ptr<platform::MessageChannel> channel) const;

  /// Returns when all mappings registered so far are observed.
  void waitForRegistrations() const;

 private:
  std::unique_ptr<OmbrixSettings> settings_;
  OmbrixSettings* previous_;
};

}  // namespace ombrix::testing
