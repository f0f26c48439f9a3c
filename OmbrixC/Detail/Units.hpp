#pragma once

#include "OmbrixC/OmbrixUnits.h"
#include "OmbrixPlatform/Measure/NSUnit.hpp"

namespace ombrix::c {

/// The unit of an enumerator; one out of range stops the program.
platform::AnyUnit from(OmbrixUnit unit);

/// The enumerator of a unit of the platform or of beats per minute.
OmbrixUnit toC(const platform::AnyUnit& unit);

}  // namespace ombrix::c
