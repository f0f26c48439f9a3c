#pragma once

#include <string>
#include <string_view>

namespace ombrix::devserver {

/// How a body is coded: "gzip", the "deflate" of HTTP (zlib's format), or the bare deflate that
/// some servers send under the same name.
enum class Compression { gzip, zlib, bareDeflate };

/// The text compressed. Throws `platform::Error`. Any thread.
std::string compressed(std::string_view text, Compression how);

}  // namespace ombrix::devserver
