#pragma once

#include <string>

#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "OmbrixDay/Measuring/Day.hpp"

namespace ombrix::hostapp {

/// The day's altitudes over time for a terminal, drawn in braille dots: runs coloured by speed,
/// lifts in another colour; with heights and times at the edges. Empty for a day without altitudes
/// and when there is no room.
/// @param columns How wide it may be.
std::string dayChart(const Day& day, FigureTexts& figures, std::size_t columns, bool isStyled);

/// A bar of whole and partial blocks.
/// @param share 0 to 1 of `columns`.
std::string bar(double share, std::size_t columns);

}  // namespace ombrix::hostapp
