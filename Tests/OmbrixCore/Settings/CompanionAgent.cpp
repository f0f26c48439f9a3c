// The companion of the tests:  companion-agent GROUP_FOLDER
// Passes each line of its input, "IDENTIFIER TEXT", and answers "done".

#include <iostream>
#include <string>

#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

int main(int argc, char** argv) {
  using namespace ombrix;
  if (argc != 2) return 2;
  platform::services().directories.get().setContainerForGroup(
      FileManager::OmbrixGroupName, platform::URL::fileURL(argv[1], true));
  const auto channel = OmbrixWormhole();
  std::string identifier, text;
  while (std::cin >> identifier >> text) {
    channel->passMessageObject(text, identifier);
    std::cout << "done" << std::endl;
  }
}
