#pragma once

#include <memory>

#include "OmbrixPlatform/Messaging/MMWormhole.hpp"

namespace ombrix {

/// A new channel between the user's phone and watch, in the folder "wormhole" of the product's app
/// group. Failures are logged; without the group's folder it does nothing. Any thread.
///
///     OmbrixWormhole()->passMessageObject("miles", "units");
std::shared_ptr<platform::MMWormhole> OmbrixWormhole();

}  // namespace ombrix
