#include "OmbrixCore/Extensions/ResourceBundle.hpp"

#include "OmbrixCore/Resources/BuiltInTexts.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix {
namespace {

constexpr std::string_view kFolderName = "OmbrixCore";

std::shared_ptr<platform::Bundle> makeResourceBundle() {
  const auto* address = reinterpret_cast<const void*>(&makeResourceBundle);
  const auto folder = platform::Bundle::resourceFolder(kFolderName, address);
  // If its resources are missing, the library uses the texts compiled in.
  return std::make_shared<platform::Bundle>(folder.value_or(
      platform::services().directories.get().library().appendingPathComponent(kFolderName, true)));
}

platform::ServiceSlot<platform::Bundle>& slot() {
  static auto& instance = *new platform::ServiceSlot<platform::Bundle>(&makeResourceBundle);
  return instance;
}

std::optional<std::string> builtInText(std::string_view key,
                                       const std::vector<std::string>& preferred) {
  static auto& texts = *new platform::BuiltInTexts(detail::builtInTables(), "en");
  return texts.find(key, preferred);
}

}  // namespace

platform::Bundle& resourceBundle() { return slot().get(); }

std::shared_ptr<platform::Bundle> setResourceBundle(std::shared_ptr<platform::Bundle> bundle) {
  return slot().set(std::move(bundle));
}

std::string localizedString(std::string_view key, std::string_view fallback) {
  return localizedString(key, fallback, std::nullopt);
}

std::string localizedString(std::string_view key, std::string_view fallback,
                            const std::optional<platform::Locale>& locale) {
  const auto languages = locale ? std::vector{locale->languageTag()}
                                : platform::services().locale.get().preferredLanguages();
  constexpr std::string_view kTable = "Localizable";
  if (auto text = slot().shared()->localizedStringIfPresent(key, kTable, languages)) {
    return *std::move(text);
  }
  if (auto text = builtInText(key, languages)) return *std::move(text);
  return std::string(fallback);
}

}  // namespace ombrix
