#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <string>

#include "OmbrixPlatform/Detail/Environment.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {
namespace {

/// A variable's value where it is an absolute path, else empty.
std::string absolutePathIn(const char* variable) {
  std::string value = detail::environment(variable);
  return value.starts_with('/') ? value : std::string();
}

bool isFolder(const char* path) noexcept {
  struct stat info{};
  return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

/// The home folder that the password database names; empty where it names none that exists, as for
/// service accounts.
std::string homeInPasswordDatabase() {
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 16384> buffer{};
  const int error = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
  if (error != 0 || found == nullptr || found->pw_dir == nullptr) return {};
  return *found->pw_dir == '/' && isFolder(found->pw_dir) ? found->pw_dir : "";
}

/// The system's name for a folder that never is there.
constexpr const char* kNowhere = "/nonexistent";

/// Whether a path is a folder that this user may enter and that is theirs or may be written. What
/// is theirs counts also where it is read-only for now: what is kept there is read, and a write
/// fails.
bool isUsableFolder(const std::string& path) noexcept {
  struct stat info{};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
         access(path.c_str(), X_OK) == 0 &&
         (info.st_uid == geteuid() || access(path.c_str(), W_OK) == 0);
}

/// Whether this user can ever keep anything there: where one of the folders that are used is usable
/// already, or one could be made.
bool isUsableHome(std::string path) {
  if (path == kNowhere) return false;
  for (const char* used : {"/.local/share", "/.config", "/.cache"}) {
    if (isUsableFolder(path + used)) return true;
  }
  while (path.starts_with('/')) {
    struct stat info{};
    if (stat(path.c_str(), &info) == 0) {
      return S_ISDIR(info.st_mode) && access(path.c_str(), W_OK | X_OK) == 0;
    }
    if (errno != ENOENT) return false;
    const auto slash = path.find_last_of('/');
    path.erase(slash == 0 ? 1 : slash);
  }
  return false;
}

/// Whether a folder, and no link to one, is this user's and closed to all others.
bool isPrivate(const std::string& path) noexcept {
  struct stat info{};
  return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid() &&
         (info.st_mode & 0777) == 0700;
}

/// A folder for a user without a usable home. Others may write to the temporary folder: one of the
/// user's own name is taken only when it is theirs alone, else this process gets one to itself.
std::string privateFolderIn(const std::string& temporary) {
  std::string path = temporary + "/home-" + std::to_string(geteuid());
  if (mkdir(path.c_str(), 0700) == 0 || isPrivate(path)) return path;
  path += "-XXXXXX";
  if (mkdtemp(path.data()) != nullptr) return path;
  return kNowhere;
}

/// The value of XDG_DOCUMENTS_DIR in the text of user-dirs.dirs; empty where it names none. The
/// file holds shell assignments of two forms: NAME="$HOME/path" and NAME="/path".
std::string documentsIn(std::string_view file, const std::string& home) {
  constexpr std::string_view kAssignment = "XDG_DOCUMENTS_DIR=\"";
  std::string path;
  while (!file.empty()) {
    const auto lineEnd = file.find('\n');
    std::string_view line = file.substr(0, lineEnd);
    file.remove_prefix(lineEnd == std::string_view::npos ? file.size() : lineEnd + 1);
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with(kAssignment)) continue;
    line.remove_prefix(kAssignment.size());

    std::string value;
    if (line.starts_with("$HOME")) {
      value = home;
      line.remove_prefix(5);
    }
    bool isClosed = false;
    for (std::size_t i = 0; i < line.size() && !isClosed; ++i) {
      if (line[i] == '\\' && i + 1 < line.size()) {
        value.push_back(line[++i]);
      } else if (line[i] == '"') {
        isClosed = true;
      } else {
        value.push_back(line[i]);
      }
    }
    // As in a shell, the last assignment counts.
    if (isClosed && value.starts_with('/')) path = value;
  }
  return path;
}

class XdgDirectories final : public Directories {
 public:
  XdgDirectories() : temporary_(absolutePathIn("TMPDIR")), home_(absolutePathIn("HOME")) {
    if (temporary_.empty()) temporary_ = "/tmp";
    if (!isUsableHome(home_)) home_ = homeInPasswordDatabase();
    if (!isUsableHome(home_)) home_.clear();
    caches_ = absolutePathIn("XDG_CACHE_HOME");
    data_ = absolutePathIn("XDG_DATA_HOME");
    preferences_ = absolutePathIn("XDG_CONFIG_HOME");
  }

  URL caches() const override { return URL::fileURL(folder(caches_, ".cache"), true); }
  URL applicationSupport() const override { return library(); }
  URL library() const override { return URL::fileURL(folder(data_, ".local/share"), true); }
  URL preferences() const override { return URL::fileURL(folder(preferences_, ".config"), true); }
  URL temporary() const override { return URL::fileURL(temporary_, true); }

  URL documents() const override {
    const auto file = FileManager::defaultManager().contents(
        preferences().appendingPathComponent("user-dirs.dirs", false));
    const std::string path = file ? documentsIn(textOf(*file), home()) : "";
    return URL::fileURL(path.empty() ? home() : path, true);
  }

  std::optional<URL> containerForGroup(std::string_view group) const override {
    // The name is one path component: it must not lead elsewhere.
    if (group.empty() || group == "." || group == ".." ||
        group.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
      return std::nullopt;
    }
    {
      const LockGuard lock(mutex_);
      if (const auto set = containers_.find(group); set != containers_.end()) return set->second;
    }
    const std::string path = folder(data_, ".local/share") + "/" + std::string(group);
    if (!isFolder(path.c_str())) return std::nullopt;
    return URL::fileURL(path, true);
  }

  void setContainerForGroup(std::string_view group, std::optional<URL> container) override {
    const LockGuard lock(mutex_);
    if (container) {
      containers_.insert_or_assign(std::string(group), *std::move(container));
    } else if (const auto set = containers_.find(group); set != containers_.end()) {
      containers_.erase(set);
    }
  }

 private:
  /// The user's home. One that stands in is made when it is first asked for: who has folders
  /// elsewhere needs none.
  std::string home() const {
    const LockGuard lock(mutex_);
    if (home_.empty()) home_ = privateFolderIn(temporary_);
    return home_;
  }
  std::string folder(const std::string& given, const char* inHome) const {
    return given.empty() ? home() + "/" + inHome : given;
  }

  std::string temporary_, caches_, data_, preferences_;
  mutable Mutex mutex_;
  mutable std::string home_ OMBRIX_GUARDED_BY(mutex_);  // empty until there is one
  std::map<std::string, URL, std::less<>> containers_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace

std::shared_ptr<Directories> makeSystemDirectories() { return std::make_shared<XdgDirectories>(); }

template <>
std::shared_ptr<Directories> makeDefault() {
  return makeSystemDirectories();
}

}  // namespace ombrix::platform
