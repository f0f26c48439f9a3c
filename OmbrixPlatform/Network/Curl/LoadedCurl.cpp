#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <dlfcn.h>

#include <string>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

void* loaded(const char* name) {
  // It is never unloaded: its threads and memory may be in use while the process ends.
  static void* const library = ::dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  void* const function = library == nullptr ? nullptr : ::dlsym(library, name);
  if (function == nullptr) fatalError(std::string("libcurl is unusable: ") + ::dlerror());
  return function;
}

LoadedCurl load() {
  LoadedCurl functions{};
#define OMBRIX_CURL_LOAD(name) \
  functions.name = reinterpret_cast<decltype(functions.name)>(loaded("curl_" #name));
  OMBRIX_CURL_FUNCTIONS(OMBRIX_CURL_LOAD)
#undef OMBRIX_CURL_LOAD
  return functions;
}

}  // namespace

const LoadedCurl& loadedCurl() noexcept {
  static const LoadedCurl functions = load();
  return functions;
}

}  // namespace ombrix::platform::detail
