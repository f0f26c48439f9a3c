#pragma once

namespace ombrix::testing {

/// A loopback port that nobody listened on a moment ago, for servers that cannot be told 0.
int unusedPort();

}  // namespace ombrix::testing
