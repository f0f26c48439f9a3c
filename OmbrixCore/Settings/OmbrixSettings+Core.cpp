#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixCore/Settings/SettingsRegistrations.hpp"
#include "OmbrixCore/Settings/SettingsTables.hpp"
#include "OmbrixCore/Settings/ToldOnce.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix {
namespace {

using platform::Locale;
using platform::PropertyList;
using platform::UserDefaults;

constexpr const char* kUnitsKey = "units";
constexpr const char* kSyncPreferencesKey = "syncPreferences";
constexpr const char* kExtraLoggingKey = "enableExtraLogging";

constexpr std::string_view kUnitSystems[] = {"kilometers", "miles", "british"};

/// Logs an unknown unit system, which is probably misspelt. It is used as it is, and measures like
/// kilometers.
void noteUnitSystem(std::string_view unitSystem) {
  if (unitSystem.empty() || std::ranges::find(kUnitSystems, unitSystem) != std::end(kUnitSystems)) {
    return;
  }
  constexpr std::size_t kMostQuoted = 40;
  static ToldOnce& told = *new ToldOnce;
  const std::string quoted(unitSystem.substr(0, kMostQuoted));
  if (!told.isNews(quoted)) return;
  logWarning({"OmbrixCore/Settings/OmbrixSettings+Core", "metricType"},
             "Data: There is no unit system \"" + quoted + "\"");
}

std::string readMetricType() {
  auto& defaults = UserDefaults::standardUserDefaults();
  const std::string key = OmbrixSettings::keyFromGetter("metricType");
  auto unitSystem = defaults.stringForKey(key);
  if (unitSystem) {
    noteUnitSystem(*unitSystem);
  } else if (const auto other = defaults.objectForKey(key)) {
    noteUnitSystem("(" + std::string(nameOf(other->kind())) + ")");
  }
  return std::move(unitSystem).value_or(std::string());
}

std::optional<std::string> metricTypeOfCompanion() {
  // A new instance may have removed the channel meanwhile.
  const auto channel = SettingsTables::shared().wormhole();
  if (!channel) return std::nullopt;
  const auto message = channel->messageWithIdentifier(OmbrixSettings::keyFromGetter("metricType"));
  if (!message || !message->text()) return std::nullopt;
  noteUnitSystem(*message->text());
  return *message->text();
}

/// A thread's cached unit system, without a companion, since every formatted value asks for it. It
/// is valid until the defaults or the tables change. It consists of plain bytes, which need no
/// construction or destruction in each thread. Longer texts, which cannot be a unit system, are not
/// cached.
class LastRead {
 public:
  std::uint64_t defaults = 0, tables = 0;  // their revisions; that of the defaults is never 0

  void keep(std::uint64_t defaultsRead, std::uint64_t tablesRead, std::string_view text) {
    if (text.size() > kMostCharacters) return;
    std::ranges::copy(text, text_.begin());
    length_ = text.size();
    defaults = defaultsRead;
    tables = tablesRead;
  }

  [[nodiscard]] std::string copy() const {
    std::string text;
    // Always copies all of them: the compiler knows the length, so it needs no call.
    text.resize_and_overwrite(kMostCharacters, [this](char* place, std::size_t) {
      std::ranges::copy(text_, place);
      return length_;
    });
    return text;
  }

 private:
  static constexpr std::size_t kMostCharacters = 15;  // a std::string has them in itself

  std::array<char, kMostCharacters> text_{};
  std::size_t length_ = 0;
};

constinit thread_local LastRead lastRead;

/// Logs failures of the user defaults. They may occur while logging is set up, which reads a
/// setting: then another thread logs them afterwards.
void logDefaultsFailure(const std::string& message) {
  const auto log = [message] {
    logError({"OmbrixCore/Settings/OmbrixSettings+Core", "registerCoreSettings"},
             "Data: User defaults: " + message);
  };
  if (detail::isLoggingSetUp.load() || platform::isProcessExiting()) return log();
  platform::DispatchQueue::global(platform::DispatchPriority::low).async(log);
}

bool readBool(std::string_view property) {
  return UserDefaults::standardUserDefaults().boolForKey(OmbrixSettings::keyFromGetter(property));
}

}  // namespace

void OmbrixSettings::registerCoreSettings() {
  // First, since the next steps may find a file that cannot be read.
  UserDefaults::standardUserDefaults().setErrorHandler(logDefaultsFailure);
  registerMappings({{"metricType", kUnitsKey},
                    {"syncPreferences", kSyncPreferencesKey},
                    {"extraLogging", kExtraLoggingKey}});
  registerSyncedPreferenceKeys({keyFromGetter("metricType")});
  registerDefaults({{kUnitsKey, unitSystemForLocale(Locale::current())},
                    {kSyncPreferencesKey, true},
                    {kExtraLoggingKey, false}});
  auto& locale = platform::services().locale.get();
  registrations_->add(locale.currentLocaleDidChange.connect([this] { announceLocale(); }));
  registrations_->followsLocale = true;
}

std::string OmbrixSettings::unitSystemForLocale(const Locale& locale) {
  if (locale.identifier() == "en_GB") return "british";
  return locale.usesMetricSystem() ? "kilometers" : "miles";
}

void OmbrixSettings::localeDidChange() {
  platform::services().locale.get().localeDidChange();
  if (!registrations_->followsLocale) announceLocale();
}

void OmbrixSettings::announceLocale() {
  if (UserDefaults::standardUserDefaults().explicitObjectForKey(kUnitsKey)) return;
  // Kept: the default is not chosen anew. Observers read again and find what registration chose:
  // a unit system that changed by itself would rewrite what the user is looking at.
  willChangeValueForKey("metricType");
  didChangeValueForKey("metricType");
}

void OmbrixSettings::maskViaWormhole() { maskVia(OmbrixWormhole()); }

void OmbrixSettings::maskVia(std::shared_ptr<platform::MessageChannel> channel) {
  auto previous = channel;  // a replaced channel ends outside the lock
  const auto mappings = SettingsTables::shared().change([&](SettingsTables::Contents& contents) {
    contents.wormhole.swap(previous);
    return contents.settingsMappings;
  });
  for (const auto& [property, key] : mappings) {
    registrations_->add(
        channel->listenForMessageWithIdentifier(key, [this, name = property](const auto&) {
          willChangeValueForKey(name);
          didChangeValueForKey(name);
        }));
  }
}

std::string OmbrixSettings::metricType() const {
  if (SettingsTables::hasWormhole()) {
    if (auto sent = metricTypeOfCompanion()) return *std::move(sent);
  }
  // The revisions come first: a value that changes meanwhile is then read again.
  const std::uint64_t tables = SettingsTables::revision();
  const std::uint64_t defaults = UserDefaults::standardUserDefaults().revision();
  if (lastRead.defaults == defaults && lastRead.tables == tables) return lastRead.copy();
  auto unitSystem = readMetricType();
  lastRead.keep(defaults, tables, unitSystem);
  return unitSystem;
}

void OmbrixSettings::setMetricType(std::optional<std::string_view> metricType) {
  saveObject(metricType, keyFromSetter("setMetricType:"));
  if (metricType) noteUnitSystem(*metricType);
}

bool OmbrixSettings::syncPreferences() const { return readBool("syncPreferences"); }

void OmbrixSettings::setSyncPreferences(bool syncPreferences) {
  saveBool(syncPreferences, keyFromSetter("setSyncPreferences:"));
}

bool OmbrixSettings::extraLogging() const { return readBool("extraLogging"); }

void OmbrixSettings::setExtraLogging(bool extraLogging) {
  saveBool(extraLogging, keyFromSetter("setExtraLogging:"));
}

}  // namespace ombrix
