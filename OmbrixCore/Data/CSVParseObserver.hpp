#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace ombrix {

/// The progress of a CSV parser.
struct CSVParseProgress {
  std::size_t rowsRead = 0;     ///< Rows that became an element of the list.
  std::size_t rowsSkipped = 0;  ///< Rows that were logged and skipped.
  std::uint64_t bytesRead = 0;
  std::optional<std::uint64_t> bytesTotal;  ///< If the source knows it.
  bool isFinished = false;                  ///< Whether this is the last report of this parse.
  bool brokeOff =
      false;  ///< Whether the source, or the memory for its rows, failed before its end.
};

/// Observes one parse, for a progress bar and for the final counts.
///
/// The handler is called on the parsing thread, after about every `kReportBytes` bytes and once at
/// the end; never when the source could not be opened or read at all. It must not throw: an
/// exception stops the program.
class CSVParseObserver {
 public:
  static constexpr std::uint64_t kReportBytes = 256 * 1024;

  using Handler = std::function<void(const CSVParseProgress&)>;

  CSVParseObserver() = default;
  explicit CSVParseObserver(Handler handler) : handler_(std::move(handler)) {}

  [[nodiscard]] bool isWatching() const noexcept { return handler_ != nullptr; }
  void report(const CSVParseProgress& progress) const noexcept { handler_(progress); }

 private:
  Handler handler_;
};

}  // namespace ombrix
