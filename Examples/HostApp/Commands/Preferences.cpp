#include "Examples/HostApp/Commands/Preferences.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Text/LocaleIdentifier.hpp"

namespace ombrix::hostapp {
namespace {

class FixedLocaleService final : public platform::LocaleService {
 public:
  explicit FixedLocaleService(const std::string& identifier) : locale_(identifier) {}

  platform::Locale current() const override { return locale_; }
  std::vector<std::string> preferredLanguages() const override { return {locale_.languageTag()}; }

 private:
  void reload() override {}

  platform::Locale locale_;
};

}  // namespace

void addPreferenceOptions(CLI::App& command) {
  command
      .add_option_function<std::string>(
          "--units",
          [](const std::string& units) {
            platform::services().standardDefaults.get().setArguments({{"units", units}});
          },
          "The unit system: kilometers, miles or british")
      ->check(CLI::IsMember({"kilometers", "miles", "british"}));
  command
      .add_option_function<std::string>(
          "--locale",
          [](const std::string& identifier) {
            platform::services().locale.set(std::make_shared<FixedLocaleService>(identifier));
            // The default was chosen for the locale of the environment when the settings
            // registered.
            OmbrixSettings::shared().registerDefaults(
                {{OmbrixSettings::keyFromGetter("metricType"),
                  OmbrixSettings::unitSystemForLocale(platform::Locale::current())}});
          },
          "The language and region to write in, as in de_DE; its unit system, too, unless one is "
          "set")
      ->type_name("LOCALE")
      ->check([](const std::string& identifier) {
        return platform::isLocaleIdentifier(identifier)
                   ? std::string()
                   : fmt::format("{:?} is no language and region, as in de_DE", identifier);
      })
      // Help is written while the rest is not read yet.
      ->trigger_on_parse();
}

}  // namespace ombrix::hostapp
