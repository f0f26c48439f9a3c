#pragma once

#include <memory>

#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixC/OmbrixDate.h"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

struct OmbrixDateFormatter {
  std::shared_ptr<const ombrix::platform::DateFormatter> formatter;  // never null
  ombrix::c::Handle handle = {};
};
