#pragma once

#include <memory>
#include <string_view>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::testing {

/// Provides empty standard user defaults and an empty cloud store in a folder of their own, during
/// its scope.
class ScopedDefaults {
 public:
  ScopedDefaults();
  /// Waits until all changes are in the file: a remaining reference would otherwise write them
  /// after the folder was removed.
  ~ScopedDefaults();
  ScopedDefaults(const ScopedDefaults&) = delete;
  ScopedDefaults& operator=(const ScopedDefaults&) = delete;

  [[nodiscard]] platform::UserDefaults& defaults() const { return *defaults_; }
  [[nodiscard]] platform::NSUbiquitousKeyValueStore& cloud() const { return *cloud_; }

  /// The folder of the domain "standard".
  [[nodiscard]] const std::filesystem::path& folder() const { return dir_.path(); }

  /// Defaults on the same file, as another process would open them.
  [[nodiscard]] std::shared_ptr<platform::UserDefaults> elsewhere() const;

 private:
  ScopedDir dir_;
  std::shared_ptr<platform::UserDefaults> defaults_;
  std::shared_ptr<platform::NSUbiquitousKeyValueStore> cloud_;
  ScopedService<platform::UserDefaults> scopedDefaults_;
  ScopedService<platform::NSUbiquitousKeyValueStore> scopedCloud_;
};

/// Replaces the shared settings object during its scope, on top of `ScopedDefaults`, with the core
/// settings registered and observed.
///
///     ScopedSettings settings("miles");
class ScopedSettings : public ScopedDefaults {
 public:
  enum class Registers { coreSettings, nothing };

  explicit ScopedSettings(Registers registers = Registers::coreSettings);

  /// Also stores a unit system: "kilometers", "miles" or "british".
  explicit ScopedSettings(std::string_view metricType);
  ~ScopedSettings();
  ScopedSettings(const ScopedSettings&) = delete;
  ScopedSettings& operator=(const ScopedSettings&) = delete;

  [[nodiscard]] OmbrixSettings& settings() const { return *settings_; }

  /// Calls `maskViaWormhole` with the given channel.
  void maskVia(std::shared_ptr<platform::MessageChannel> channel) const;

  /// Returns when all mappings registered so far are observed.
  void waitForRegistrations() const;

 private:
  std::unique_ptr<OmbrixSettings> settings_;
  OmbrixSettings* previous_;
};

}  // namespace ombrix::testing
