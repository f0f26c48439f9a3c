// Another process at a coordinated file:
//   count LOCKS FILE N   adds one to the number in the file N times
//   write LOCKS FILE TEXT
//   hold  LOCKS FILE     has exclusive access until its input ends

#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Files/NSFileCoordinator.hpp"
#include "Tests/Support/Agent.hpp"

namespace {

using namespace ombrix::platform;

void count(const URL& url) {
  long number = 0;
  std::ifstream(url.path()) >> number;
  std::ofstream(url.path()) << number + 1;
}

}  // namespace

int ombrix::agent::coordinate(int argc, char** argv) {
  if (argc < 4) return 2;
  const std::string_view command = argv[1];
  const NSFileCoordinator coordinator(nullptr, URL::fileURL(argv[2], true));
  const URL file = URL::fileURL(argv[3]);
  const auto write = [&](const NSFileCoordinator::Accessor& accessor) {
    return coordinator
        .coordinateWritingItemAtURL(file, NSFileCoordinator::WritingOptions::forMerging, accessor)
        .has_value();
  };
  if (command == "count") {
    for (int i = std::stoi(argv[4]); i > 0; --i) {
      if (!write(count)) return 1;
    }
    return 0;
  }
  if (command == "write") {
    return write([&](const URL& url) { std::ofstream(url.path()) << argv[4]; }) ? 0 : 1;
  }
  return write([](const URL&) {
    std::cout << "held" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
    }
  })
             ? 0
             : 1;
}
