#include "OmbrixPlatform/Bundles/Bundle.hpp"

#include <dlfcn.h>

#include <filesystem>
#include <map>
#include <vector>

#include "OmbrixPlatform/Bundles/StringsTable.hpp"
#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Detail/Environment.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/LanguageMatch.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;

constexpr const char* kProgramLink = "/proc/self/exe";

fs::path programPath() {
  std::error_code ignored;
  return fs::read_symlink(kProgramLink, ignored);
}

/// The file of the library or program that contains an address.
fs::path modulePath(const void* address) {
  Dl_info info{};
  std::error_code error;
  if (dladdr(address, &info) != 0 && info.dli_fname != nullptr) {
    fs::path path = fs::canonical(info.dli_fname, error);
    if (!error) return path;
  }
  return programPath();  // a program is named as it was called, which may not be a path
}

// A program that formats for many readers at once does not keep all their tables.
constexpr std::size_t kMaximumLanguages = 16;

std::vector<std::string> languagesIn(const URL& folder) {
  constexpr std::string_view kExtension = "lproj";
  std::vector<std::string> names;
  const auto items =
      FileManager::defaultManager().contentsOfDirectory(folder, EnumerationOptions::none);
  if (!items) return names;
  for (const URL& item : *items) {
    if (item.pathExtension() == kExtension) {
      names.push_back(item.deletingPathExtension().lastPathComponent());
    }
  }
  return names;
}

}  // namespace

/// The tables of the language chosen for a user's preferences.
struct Bundle::Texts {
  std::optional<URL> folder;
  Mutex mutex;
  std::map<std::string, std::shared_ptr<const StringsTable>, std::less<>> tables
      OMBRIX_GUARDED_BY(mutex);

  std::shared_ptr<const StringsTable> table(std::string_view name) {
    {
      const LockGuard lock(mutex);
      if (const auto known = tables.find(name); known != tables.end()) return known->second;
    }
    auto read = std::make_shared<const StringsTable>();
    if (folder) {
      const auto file = folder->appendingPathComponent(std::string(name) + ".strings", false);
      const auto bytes = FileManager::defaultManager().contents(file);
      if (bytes) read = std::make_shared<const StringsTable>(StringsTable::parse(*bytes));
    }
    const LockGuard lock(mutex);
    return tables.try_emplace(std::string(name), std::move(read)).first->second;
  }
};

Bundle::Bundle(URL folder) : folder_(std::move(folder)) {}

Bundle::Bundle(URL folder, PropertyList info) : folder_(std::move(folder)) {
  std::call_once(infoRead_, [&] { info_ = std::move(info); });
}

Bundle::~Bundle() = default;

Bundle& Bundle::main() { return services().mainBundle.get(); }

std::optional<URL> Bundle::resourceFolder(std::string_view name, const void* address) {
  std::error_code ignored;
  for (fs::path folder = modulePath(address).parent_path(); !folder.empty();
       folder = folder.parent_path()) {
    const fs::path found = folder / "share" / name;
    if (fs::is_directory(found, ignored)) return URL::fileURL(found.string(), true);
    if (folder == folder.root_path()) break;
  }
  std::string folders = detail::environment("XDG_DATA_DIRS");
  if (folders.empty()) folders = "/usr/local/share:/usr/share";
  std::string_view list = folders;
  while (!list.empty()) {
    const auto end = std::min(list.find(':'), list.size());
    const fs::path found = fs::path(list.substr(0, end)) / name;
    if (found.is_absolute() && fs::is_directory(found, ignored)) {
      return URL::fileURL(found.string(), true);
    }
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return std::nullopt;
}

const PropertyList* Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  std::call_once(infoRead_, [this] {
    const auto bytes =
        FileManager::defaultManager().contents(folder_.appendingPathComponent("Info.plist", false));
    if (!bytes) return;
    try {
      info_ = PropertyListSerialization::read(*bytes);
    } catch (const PropertyListError&) {
      info_ = PropertyList();  // a damaged file counts as empty
    }
  });
  return info_.find(key);
}

std::optional<std::string> Bundle::bundleIdentifier() const {
  const PropertyList* value = objectForInfoDictionaryKey("CFBundleIdentifier");
  if (value == nullptr || value->text() == nullptr) return std::nullopt;
  return *value->text();
}

std::shared_ptr<Bundle::Texts> Bundle::textsFor(std::vector<std::string> preferred) const {
  {
    const LockGuard lock(mutex_);
    if (const auto known = texts_.find(preferred); known != texts_.end()) return known->second;
  }
  const auto available = languagesIn(folder_);
  auto language = bestLanguage(preferred, available);
  if (!language) {
    const PropertyList* region = objectForInfoDictionaryKey("CFBundleDevelopmentRegion");
    const bool isNamed = region != nullptr && region->text() != nullptr;
    const std::vector<std::string> others{isNamed ? *region->text() : "en", "en"};
    language = bestLanguage(others, available);
  }
  auto texts = std::make_shared<Texts>();
  if (language) texts->folder = folder_.appendingPathComponent(*language + ".lproj", true);
  const LockGuard lock(mutex_);
  if (texts_.size() >= kMaximumLanguages) texts_.clear();
  return texts_.try_emplace(std::move(preferred), std::move(texts)).first->second;
}

std::string Bundle::localizedString(std::string_view key, std::string_view fallback,
                                    std::string_view table) const {
  if (auto text = localizedStringIfPresent(key, table)) return *std::move(text);
  return std::string(fallback.empty() ? key : fallback);
}

std::optional<std::string> Bundle::localizedStringIfPresent(std::string_view key,
                                                            std::string_view table) const {
  return localizedStringIfPresent(key, table, services().locale.get().preferredLanguages());
}

std::optional<std::string> Bundle::localizedStringIfPresent(
    std::string_view key, std::string_view table, std::vector<std::string> languages) const {
  const auto strings = textsFor(std::move(languages))->table(table);
  const std::string* text = strings->find(key);
  return text == nullptr ? std::nullopt : std::optional(*text);
}

std::shared_ptr<Bundle> makeMainBundle() {
  const fs::path program = programPath();
  const fs::path folder = program.parent_path();
  const fs::path shared = (folder.parent_path() / "share" / program.filename());
  std::error_code ignored;
  const bool isShared = fs::is_regular_file(shared / "Info.plist", ignored);
  return std::make_shared<Bundle>(URL::fileURL((isShared ? shared : folder).string(), true));
}

void setMainBundleIdentity(const BundleIdentity& identity) {
  const auto before = services().mainBundle.shared();
  PropertyList::Dictionary info;
  for (const auto& [key, value] : {std::pair("CFBundleIdentifier", &identity.identifier),
                                   std::pair("CFBundleShortVersionString", &identity.version),
                                   std::pair("CFBundleVersion", &identity.build)}) {
    if (!value->empty()) info.set(key, *value);
  }
  constexpr const char* kRegion = "CFBundleDevelopmentRegion";
  if (const auto* region = before->objectForInfoDictionaryKey(kRegion)) info.set(kRegion, *region);
  services().mainBundle.set(std::make_shared<Bundle>(before->bundleURL(), std::move(info)));
}

std::string mainBundleName() {
  if (auto identifier = Bundle::main().bundleIdentifier()) return *std::move(identifier);
  const std::string program = programPath().filename().string();
  return program.empty() ? "unnamed" : program;
}

template <>
std::shared_ptr<Bundle> makeDefault() {
  return makeMainBundle();
}

}  // namespace ombrix::platform
