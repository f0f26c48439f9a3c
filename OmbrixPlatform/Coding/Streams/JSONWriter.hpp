#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONCodingOptions.hpp"

namespace ombrix::platform {

/// Writes a JSON document without white space, as a `CodingWriter`.
///
/// The caller keeps calls balanced and keys distinct. Throws `EncodingError` for numbers that are
/// not finite (unless the options name texts for them), for text that is not UTF-8 and for nesting
/// beyond 512 levels. Borrows the options. One thread.
class JSONWriter {
 public:
  explicit JSONWriter(const JSONCodingOptions* options = nullptr);

  void null();
  void boolean(bool value);
  void integer(std::int64_t value);
  void unsignedInteger(std::uint64_t value);
  void real(double value);
  void text(std::string_view value);
  void data(DataView value);
  void date(Date value);
  void json(const JSON& value);

  void beginObject() { open('{'); }
  void key(std::string_view name);
  /// A key that needs no escapes.
  void plainKey(std::string_view name) {
    reserve(name.size() + 3);
    *at_++ = '"';
    std::memcpy(at_, name.data(), name.size());
    at_ += name.size();
    *at_++ = '"';
    *at_++ = ':';
  }
  void endObject() { close('}'); }
  void beginArray() { open('['); }
  void endArray() { close(']'); }
  void writeWith(void (*encode)(Encoder&, const void*), const void* value);

  /// The finished document. The writer is empty afterwards.
  Data finish();

  [[nodiscard]] CodingPathChain& pathChain() noexcept { return path_; }
  [[nodiscard]] CodingPath codingPath() const { return path_.path(); }

 private:
  // Each value is followed by a comma; a container's end replaces the last one.
  void open(char bracket);
  void close(char bracket);
  void raw(std::string_view text);
  void quoted(std::string_view text, char behind);
  void escape(unsigned char c);
  void reserve(std::size_t size) {
    if (static_cast<std::size_t>(limit_ - at_) < size) grow(size);
  }
  void grow(std::size_t size);
  [[nodiscard]] const JSONCodingOptions& options() const noexcept;

  const JSONCodingOptions* options_;
  std::unique_ptr<char[]> buffer_;
  char* at_ = nullptr;
  char* limit_ = nullptr;
  int depth_ = 0;
  CodingPathChain path_;
};

}  // namespace ombrix::platform
