#pragma once

#include <cstdint>
#include <string>

#include "OmbrixPlatform/Coding/JSON.hpp"

namespace ombrix::hostapp {

/// The service's record of a day.
struct UploadedDay {
  std::string name;              ///< The service's name for the day.
  std::uint64_t trackBytes = 0;  ///< How many bytes of the track arrived.
};

/// Sends a day's figures to the connected service, and its track under the name that the service
/// gives; failures end the command.
UploadedDay uploadDay(const platform::JSON& figures, const std::string& trackFile);

}  // namespace ombrix::hostapp
