#pragma once

/// \file
/// All of `Ombrix::Core`.

#include "Ombrix/Client.hpp"
#include "Ombrix/Formatting.hpp"
#include "Ombrix/Settings.hpp"
#include "Ombrix/Stores.hpp"
#include "Ombrix/Tracks.hpp"
