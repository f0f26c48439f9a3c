#pragma once

#include <string>
#include <string_view>

/// The ids of changes to the values of a cloud: each names one change, and says when this device
/// made it. The machine's steady clock, which all its processes share and nobody sets, orders those
/// of one run of the machine. Any thread.
namespace ombrix::platform::detail {

/// An id for a change that is made now, later than all that this process has given before.
std::string makeChangeId();

/// Whether an id says when. Those of earlier releases do not.
bool isTimed(std::string_view id);

/// Whether a change of this device is known to be later than another one of it. What was made
/// since the machine started is later than what was made before; of two from before, in different
/// runs, neither is known to be.
bool isLater(std::string_view id, std::string_view other);

}  // namespace ombrix::platform::detail
