#pragma once

#include <openssl/crypto.h>

namespace ombrix::platform::detail {

/// Sets OpenSSL up, before anything of it is used: whoever comes first decides whether it cleans up
/// at exit, which would pull the ground from under the network threads. Any thread; again: nothing.
inline void setUpOpenSSL() noexcept { ::OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

}  // namespace ombrix::platform::detail
