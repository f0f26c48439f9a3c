#pragma once

#include <cstdint>
#include <string>

#include "OmbrixPlatform/Coding/JSON.hpp"

namespace ombrix::hostapp {

/// What the service has kept of a day.
struct UploadedDay {
  std::string name;              ///< As the service names the day.
  std::uint64_t trackBytes = 0;  ///< How many bytes of the track arrived.
};

/// Sends a day's figures to the connected service, and its track under the name that the service
/// gives; failures end the command.
UploadedDay uploadDay(const platform::JSON& figures, const std::string& trackFile);

}  // namespace ombrix::hostapp
