#pragma once

#include <deque>
#include <optional>
#include <vector>

#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixC/OmbrixAttributedString.h"
#include "OmbrixPlatform/Text/NSAttributedString.hpp"

struct OmbrixAttributedString {
  explicit OmbrixAttributedString(ombrix::platform::NSAttributedString styled);

  const ombrix::platform::NSAttributedString string;
  std::deque<OmbrixFont> fonts;  // a deque, since the runs point into it
  std::deque<OmbrixColor> colors;
  std::vector<OmbrixAttributedRun> runs;
  ombrix::c::Handle handle = {};
};

namespace ombrix::c {

/// The attributes that a C caller gives; NULL gives none.
platform::NSAttributedString::Attributes from(const OmbrixAttributes* attributes);

/// A styled text for a C caller to own; NULL for an empty value.
OmbrixAttributedString* owned(std::optional<platform::NSAttributedString> string);

}  // namespace ombrix::c
