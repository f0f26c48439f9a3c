#pragma once

/// \file
/// All of `Ombrix::Day`: recordings of all formats, and the days measured from them.

#include "Ombrix/Tracks.hpp"
#include "OmbrixDay/Filters/DerivedMotion.hpp"
#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Formats/Track.hpp"
#include "OmbrixDay/Measuring/Day.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"
