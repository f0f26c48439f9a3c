// Date text: the first byte chooses a pattern, the rest is read by it; eight bytes also make a
// date.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "OmbrixPlatform/Text/DateFormatter.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ombrix::platform;
  static const std::array<DateFormatter*, 4> formatters{
      new DateFormatter("MM/dd/yyyy HH:mm:ss:SSS", Locale("en_US"), "UTC"),
      new DateFormatter("yyyy-MM-dd'T'HH:mm:ss.SSSZZZZZ", Locale("en_US"), "Europe/Zurich"),
      new DateFormatter("EEEE d. MMMM yyyy, h:mm a zzzz", Locale("ar_EG"), "America/St_Johns"),
      new DateFormatter("SSS ss A", Locale("th_TH"), "UTC"),
  };
  if (size == 0) return 0;
  const DateFormatter& formatter = *formatters[data[0] % formatters.size()];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  if (const auto date = formatter.dateFrom(text)) (void)formatter.stringFrom(*date);

  double seconds = 0;
  if (text.size() >= sizeof seconds) {
    std::memcpy(&seconds, text.data(), sizeof seconds);
    const std::string first = formatter.stringFrom(dateSince1970(seconds));
    if (formatter.stringFrom(dateSince1970(seconds)) != first) std::abort();
  }
  return 0;
}
