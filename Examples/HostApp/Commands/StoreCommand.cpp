#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Files/NSFileCoordinator.hpp"
#include "OmbrixPlatform/Logging/DDLogHold.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::hostapp {
namespace {

namespace fs = std::filesystem;
using Store = PlistKeyedItemStore<std::string>;

struct Options {
  std::string folder, key, value;
  bool all = false;

  platform::URL url() const { return platform::URL::fileURL(folder, true); }
  Store store() const { return Store(url()); }
};

/// Runs a command while no other program of this user changes the folder.
void coordinated(const Options& options, bool writes, const std::function<void()>& body) {
  const platform::DDLogHold untilOthersMayGoOn;
  using platform::NSFileCoordinator;
  const auto& files = FileManager::defaultManager();
  const NSFileCoordinator coordinator(nullptr,
                                      files.groupContainer().value_or(files.applicationSupport()));
  const auto run = [&](const platform::URL&) { body(); };
  const auto access = writes ? coordinator.coordinateWritingItemAtURL(
                                   options.url(), NSFileCoordinator::WritingOptions::none, run)
                             : coordinator.coordinateReadingItemAtURL(
                                   options.url(), NSFileCoordinator::ReadingOptions::none, run);
  if (access) return;
  fmt::print(stderr, "ombrix: warning: other programs may change the folder meanwhile: {}\n",
             access.error().what());
  body();
}

/// The file of the key, behind links; empty when there is none.
std::optional<fs::path> fileOf(const Options& options) {
  fs::path file = options.store().backingDiskStore().path(options.key).path();
  if (!fs::exists(file)) return std::nullopt;
  return file;
}

/// Whether a file comes from a store: a property list, binary or XML, or one whose writer was
/// killed at the beginning or in the middle.
bool isStoreFile(const fs::path& path) {
  if (!fs::is_regular_file(path)) return false;
  std::string start(1024, ' ');
  std::ifstream file(path, std::ios::binary);
  file.read(start.data(), static_cast<std::streamsize>(start.size()));
  if (file.bad()) return false;
  start.resize(static_cast<std::size_t>(file.gcount()));
  return start.empty() || start.starts_with("bplist0") ||
         start.starts_with(std::string_view("\0plist0", 7)) ||
         (start.starts_with('<') && start.find("<plist") != std::string::npos);
}

[[noreturn]] void refuse(const fs::path& file, std::string_view why) {
  throw CommandFailure(fmt::format("{:?} {}; it was left alone", file.string(), why));
}

/// The text under the key. A store removes files that it cannot decode; but a command that reads or
/// replaces one text must leave others' files, and values of other types, as they are.
std::optional<std::string> textOf(const Options& options) {
  const auto file = fileOf(options);
  if (!file) return std::nullopt;
  if (!isStoreFile(*file)) refuse(*file, "is not a file of a store");
  const auto bytes = DataKeyedItemStore(options.url(), "data").value(options.key).get();
  if (!bytes) refuse(*file, "could not be read, see ombrix log");
  // A killed writer's file counts as no value.
  if (bytes->empty() || bytes->front() == std::byte{0}) return std::nullopt;
  try {
    return platform::PropertyListDecoder().decode<std::string>(*bytes);
  } catch (const platform::Error&) {
    refuse(*file, "holds no text");
  }
}

void put(const Options& options) {
  if (options.store().backingDiskStore().path(options.key).lastPathComponent() == ".data") {
    throw CommandFailure(
        fmt::format("{:?} has no character that is kept in a file's name, so it "
                    "would share a file with other such keys",
                    options.key));
  }
  static_cast<void>(textOf(options));
  options.store().store(options.value, options.key).get();
  if (textOf(options) != options.value) {
    throw CommandFailure(fmt::format("could not keep {:?}; see ombrix log", options.key));
  }
}

void get(const Options& options) {
  const auto value = textOf(options);
  if (!value) throw CommandFailure(fmt::format("there is nothing under {:?}", options.key));
  fmt::print("{}\n", *value);
}

/// Ends the command where there is a folder that cannot be read: a store answers for it as for an
/// empty one.
void requireReadable(const Options& options) {
  std::error_code error;
  const fs::directory_iterator folder(options.folder, error);
  if (!error || error == std::errc::no_such_file_or_directory) return;
  throw CommandFailure(fmt::format("{:?} cannot be read: {}", options.folder, error.message()));
}

void list(const Options& options) {
  requireReadable(options);
  auto keys = options.store().keys().get();
  std::ranges::sort(keys);
  for (const std::string& key : keys) fmt::print("{}\n", key);
}

void age(const Options& options) {
  requireReadable(options);
  const auto seconds = options.store().age(options.key).get();
  if (!seconds) throw CommandFailure(fmt::format("there is nothing under {:?}", options.key));
  fmt::print("{:.3f} s\n", *seconds);
}

void size(const Options& options) {
  requireReadable(options);
  fmt::print("{} bytes\n", options.store().size().get());
}

/// Removes the folder if it contains nothing but a store's files; follows a link, which stays.
void purgeAll(const Options& options) {
  std::error_code error;
  const fs::path folder = fs::canonical(options.url().path(), error);
  if (error || !fs::is_directory(folder)) {
    throw CommandFailure(fmt::format("there is no folder {:?}", options.folder));
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const fs::path name = entry.path().filename();
    const bool isNamed = name == ".data" || name.extension() == ".data";
    if (!isNamed || entry.is_symlink() || !isStoreFile(entry.path())) {
      throw CommandFailure(
          fmt::format("{:?} is not a file of a store; nothing was removed", entry.path().string()));
    }
    files.push_back(entry.path());
  }
  if (::access(folder.parent_path().c_str(), W_OK) != 0) {
    throw CommandFailure(
        fmt::format("{:?} cannot be removed; nothing was removed", folder.string()));
  }
  // One by one: a file that comes meanwhile keeps its folder.
  for (const fs::path& file : files) fs::remove(file);
  fs::remove(folder);
}

void purgeKey(const Options& options) {
  const auto file = fileOf(options);
  if (!file) return;
  if (!isStoreFile(*file)) refuse(*file, "is not a file of a store");
  // Only opened keys are deleted; reading opens it.
  const DataKeyedItemStore store(options.url(), "data");
  static_cast<void>(store.value(options.key).get());
  store.purge(options.key).get();
  if (fs::exists(*file)) {
    throw CommandFailure(fmt::format("could not remove {:?}; see ombrix log", options.key));
  }
}

void purge(const Options& options) {
  const bool hasKey = !options.key.empty();
  if (hasKey == options.all) {
    throw CLI::ValidationError("purge takes a KEY, or --all for the whole folder");
  }
  options.all ? purgeAll(options) : purgeKey(options);
}

}  // namespace

void addStoreCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("store", "Keeps texts by key in the files of a folder");
  command->require_subcommand(1);
  const auto options = std::make_shared<Options>();
  const auto add = [&](const char* name, const char* help, bool writes,
                       void (*run)(const Options&)) {
    CLI::App* added = command->add_subcommand(name, help);
    // An empty text must not stand for another folder, or for all keys.
    added->add_option("DIR", options->folder, "The store's folder")->required()->check(notEmpty());
    added->callback(
        [options, writes, run] { coordinated(*options, writes, [&] { run(*options); }); });
    return added;
  };
  const auto takeKey = [&](CLI::App* added) {
    return added->add_option("KEY", options->key, "The key")->check(notEmpty());
  };

  CLI::App* putting = add("put", "Keeps a text under a key", true, put);
  takeKey(putting)->required();
  putting->add_option("VALUE", options->value, "The text")->required();
  takeKey(add("get", "Prints the text under a key", true, get))->required();
  add("list", "Prints the keys", false, list);
  takeKey(add("age", "Prints how long ago a key was stored", false, age))->required();
  add("size", "Prints how much disk the folder takes", false, size);
  CLI::App* purging =
      add("purge", "Removes a key, or with --all the folder of a store", true, purge);
  takeKey(purging);
  purging->add_flag("--all", options->all,
                    "Remove the folder, which must hold nothing but a store's files");
}

}  // namespace ombrix::hostapp
