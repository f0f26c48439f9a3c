#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"

namespace ombrix::hostapp {
namespace {

using Store = PlistKeyedItemStore<std::string>;

struct Options {
  std::string folder, key, value;
  Store store() const { return Store(platform::URL::fileURL(folder, true)); }
};

void put(const Options& options) {
  options.store().store(options.value, options.key).get();
  if (options.store().value(options.key).get() != options.value) {
    throw CommandFailure(fmt::format("could not keep {:?}; see ombrix log", options.key));
  }
}

void get(const Options& options) {
  const auto value = options.store().value(options.key).get();
  if (!value) throw CommandFailure(fmt::format("there is nothing under {:?}", options.key));
  fmt::print("{}\n", *value);
}

void list(const Options& options) {
  auto keys = options.store().keys().get();
  std::ranges::sort(keys);
  for (const std::string& key : keys) fmt::print("{}\n", key);
}

void age(const Options& options) {
  const auto seconds = options.store().age(options.key).get();
  if (!seconds) throw CommandFailure(fmt::format("there is nothing under {:?}", options.key));
  fmt::print("{:.3f} s\n", *seconds);
}

void size(const Options& options) { fmt::print("{} bytes\n", options.store().size().get()); }

void purge(const Options& options) {
  if (options.key.empty()) {
    options.store().purge().get();
  } else {
    // Only opened keys are deleted; reading opens it.
    const Store store = options.store();
    static_cast<void>(store.value(options.key).get());
    store.purge(options.key).get();
  }
}

}  // namespace

void addStoreCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("store", "Keeps texts by key in the files of a folder");
  command->require_subcommand(1);
  const auto options = std::make_shared<Options>();
  const auto add = [&](const char* name, const char* help, void (*run)(const Options&)) {
    CLI::App* added = command->add_subcommand(name, help);
    added->add_option("DIR", options->folder, "The store's folder")->required();
    added->callback([options, run] { run(*options); });
    return added;
  };
  const auto takeKey = [&](CLI::App* added) {
    return added->add_option("KEY", options->key, "The key");
  };

  CLI::App* putting = add("put", "Keeps a text under a key", put);
  takeKey(putting)->required();
  putting->add_option("VALUE", options->value, "The text")->required();
  takeKey(add("get", "Prints the text under a key", get))->required();
  add("list", "Prints the keys", list);
  takeKey(add("age", "Prints how long ago a key was stored", age))->required();
  add("size", "Prints how much disk the folder takes", size);
  takeKey(add("purge", "Removes a key, or everything", purge));
}

}  // namespace ombrix::hostapp
