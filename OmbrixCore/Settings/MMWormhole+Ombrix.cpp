#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"

#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixCore/Extensions/Logging/Log.hpp"

namespace ombrix {

std::shared_ptr<platform::MMWormhole> OmbrixWormhole() {
  return std::make_shared<platform::MMWormhole>(
      FileManager::OmbrixGroupName, "wormhole", [](const std::string& message) {
        logError({"OmbrixCore/Settings/MMWormhole+Ombrix", "OmbrixWormhole()"}, message);
      });
}

}  // namespace ombrix
