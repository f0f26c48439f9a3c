#include "OmbrixCore/Data/Stores/DataKeyedItemStore.hpp"

#include <algorithm>
#include <cmath>
#include <list>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "OmbrixCore/Data/Stores/DataFileStore.hpp"
#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixCore/Data/Stores/String+FileName.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix {
namespace {

using platform::Async;
using platform::Data;
using platform::Date;
using platform::EnumerationOptions;
using platform::FileError;
using platform::URL;

const FileManager& files() { return FileManager::defaultManager(); }

/// A file name's parts before and after its last "."; there is no extension if either part is
/// empty.
std::pair<std::string_view, std::string_view> splitName(std::string_view name) {
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {name, {}};
  return {name.substr(0, dot), name.substr(dot + 1)};
}

}  // namespace

struct DataKeyedItemStore::State {
  State(URL directory, std::string extension, std::optional<std::int64_t> limit)
      : baseDirectory(std::move(directory)),
        fileExtension(std::move(extension)),
        sizeLimit(limit) {}

  [[nodiscard]] URL path(std::string_view key) const {
    return baseDirectory.appendingPathComponent(sanitizedFileName(key) + '.' + fileExtension,
                                                false);
  }

  DataFileStore& open(const std::string& key) {
    auto opened = stores.find(key);  // first, since a path takes as long as a read's bookkeeping
    if (opened == stores.end()) opened = stores.try_emplace(key, path(key)).first;
    forgetMiss(opened->second);
    return opened->second.file;
  }

  std::optional<platform::FileContents> read(const std::string& key) {
    const DataFileStore& file = open(key);
    auto contents = file.contents();
    if (contents) return *std::move(contents);
    if (!file.exists()) miss(key);
    return std::nullopt;
  }

  /// Notes that nothing was found under a key. The key counts as opened, but only a limited number
  /// of the last such keys do: otherwise asking for new keys for ever would take more and more
  /// memory.
  void miss(const std::string& key) {
    stores.find(key)->second.miss = missed.insert(missed.end(), key);
    if (missed.size() <= kMostMissed) return;
    stores.erase(missed.front());
    missed.pop_front();
  }

  void remove(const std::string& key) {
    const auto found = stores.find(key);
    if (found == stores.end()) return;
    found->second.file.purge();
    erase(found);
  }

  bool remove(const std::string& key, const platform::FileContents& contents) {
    const auto found = stores.find(key);
    if (found == stores.end()) return true;
    if (!found->second.file.purge(contents)) return false;
    erase(found);
    return true;
  }

  /// Visits all entries with the extension below the folder.
  void forEachFile(const std::function<void(const platform::DirectoryEntry&)>& visit,
                   std::string_view function, std::string_view failure) const {
    files().enumerate(
        baseDirectory, EnumerationOptions::skipsHiddenFiles,
        [&](const platform::DirectoryEntry& entry) {
          if (splitName(entry.name()).second == fileExtension) visit(entry);
          return true;
        },
        [&](const FileError& error) {
          detail::logKeyedItemStore(function, failure, {}, {}, error);
        });
  }

  [[nodiscard]] std::vector<std::string> keys() const {
    std::vector<std::string> keys;
    if (!files().fileExists(baseDirectory)) return keys;
    std::unordered_set<std::string> seen;
    forEachFile(
        [&](const platform::DirectoryEntry& entry) {
          std::string name(splitName(entry.name()).first);
          if (seen.insert(name).second) keys.push_back(std::move(name));
        },
        "keys", "Data: Error getting keys for disk store: ");
    return keys;
  }

  void removeOldest(std::int64_t keeping) {
    std::vector<std::pair<Date, std::string>> found;
    forEachFile(
        [&](const platform::DirectoryEntry& entry) {
          const auto values = entry.resourceValues();
          if (values) found.emplace_back(values->contentModificationDate, entry.name());
        },
        "purgeOldest(keeping:)", "Data: Error purging in disk store: ");
    std::ranges::sort(found);
    found.resize(detail::excessOver(found.size(), keeping));
    for (const auto& [date, name] : found) remove(name);
  }

  platform::Serial serial{platform::SectionPlace::offMainQueue};
  const URL baseDirectory;
  const std::string fileExtension;
  const std::optional<std::int64_t> sizeLimit;
  using Misses = std::list<std::string>;  // distinct keys, the last one missed at the end
  struct Opened {
    explicit Opened(URL url) : file(std::move(url)) {}

    DataFileStore file;
    std::optional<Misses::iterator> miss;  // keys under which nothing was found
  };
  using Stores = std::unordered_map<std::string, Opened>;
  static constexpr std::size_t kMostMissed = 1024;

  void forgetMiss(Opened& opened) {
    if (opened.miss) missed.erase(*opened.miss);
    opened.miss.reset();
  }
  void erase(Stores::iterator opened) {
    forgetMiss(opened->second);
    stores.erase(opened);
  }

  Stores stores;
  Misses missed;
};

DataKeyedItemStore::DataKeyedItemStore(URL baseDirectory, std::string fileExtension,
                                       std::optional<std::int64_t> sizeLimit)
    : state_(
          std::make_shared<State>(std::move(baseDirectory), std::move(fileExtension), sizeLimit)) {}

const URL& DataKeyedItemStore::baseDirectory() const noexcept { return state_->baseDirectory; }

const std::string& DataKeyedItemStore::fileExtension() const noexcept {
  return state_->fileExtension;
}

std::optional<std::int64_t> DataKeyedItemStore::sizeLimit() const noexcept {
  return state_->sizeLimit;
}

URL DataKeyedItemStore::path(std::string_view key) const { return state_->path(key); }

Async<std::optional<Data>> DataKeyedItemStore::value(std::string key) const {
  return detail::onActor(state_, [key = std::move(key)](State& state) -> std::optional<Data> {
    auto contents = state.read(key);
    if (!contents) return std::nullopt;
    return std::move(contents->bytes);
  });
}

Async<std::optional<platform::FileContents>> DataKeyedItemStore::contents(std::string key) const {
  return detail::onActor(state_, [key = std::move(key)](State& state) { return state.read(key); });
}

Async<bool> DataKeyedItemStore::purge(std::string key, platform::FileContents contents) const {
  return detail::onActor(state_, [key = std::move(key), contents = std::move(contents)](
                                     State& state) { return state.remove(key, contents); });
}

Async<void> DataKeyedItemStore::store(std::optional<Data> value, std::string key) const {
  return detail::onActor(state_, [value = std::move(value), key = std::move(key)](State& state) {
    if (value) {
      state.open(key).setValue(value);
    } else {
      state.remove(key);
    }
  });
}

Async<bool> DataKeyedItemStore::exists(std::string key) const {
  return detail::onActor(
      state_, [key = std::move(key)](State& state) { return files().fileExists(state.path(key)); });
}

Async<std::optional<double>> DataKeyedItemStore::age(std::string key) const {
  return detail::onActor(state_, [key = std::move(key)](State& state) -> std::optional<double> {
    const auto file = files().resolvingLastLink(state.path(key));
    if (!file) return std::nullopt;
    const auto stored = files().modificationDate(*file);
    if (!stored) return std::nullopt;
    return std::abs((platform::services().clock.get().now() - *stored).count());
  });
}

Async<std::vector<std::string>> DataKeyedItemStore::keys() const {
  return detail::onActor(state_, [](State& state) { return state.keys(); });
}

Async<std::uint64_t> DataKeyedItemStore::size() const {
  return detail::onActor(state_, [](State& state) -> std::uint64_t {
    return files().allocatedSize(state.baseDirectory).value_or(0);
  });
}

Async<void> DataKeyedItemStore::purge(std::string key) const {
  return detail::onActor(state_, [key = std::move(key)](State& state) { state.remove(key); });
}

Async<void> DataKeyedItemStore::purge() const {
  return detail::onActor(state_, [](State& state) {
    const auto folder = files().resolvingLastLink(state.baseDirectory);
    if (folder) (void)files().removeItem(*folder);
  });
}

Async<void> DataKeyedItemStore::purgeOldest(std::int64_t keeping) const {
  return detail::onActor(state_, [keeping](State& state) { state.removeOldest(keeping); });
}

}  // namespace ombrix
