#pragma once

#include <CLI/CLI.hpp>

namespace ombrix::hostapp {

/// A check for an option: its text is a number, whole and finite, within limits. CLI11 itself takes
/// an empty text for 0 and lets "nan" and "inf" pass.
CLI::Validator numberBetween(double least, double most);

/// The same for a whole number.
CLI::Validator wholeNumberBetween(long long least, long long most);

/// A check for an option: its text is not empty, as that of a variable that is not set in a shell.
CLI::Validator notEmpty();

/// The greatest count that a command accepts.
inline constexpr long long kMostToCount = 1'000'000'000;

}  // namespace ombrix::hostapp
