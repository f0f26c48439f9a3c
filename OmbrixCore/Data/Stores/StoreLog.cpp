#include "OmbrixCore/Data/Stores/StoreLog.hpp"

#include <string>

#include "OmbrixCore/Extensions/Logging/Log.hpp"

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

}  // namespace ombrix::detail
