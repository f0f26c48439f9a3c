#pragma once

/// \file
/// All of `Ombrix::Formatting`: measurements, durations and timers as text, styled.

#include "Ombrix/Settings.hpp"
#include "OmbrixCore/Formatting/FormatNames.hpp"
#include "OmbrixCore/Formatting/NSUnit+Localized.hpp"
#include "OmbrixCore/Formatting/OmbrixDurationFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixTimerFormatter.hpp"
#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"
#include "OmbrixCore/Formatting/SkiMeasurement.hpp"
#include "OmbrixCore/Formatting/SpanFormatter.hpp"
