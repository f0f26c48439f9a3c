#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform::detail {

/// Gathers the header of an HTTP answer from its lines (RFC 9112 sections 4 and 5): interim answers
/// are passed over, folded lines joined, trailers counted and dropped.
class HTTPHeaderReader {
 public:
  enum class Result : std::uint8_t {
    more,       ///< the line was taken
    complete,   ///< it ended the header of the final answer
    malformed,  ///< it is no status line and no field
    tooLong,    ///< the lines are more than `kMaximumBytes` together, or `kMaximumFields`
  };

  static constexpr std::size_t kMaximumBytes = 256 * 1024;
  static constexpr std::size_t kMaximumFields = 1000;

  /// Takes the next line, its line end included.
  Result add(std::string_view line);

  [[nodiscard]] bool isComplete() const noexcept { return isComplete_; }
  [[nodiscard]] int statusCode() const noexcept { return statusCode_; }
  [[nodiscard]] const std::string& httpVersion() const noexcept { return httpVersion_; }
  [[nodiscard]] const HTTPHeaders& headers() const noexcept { return headers_; }
  HTTPHeaders takeHeaders() noexcept { return std::move(headers_); }

 private:
  bool readStatus(std::string_view line);
  bool readField(std::string_view line);
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

/// The length that "Content-Length" states: nothing when it is not there, an empty inner value when
/// it is no number, or several that differ (RFC 9110 section 8.6).
std::optional<std::optional<std::int64_t>> contentLength(const HTTPHeaders& headers);

}  // namespace ombrix::platform::detail
