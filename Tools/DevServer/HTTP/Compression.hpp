#pragma once

#include <string>
#include <string_view>

namespace ombrix::devserver {

/// The coding of a body: "gzip", the "deflate" of HTTP (zlib's format), or the bare deflate that
/// some servers send under the same name.
enum class Compression { gzip, zlib, bareDeflate };

/// Compresses the text. Throws `platform::Error`. Any thread.
std::string compressed(std::string_view text, Compression how);

}  // namespace ombrix::devserver
