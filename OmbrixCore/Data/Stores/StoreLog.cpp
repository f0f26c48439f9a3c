#include "OmbrixCore/Data/Stores/StoreLog.hpp"

#include <cerrno>
#include <string>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixPlatform/Files/FileError.hpp"

namespace ombrix::detail {

void logItemStore(std::string_view function, std::string_view what, const std::exception& error,
                  std::source_location where) {
  logError({"OmbrixCore/Data/ItemStore", function}, std::string(what) + error.what(), where);
}

void logKeyedItemStore(std::string_view function, std::string_view what, std::string_view key,
                       std::string_view joint, const std::exception& error,
                       std::source_location where) {
  std::string message(what);
  message.append(key).append(joint).append(error.what());
  logError({"OmbrixCore/Data/KeyedItemStore", function}, message, where);
}

void logNoMemory(const platform::URL& file, std::source_location where) {
  logItemStore("value",
               "Error reading the object: ", platform::FileError(ENOMEM, "read", file.path()),
               where);
}

}  // namespace ombrix::detail
