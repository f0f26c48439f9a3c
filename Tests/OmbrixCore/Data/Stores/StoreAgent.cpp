// Another process at the stores:
//   write FOLDER SIZE…   stores values of these sizes in turn under the key "k", until it is killed
//   share GROUP ROUNDS   reads and writes one file and the keys of one folder in the group's
//                        container, beside others that do the same; fails on a torn or lost value

#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace {

using namespace ombrix;
using platform::URL;

/// A value that shows when it is a mixture of two: one letter, many times.
std::string uniform(std::size_t size, unsigned index) {
  return std::string(size, static_cast<char>('a' + index % 26));
}

bool isWhole(const std::optional<std::string>& value) {
  return value && !value->empty() && value->find_first_not_of(value->front()) == std::string::npos;
}

int write(const char* folder, const std::vector<std::size_t>& sizes) {
  const PlistKeyedItemStore<std::string> store(URL::fileURL(folder, true));
  std::cout << "ready" << std::endl;
  for (unsigned i = 0;; ++i) store.store(uniform(sizes[i % sizes.size()], i), "k").get();
}

int share(const char* group, unsigned rounds) {
  const URL container = URL::fileURL(group, true);
  platform::services().directories.get().setContainerForGroup(FileManager::OmbrixGroupName,
                                                              container);
  const PlistFileStore<std::string> one(container.appendingPathComponent("one", false));
  const PlistKeyedItemStore<std::string> keyed(container.appendingPathComponent("keyed", true));
  constexpr unsigned kKeys = 5;
  for (unsigned i = 0; i < kKeys; ++i) keyed.store(uniform(100, i), std::to_string(i)).get();
  one.setValue(uniform(100, 1));
  for (unsigned i = 0; i < rounds; ++i) {
    const std::string key = std::to_string(i % kKeys);
    if (!isWhole(one.value()) || !isWhole(keyed.value(key).get())) return 1;
    if (i % 3 != 0) continue;
    one.setValue(uniform(50 + i * 37 % 30'000, i));
    keyed.store(uniform(50 + i * 91 % 30'000, i), key).get();
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  if (std::string_view(argv[1]) == "share") {
    return share(argv[2], static_cast<unsigned>(std::stoul(argv[3])));
  }
  std::vector<std::size_t> sizes;
  for (int i = 3; i < argc; ++i) sizes.push_back(std::stoul(argv[i]));
  return write(argv[2], sizes);
}
