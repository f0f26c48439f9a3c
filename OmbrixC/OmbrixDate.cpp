#include "OmbrixC/OmbrixDate.h"

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/DateFormatter.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixCore/Extensions/Search/Date+Comparison.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace platform = ombrix::platform;
using ombrix::c::catching;
using ombrix::c::copied;
using ombrix::c::textFrom;
using ombrix::platform::dateSince1970;

bool ombrix_NSDate_isLaterThan_(double self, double other) {
  return ombrix::isLaterThan(dateSince1970(self), dateSince1970(other));
}

bool ombrix_NSDate_isEarlierThan_(double self, double other) {
  return ombrix::isEarlierThan(dateSince1970(self), dateSince1970(other));
}

bool ombrix_NSDate_isLaterThanOrEqualTo_(double self, double other) {
  return ombrix::isLaterThanOrEqualTo(dateSince1970(self), dateSince1970(other));
}

bool ombrix_NSDate_isEarlierThanOrEqualTo_(double self, double other) {
  return ombrix::isEarlierThanOrEqualTo(dateSince1970(self), dateSince1970(other));
}

OmbrixDateFormatter* ombrix_DateFormatter_initWithDateFormat_locale_timeZone_(
    const char* dateFormat, const char* locale, const char* timeZone) {
  return catching(nullptr, [&] {
    return new OmbrixDateFormatter{std::make_shared<const platform::DateFormatter>(
        textFrom(dateFormat),
        locale == nullptr ? platform::Locale::current() : platform::Locale(locale),
        textFrom(timeZone))};
  });
}

void ombrix_DateFormatter_release(OmbrixDateFormatter* self) { delete self; }

char* ombrix_DateFormatter_stringFromDate_(const OmbrixDateFormatter* self, double date) {
  return catching(nullptr, [&] {
    return copied(std::string_view(self->formatter->stringFrom(dateSince1970(date))));
  });
}

bool ombrix_DateFormatter_dateFromString_error_(const OmbrixDateFormatter* self, const char* string,
                                                double* date, OmbrixError** error) {
  return catching(error, [&] {
    const auto read = self->formatter->dateFrom(textFrom(string));
    if (!read) {
      throw platform::Error("The text “" + std::string(textFrom(string)) + "” is not a date.");
    }
    if (date != nullptr) *date = platform::timeIntervalSince1970(*read);
    return true;
  });
}
