// Any bytes as the file of a domain: reading and writing survive them, and nothing that could be
// read is lost by the write.

#include <cstdint>
#include <cstdlib>
#include <exception>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ombrix::platform::UserDefaults;
  static const auto& dir = *new ombrix::testing::ScopedDir;
  const auto open = [] {
    return UserDefaults::make(
        {.folder = dir.path(), .domain = "fuzz", .onError = [](const auto&) {}});
  };
  dir.write("fuzz.plist", {reinterpret_cast<const char*>(data), size});
  const auto defaults = open();
  auto expected = defaults->persistentDomain();
  for (const auto& [key, value] : expected) {
    if (defaults->objectForKey(key) != value) std::abort();
    if (defaults->stringForKey(key).has_value() !=
        (value.text() || value.boolean() || value.real() || value.unsignedInteger())) {
      std::abort();
    }
    const double number =
        defaults->doubleForKey(key) + static_cast<double>(defaults->integerForKey(key));
    if (defaults->boolForKey(key) && defaults->stringArrayForKey(key) && number != 0) std::abort();
  }
  expected.set("key", "value");
  try {
    defaults->setObject("value", "key");
  } catch (const std::exception&) {
    std::abort();  // what was read can be written
  }
  defaults->synchronize();
  if (open()->dictionaryRepresentation().size() != expected.size()) std::abort();
  return 0;
}
