#include "OmbrixCore/Data/Stores/StoreLog.hpp"

#include <cerrno>
#include <new>
#include <string>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixPlatform/Coding/CodingError.hpp"
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

bool logIfUnreadable(const platform::URL& file, const std::exception& error,
                     std::source_location where) {
  constexpr std::string_view kReading = "Error reading the object: ";
  using platform::DecodingError;
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
    try {
      logItemStore("value", kReading, platform::FileError(ENOMEM, "read", file.path()), where);
    } catch (const std::bad_alloc&) {  // There is no memory for the line, either.
    }
    return true;
  }
  const auto* decoding = dynamic_cast<const DecodingError*>(&error);
  if (decoding == nullptr || decoding->kind() != DecodingError::Kind::tooLarge) return false;
  logItemStore("value", kReading, error, where);
  return true;
}

}  // namespace ombrix::detail
