// Another process at a group's message channel:  test-agent messages GROUP FOLDER
// Obeys the lines of its input and answers each with "done":
//   pass IDENTIFIER TEXT
//   burst IDENTIFIER N    passes the numbers from 1 to N as fast as it can
//   clear IDENTIFIER
//   storm IDENTIFIER      answers, then passes texts of changing lengths until it is killed

#include <iostream>
#include <sstream>
#include <string>

#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Messaging/MMWormhole.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "Tests/Support/Agent.hpp"

int ombrix::agent::messages(int argc, char** argv) {
  using namespace ombrix::platform;
  if (argc != 3) return 2;
  services().directories.get().setContainerForGroup(argv[1], URL::fileURL(argv[2], true));
  MMWormhole channel(argv[1], "wormhole");
  std::string line;
  while (std::getline(std::cin, line)) {
    std::istringstream words(line);
    std::string command, identifier, text;
    words >> command >> identifier >> text;
    if (command == "pass") {
      channel.passMessageObject(text, identifier);
    } else if (command == "burst") {
      for (int i = 1, count = std::stoi(text); i <= count; ++i) {
        channel.passMessageObject(i, identifier);
      }
    } else if (command == "clear") {
      channel.clearMessageContentsForIdentifier(identifier);
    } else {
      say("done");
      for (std::size_t size = 1;; size = size * 7 % 9973) {
        channel.passMessageObject(std::string(size, static_cast<char>('a' + size % 26)),
                                  identifier);
      }
    }
    say("done");
  }
  return 0;
}
