#pragma once

#include <string>

#include "Examples/HostApp/Days/RecordedDay.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"

namespace ombrix::hostapp {

/// The day as lines of text in the user's units and language: its figures, then its rides.
std::string dayReport(const RecordedDay& recorded, FigureTexts& figures);

}  // namespace ombrix::hostapp
