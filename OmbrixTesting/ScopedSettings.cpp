#include "OmbrixTesting/ScopedSettings.hpp"

#include "OmbrixCore/Settings/SettingsRegistrations.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::testing {
namespace {

platform::UserDefaults::Configuration domainIn(const std::filesystem::path& folder) {
  return {.folder = folder, .domain = "standard", .onError = [](const std::string& message) {
            platform::fatalError("Unexpected failure of the defaults: " + message);
          }};
}

}  // namespace

ScopedDefaults::ScopedDefaults()
    : defaults_(platform::UserDefaults::make(domainIn(dir_.path()))),
      cloud_(platform::makeFileUbiquitousKeyValueStore(dir_.path(), "cloud")),
      scopedDefaults_(platform::services().standardDefaults, defaults_),
      scopedCloud_(platform::services().cloudStore, cloud_) {}

ScopedDefaults::~ScopedDefaults() { defaults_->synchronize(); }

std::shared_ptr<platform::UserDefaults> ScopedDefaults::elsewhere() const {
  return platform::UserDefaults::make(domainIn(dir_.path()));
}

ScopedSettings::ScopedSettings(Registers registers)
    : settings_(std::make_unique<OmbrixSettings>()),
      previous_(OmbrixSettings::substitute().exchange(settings_.get())) {
  if (registers == Registers::nothing) return;
  settings_->registerCoreSettings();
  waitForRegistrations();
}

ScopedSettings::ScopedSettings(std::string_view metricType) : ScopedSettings() {
  settings_->setMetricType(metricType);
}

ScopedSettings::~ScopedSettings() { OmbrixSettings::substitute().store(previous_); }

void ScopedSettings::maskVia(std::shared_ptr<platform::MessageChannel> channel) const {
  settings_->maskVia(std::move(channel));
}

void ScopedSettings::waitForRegistrations() const { settings_->registrations_->wait(); }

}  // namespace ombrix::testing
