#include "Tools/DevServer/HTTP/Compression.hpp"

#include <zlib.h>

#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::devserver {

std::string compressed(std::string_view text, Compression how) {
  int windowBits = MAX_WBITS;
  if (how == Compression::gzip) windowBits += 16;
  if (how == Compression::bareDeflate) windowBits = -windowBits;
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, MAX_MEM_LEVEL,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw platform::Error("the body could not be compressed");
  }
  std::string out(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw platform::Error("the body could not be compressed");
  return out;
}

}  // namespace ombrix::devserver
