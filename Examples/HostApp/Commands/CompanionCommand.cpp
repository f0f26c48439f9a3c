#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::hostapp {
namespace {

constexpr std::array kProperties = {"metricType", "syncPreferences", "extraLogging"};

/// The kind of value that each storage key takes.
const std::map<std::string, std::vector<std::string>> kMessages = {
    {"units", {"kilometers", "miles", "british"}},
    {"syncPreferences", {"true", "false"}},
    {"enableExtraLogging", {"true", "false"}}};

/// Phone and watch are two processes here, which meet in the group's folder; it is made when
/// missing.
void makeGroupFolder() {
  const auto& files = FileManager::defaultManager();
  if (files.groupContainer()) return;
  const auto folder = files.library().appendingPathComponent(FileManager::OmbrixGroupName, true);
  if (const auto made = files.createDirectory(folder, true); !made) {
    throw CommandFailure(made.error().what());
  }
}

void send(const std::string& key, const std::string& value) {
  const auto& values = kMessages.at(key);
  if (std::ranges::find(values, value) == values.end()) {
    throw CLI::ValidationError(
        "VALUE", fmt::format("{:?} is not one of {}", value, fmt::join(values, ", ")));
  }
  makeGroupFolder();
  const bool isTruth = value == "true" || value == "false";
  const platform::PropertyList message =
      isTruth ? platform::PropertyList(value == "true") : platform::PropertyList(value);
  if (!OmbrixWormhole()->passMessageObject(message, key)) {
    throw CommandFailure("could not send; see ombrix log");
  }
}

/// Prints every change until `count` were printed.
void watch(unsigned count) {
  makeGroupFolder();
  auto& settings = OmbrixSettings::shared();
  platform::Mutex mutex;
  platform::Condition changed;
  unsigned seen = 0;
  std::vector<platform::ObservationToken> tokens;
  for (const char* property : kProperties) {
    tokens.push_back(settings.observe(
        property, platform::KeyValueObservingOptions::none, [&, property](const auto&) {
          const platform::LockGuard lock(mutex);
          fmt::print("{} changed; metricType = {}\n", property, settings.metricType());
          std::fflush(stdout);
          ++seen;
          changed.notify_one();
        }));
  }
  settings.maskViaWormhole();
  {
    const platform::LockGuard lock(mutex);
    fmt::print("Watching the companion, metricType = {}; end with Ctrl-C\n", settings.metricType());
    std::fflush(stdout);
  }
  const platform::LockGuard lock(mutex);
  changed.wait(mutex, [&] { return count > 0 && seen >= count; });
}

}  // namespace

void addCompanionCommand(CLI::App& settings) {
  CLI::App* command =
      settings.add_subcommand("companion", "Plays the phone and the watch, each in a shell");
  command->require_subcommand(1);
  struct Options {
    std::string key, value;
    unsigned count = 0;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* sending = command->add_subcommand("send", "Sends a setting to the other device");
  sending->add_option("KEY", options->key, "units, syncPreferences or enableExtraLogging")
      ->required()
      ->check(CLI::IsMember({"units", "syncPreferences", "enableExtraLogging"}));
  sending->add_option("VALUE", options->value, "kilometers, miles, british; true, false")
      ->required();
  sending->callback([options] { send(options->key, options->value); });

  CLI::App* watching = command->add_subcommand(
      "watch", "Takes the unit system from the other device and prints each change");
  watching->add_option("--count", options->count, "End after this many changes")
      ->check(wholeNumberBetween(0, kMostToCount));
  watching->callback([options] { watch(options->count); });
}

}  // namespace ombrix::hostapp
