#include "Examples/HostApp/Service/CloudStore.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::hostapp {
namespace {

using platform::NSUbiquitousKeyValueStore;

NSUbiquitousKeyValueStore& cloud() { return NSUbiquitousKeyValueStore::defaultStore(); }
OmbrixSettings& settings() { return OmbrixSettings::shared(); }

/// The store that this program made, if it did.
std::shared_ptr<NSUbiquitousKeyValueStore>& ownStore() {
  static std::shared_ptr<NSUbiquitousKeyValueStore> store;
  return store;
}

constexpr int kCloudValuesWin = 0, kLocalValuesWin = 1;

/// The options of the cloud's server.
struct CloudOptions {
  std::string url, user, passwordFile, authority;
};

/// The password comes from a file or the environment: other users can read command lines.
std::string passwordFrom(const std::string& file) {
  if (!file.empty()) {
    const auto contents = readWholeFile(file);
    const std::string_view text = platform::textOf(contents);
    return std::string(text.substr(0, text.find_first_of("\r\n")));
  }
  const char* password = std::getenv("OMBRIX_CLOUD_PASSWORD");
  if (password == nullptr) {
    throw CLI::ValidationError(
        "--cloud-user", "needs --cloud-password-file, or OMBRIX_CLOUD_PASSWORD in the environment");
  }
  return password;
}

/// The copies and unsent changes lie beside their settings: one device, one folder.
void useServer(const CloudOptions& options) {
  if (options.url.empty()) {
    if (options.user.empty() && options.passwordFile.empty() && options.authority.empty()) return;
    throw CLI::ValidationError("--cloud", "is missing: the other --cloud options need a server");
  }
  const auto url = platform::URL::parse(options.url);
  // Not shown: there may be a password in it.
  if (!url) throw CLI::ValidationError("--cloud", "is not the URL of a server");
  platform::EtcdConfiguration configuration{
      .endpoint = *url,
      .prefix = "ombrix/",
      .certificateAuthorities = options.authority,
      .folder = platform::UserDefaults::standardUserDefaults().file().parent_path(),
      .domain = "ombrix-cloud",
      .onError = [](const std::string& message) { fmt::print(stderr, "cloud: {}\n", message); },
  };
  if (!options.user.empty()) {
    configuration.credentials = {options.user, passwordFrom(options.passwordFile)};
  }
  ownStore() = platform::makeEtcdUbiquitousKeyValueStore(std::move(configuration));
  platform::services().cloudStore.set(ownStore());
}

std::string shown(const platform::PropertyList& value) {
  if (const auto* text = value.text()) return *text;
  if (const auto truth = value.boolean()) return *truth ? "true" : "false";
  if (const auto integer = value.integer()) return fmt::to_string(*integer);
  if (const auto real = value.real()) return fmt::to_string(*real);
  return "(a value of another kind)";
}

void printStatus() {
  const bool isReached = bringCloudUpToDate();
  fmt::print("sync is {}\n", settings().syncPreferences() ? "on" : "off");
  fmt::print("the cloud was {}used before\n", settings().hasSyncedToiCloudBefore() ? "" : "never ");
  const auto values = cloud().dictionaryRepresentation();
  fmt::print("{}:{}\n", isReached ? "in the cloud" : "last known of the cloud, with what waits",
             values.empty() ? " nothing" : "");
  for (const auto& [key, value] : values) fmt::print("  {} = {}\n", key, shown(value));
}

const char* reasonText(NSUbiquitousKeyValueStore::ChangeReason reason) {
  using Reason = NSUbiquitousKeyValueStore::ChangeReason;
  switch (reason) {
    case Reason::serverChange:
      return "changed elsewhere";
    case Reason::initialSync:
      return "read for the first time";
    case Reason::quotaViolation:
      return "refused: the cloud is full";
    case Reason::accountChange:
      return "of another account";
  }
  return "";
}

/// Prints changes from other devices until `count` of them were printed.
void watchCloud(unsigned count) {
  platform::Mutex mutex;
  platform::Condition changed;
  unsigned seen = 0;
  const auto token = cloud().observeExternalChanges([&](const auto& change) {
    const platform::LockGuard lock(mutex);
    for (const auto& key : change.keys) {
      const auto value = cloud().objectForKey(key);
      fmt::print("{} = {} ({})\n", key, value ? shown(*value) : "(removed)",
                 reasonText(change.reason));
      ++seen;
    }
    std::fflush(stdout);
    changed.notify_one();
  });
  bringCloudUpToDate();
  fmt::print("Watching the cloud; end with Ctrl-C\n");
  std::fflush(stdout);
  const platform::LockGuard lock(mutex);
  changed.wait(mutex, [&] { return count > 0 && seen >= count; });
}

}  // namespace

bool bringCloudUpToDate() {
  if (cloud().synchronize()) return true;
  if (!cloud().isKept()) throw CommandFailure("the change for the cloud could not be kept");
  fmt::print(stderr, "cloud: could not be reached; changes are kept and sent later\n");
  return false;
}

void addCloudOptions(CLI::App& settings) {
  const auto options = std::make_shared<CloudOptions>();
  settings
      .add_option("--cloud", options->url,
                  "An etcd server as the cloud; else a file of this machine")
      ->type_name("URL")
      ->envname("OMBRIX_CLOUD");
  settings
      .add_option("--cloud-user", options->user,
                  "Sign in to it, with the password in OMBRIX_CLOUD_PASSWORD or a file")
      ->type_name("NAME")
      ->envname("OMBRIX_CLOUD_USER");
  settings
      .add_option("--cloud-password-file", options->passwordFile,
                  "A file whose first line is the password")
      ->type_name("FILE");
  settings
      .add_option("--cloud-ca", options->authority,
                  "Trust an https server by the certificate authorities in this file (PEM) alone")
      ->type_name("FILE")
      ->envname("OMBRIX_CLOUD_CA");
  // Before the commands below run.
  settings.parse_complete_callback([options] { useServer(*options); });
}

void closeCloud() {
  if (ownStore()) ownStore()->close();
}

void addSyncCommand(CLI::App& settingsCommand) {
  CLI::App* command = settingsCommand.add_subcommand(
      "sync", "Mirrors settings to the user's cloud, and shows what is there");
  command->require_subcommand(1);
  command->footer(
      "Two devices on one machine:\n"
      "  XDG_CONFIG_HOME=/tmp/a ombrix settings --cloud http://127.0.0.1:2379 sync enable "
      "--local-wins\n"
      "  XDG_CONFIG_HOME=/tmp/b ombrix settings --cloud http://127.0.0.1:2379 sync enable "
      "--cloud-wins");

  command->add_subcommand("status", "Prints whether sync is on and what the cloud holds")
      ->callback(printStatus);

  struct Options {
    bool localWins = false, cloudWins = false;
    unsigned count = 0;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* enable = command->add_subcommand("enable", "Turns sync on");
  auto* local =
      enable->add_flag("--local-wins", options->localWins, "Local values go to the cloud");
  enable
      ->add_flag("--cloud-wins", options->cloudWins,
                 "Values of the cloud are taken over, now and once")
      ->excludes(local);
  enable->callback([options] {
    constexpr int kCopyNothing = 2;
    // The cloud's values can only win once they have arrived here.
    if (!bringCloudUpToDate() && options->cloudWins) {
      throw CommandFailure("the values of the cloud cannot be taken over; sync was left as it is");
    }
    settings().enableSyncWithBehavior(options->localWins   ? kLocalValuesWin
                                      : options->cloudWins ? kCloudValuesWin
                                                           : kCopyNothing);
    printStatus();
  });

  command->add_subcommand("disable", "Turns sync off; the cloud keeps what it has")->callback([] {
    settings().disableSync();
  });
  command->add_subcommand("reset", "Removes the synced settings from the cloud")->callback([] {
    settings().resetSynedPreferences();
    printStatus();
  });
  CLI::App* watch = command->add_subcommand("watch", "Prints each change from other devices");
  watch->add_option("--count", options->count, "End after this many changes")
      ->check(wholeNumberBetween(0, kMostToCount));
  watch->callback([options] { watchCloud(options->count); });
}

}  // namespace ombrix::hostapp
