#pragma once

namespace ombrix::testing {

/// A loopback port that was free a moment ago, for servers that cannot take port 0.
int unusedPort();

}  // namespace ombrix::testing
