//   test-agent cache <folder> <bytes>
// is another process at a cache on a folder, with a budget of bytes. It obeys lines:
//   put <n>              keeps an answer whose body follows from n
//   get <n>              prints its body, "-" for none
//   fill                 keeps answers until it is killed
//   clear, flush, usage  what the cache's operations of these names do
#include <iostream>
#include <sstream>
#include <string>

#include "CachingSamples.hpp"
#include "Tests/Support/Agent.hpp"

namespace {

using namespace ombrix::platform;
using namespace samples;

}  // namespace

int ombrix::agent::cache(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto cache = URLCache::make(0, std::stoll(argv[2]), URL::fileURL(argv[1], true));
  const auto put = [&](int n) {
    cache->storeCachedResponse(answerOf(200, "Cache-Control: max-age=1000", numberedBody(n)),
                               numberedRequest(n));
  };
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::string command;
    int n = 0;
    words >> command >> n;
    if (command == "put") {
      put(n);
    } else if (command == "get") {
      const auto found = cache->cachedResponse(numberedRequest(n));
      say(found ? std::string(textOf(*found->data)) : "-");
    } else if (command == "clear") {
      cache->removeAllCachedResponses();
    } else if (command == "flush") {
      cache->flush();
      say("flushed");
    } else if (command == "usage") {
      say(std::to_string(cache->currentDiskUsage()));
    } else if (command == "fill") {
      for (int i = 0;; ++i) {
        put(i);
        if (i % 64 != 63) continue;
        cache->flush();
        if (i == 63) say("filling");
      }
    }
  }
  cache->flush();
  return 0;
}
