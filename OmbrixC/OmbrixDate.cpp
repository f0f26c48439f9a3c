#include "OmbrixC/OmbrixDate.h"

#include "OmbrixCore/Extensions/Search/Date+Comparison.hpp"

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
