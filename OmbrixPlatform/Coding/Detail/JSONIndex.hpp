#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace ombrix::platform::detail {

/// Where the tokens of a JSON text begin: each bracket, colon, comma, text and scalar.
///
/// Making it checks the UTF-8, that texts are closed and that no control character stands in one.
class JSONIndex {
 public:
  /// Borrows the text. `error()` says what is wrong with it; then there are no tokens.
  explicit JSONIndex(std::string_view text);
  ~JSONIndex();
  JSONIndex(const JSONIndex&) = delete;
  JSONIndex& operator=(const JSONIndex&) = delete;

  [[nodiscard]] const char* error() const noexcept { return error_; }
  [[nodiscard]] const std::uint32_t* begin() const noexcept { return tokens_; }
  [[nodiscard]] const std::uint32_t* end() const noexcept { return tokens_ + count_; }

 private:
  struct Parser;

  std::unique_ptr<Parser> parser_;
  const char* error_ = nullptr;
  const std::uint32_t* tokens_ = nullptr;
  std::size_t count_ = 0;
};

}  // namespace ombrix::platform::detail
