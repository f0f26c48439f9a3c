#include "OmbrixCore/Settings/SettingsTables.hpp"

namespace ombrix {
namespace {

std::optional<std::string> find(const SettingsTables::Names& names, std::string_view name) {
  const auto it = names.find(name);
  return it == names.end() ? std::nullopt : std::optional(it->second);
}

}  // namespace

SettingsTables& SettingsTables::shared() {
  static SettingsTables& instance = *new SettingsTables;
  return instance;
}

std::optional<std::string> SettingsTables::keyOf(std::string_view property) const {
  return read([&](const Contents& tables) { return find(tables.settingsMappings, property); });
}

std::optional<std::string> SettingsTables::propertyOf(std::string_view key) const {
  return read([&](const Contents& tables) { return find(tables.reverseSettingsMappings, key); });
}

std::vector<std::string> SettingsTables::syncedPreferenceKeys() const {
  return read([](const Contents& tables) { return tables.syncedPreferenceKeys; });
}

std::shared_ptr<platform::MessageChannel> SettingsTables::wormhole() const {
  return read([](const Contents& tables) { return tables.wormhole; });
}

}  // namespace ombrix
