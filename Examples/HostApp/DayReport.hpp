#pragma once

#include <string>

#include "Examples/HostApp/DaySummary.hpp"

namespace ombrix::hostapp {

/// The summary as lines of text in the user's units and language.
/// @param title What the day is called, as in the track's file name.
std::string dayReport(const DaySummary& summary, const std::string& title);

}  // namespace ombrix::hostapp
