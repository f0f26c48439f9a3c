#pragma once

#include <string>

#include "OmbrixPlatform/Coding/JSON.hpp"

namespace ombrix::hostapp {

/// A document with one value a line, indented by two blanks, for people to read.
std::string indented(const platform::JSON& json);

}  // namespace ombrix::hostapp
