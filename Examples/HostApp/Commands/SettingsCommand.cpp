#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <functional>
#include <memory>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Service/CloudStore.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::hostapp {
namespace {

/// One setting as the command line shows and accepts it.
struct Setting {
  const char* name;
  std::vector<std::string> values;
  std::string (*get)();
  void (*set)(const std::string& value);
};

OmbrixSettings& settings() { return OmbrixSettings::shared(); }
std::string text(bool value) { return value ? "true" : "false"; }

const std::array<Setting, 3>& allSettings() {
  static const std::array<Setting, 3> all = {{
      {"metricType",
       {"kilometers", "miles", "british"},
       [] { return settings().metricType(); },
       [](const std::string& value) { settings().setMetricType(value); }},
      {"syncPreferences",
       {"true", "false"},
       [] { return text(settings().syncPreferences()); },
       [](const std::string& value) { settings().setSyncPreferences(value == "true"); }},
      {"extraLogging",
       {"true", "false"},
       [] { return text(settings().extraLogging()); },
       [](const std::string& value) { settings().setExtraLogging(value == "true"); }},
  }};
  return all;
}

/// The name of a setting on the command line.
void addName(CLI::App& command, std::string& name) {
  std::vector<std::string> names;
  for (const Setting& setting : allSettings()) names.emplace_back(setting.name);
  command.add_option("NAME", name, "As in the list")->required()->check(CLI::IsMember(names));
}

const Setting& settingNamed(const std::string& name) {
  for (const Setting& setting : allSettings()) {
    if (setting.name == name) return setting;
  }
  throw CLI::ValidationError("NAME", fmt::format("there is no setting {:?}", name));
}

/// Waits until a change is in the file, and in the cloud if it is synced.
void bringToDisk(bool isSynced) {
  if (!platform::UserDefaults::standardUserDefaults().synchronize()) {
    throw CommandFailure("the setting could not be saved");
  }
  if (isSynced) bringCloudUpToDate();
}

void print(const Setting& setting) {
  fmt::print("{} = {}\n", setting.name, setting.get());
  std::fflush(stdout);
}

/// Prints every change of any setting, by this or another process, until `count` were printed.
void watch(unsigned count) {
  platform::Mutex mutex;
  platform::Condition changed;
  unsigned seen = 0;
  std::vector<platform::ObservationToken> tokens;
  for (const Setting& setting : allSettings()) {
    tokens.push_back(settings().observe(setting.name, platform::KeyValueObservingOptions::none,
                                        [&](const auto&) {
                                          print(setting);
                                          const platform::LockGuard lock(mutex);
                                          ++seen;
                                          changed.notify_one();
                                        }));
  }
  // The settings begin to observe their defaults on the low-priority queue. This waits for that, so
  // that no later change is missed.
  auto& registering = platform::DispatchQueue::global(platform::DispatchPriority::low);
  while (!platform::UserDefaults::standardUserDefaults().isObserved("enableExtraLogging")) {
    registering.sync([] {});
  }
  fmt::print("Watching the settings; end with Ctrl-C\n");
  std::fflush(stdout);
  const platform::LockGuard lock(mutex);
  changed.wait(mutex, [&] { return count > 0 && seen >= count; });
}

}  // namespace

void addSettingsCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("settings", "Shows and changes the user's settings");
  command->require_subcommand(1);
  addCloudOptions(*command);

  command->add_subcommand("list", "Prints every setting")->callback([] {
    for (const Setting& setting : allSettings()) print(setting);
  });

  struct Options {
    std::string name, value;
    unsigned count = 0;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* get = command->add_subcommand("get", "Prints the value of a setting");
  addName(*get, options->name);
  get->callback([options] { fmt::print("{}\n", settingNamed(options->name).get()); });

  CLI::App* set = command->add_subcommand("set", "Changes a setting");
  addName(*set, options->name);
  set->add_option("VALUE", options->value, "kilometers, miles, british; true, false")->required();
  set->callback([options] {
    const Setting& setting = settingNamed(options->name);
    if (std::ranges::find(setting.values, options->value) == setting.values.end()) {
      throw CLI::ValidationError("VALUE", fmt::format("{:?} is not one of {}", options->value,
                                                      fmt::join(setting.values, ", ")));
    }
    setting.set(options->value);
    bringToDisk(settings().syncPreferences());
  });

  CLI::App* unset = command->add_subcommand("unset", "Brings the default of a setting back");
  addName(*unset, options->name);
  unset->callback([options] {
    const Setting& setting = settingNamed(options->name);
    const bool wasSynced = settings().syncPreferences();
    settings().saveObject(std::nullopt, OmbrixSettings::keyFromGetter(setting.name));
    bringToDisk(wasSynced);
  });

  CLI::App* watching = command->add_subcommand("watch", "Prints each change, from any process");
  watching->add_option("--count", options->count, "End after this many changes")
      ->check(wholeNumberBetween(0, kMostToCount));
  watching->callback([options] { watch(options->count); });

  addSyncCommand(*command);
  addCompanionCommand(*command);
}

}  // namespace ombrix::hostapp
