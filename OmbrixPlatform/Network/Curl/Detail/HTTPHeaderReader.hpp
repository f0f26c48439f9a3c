#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform::detail {

/// Gathers the header of an HTTP answer from its lines (RFC 9112 sections 4 and 5): it skips
/// interim answers, joins folded lines, and counts and drops trailers.
class HTTPHeaderReader {
 public:
  enum class Result : std::uint8_t {
    more,       ///< the line was taken
    complete,   ///< it ended the header of the final answer
    malformed,  ///< it is neither a status line nor a field
    ambiguous,  ///< a blank before the colon, which parsers read differently
    upgrade,    ///< the server switches protocols (101)
    tooLong,    ///< the lines are more than `kMaximumBytes` together, or `kMaximumFields`
  };

  static constexpr std::size_t kMaximumBytes = 256 * 1024;
  static constexpr std::size_t kMaximumFields = 1000;

  /// Takes the next line, its line end included.
  Result add(std::string_view line);

  /// The bytes of all lines so far, those of interim answers included.
  [[nodiscard]] std::size_t bytes() const noexcept { return bytes_; }
  [[nodiscard]] bool isComplete() const noexcept { return isComplete_; }
  [[nodiscard]] int statusCode() const noexcept { return statusCode_; }
  [[nodiscard]] const std::string& httpVersion() const noexcept { return httpVersion_; }
  [[nodiscard]] const HTTPHeaders& headers() const noexcept { return headers_; }
  HTTPHeaders takeHeaders() noexcept { return std::move(headers_); }

 private:
  bool readStatus(std::string_view line);
  Result readField(std::string_view line);
  void keepField();

  std::size_t bytes_ = 0;
  std::size_t fields_ = 0;
  int statusCode_ = 0;  // 0: a status line comes next
  bool isComplete_ = false;
  std::string httpVersion_;
  std::string name_;  // the field that the next line may continue; empty: none
  std::string value_;
  HTTPHeaders headers_;
};

/// How the body of an answer ends.
struct BodyFraming {
  enum class Kind : std::uint8_t { none, length, chunked, untilClose };

  Kind kind = Kind::none;
  std::int64_t length = 0;      ///< of the coded bytes; for `Kind::length`
  const char* fault = nullptr;  ///< a sentence on why nobody can tell; null when all is well
};

/// Reads it from the header (RFC 9112 section 6.3), more strictly than most clients: any transfer
/// coding but a lone "chunked", a length that is not a single number, and both at once are faults,
/// since libcurl and a proxy on the way may read them differently.
[[nodiscard]] BodyFraming framingOf(std::string_view method, int statusCode,
                                    const HTTPHeaders& headers);

}  // namespace ombrix::platform::detail
