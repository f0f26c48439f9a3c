#pragma once

#include <openssl/crypto.h>

namespace ombrix::platform::detail {

/// Initialises OpenSSL; call it before any other use: the first call decides whether OpenSSL cleans
/// up at exit, which would break running network threads. Any thread; later calls do nothing.
inline void setUpOpenSSL() noexcept { ::OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

}  // namespace ombrix::platform::detail
