#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixPlatform/Csv/CSVWriter.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix {

/// Appends fixes to a track file, or to any stream, in the format of `LocationCSVParser`.
///
/// Numbers are truncated towards zero to six decimals, course and accuracies to one. There is no
/// header line. A value that is not finite has no text: its field is left out, and the parser will
/// reject the shorter row.
///
/// After a failure, such as a full disk, the writer continues with the next fix once there is
/// space; a file then ends with its last complete row. If another process has appended after or
/// inside a partial row, the file is not truncated: the partial row is ended so that every parser
/// rejects it, and the next fix begins a line. `fixesWritten` tells how many fixes were written, so
/// that the following ones can be added again. One thread at a time.
///
///     LocationCSVWriter writer(platform::URL::fileURL("day.csv"));
///     writer.add(fix);
class LocationCSVWriter {
 public:
  LocationCSVWriter() = delete;

  /// Opens the file at a URL for appending, or creates it. If the last character of an existing
  /// file is not a line break, writes one at once, so that the first fix has a line of its own; a
  /// file that is not UTF-8 throughout, or cannot be read, is left as it is. Only such a file
  /// without a final line break is read from its beginning.
  ///
  /// A URL that is not a file URL stops the program.
  /// @throws platform::CSVError when the file cannot be opened or the line break cannot be written
  explicit LocationCSVWriter(const platform::URL& url);

  /// Writes to a stream; opens it, and closes it with the writer, if it is not open yet.
  /// @throws platform::CSVError when it cannot be opened
  explicit LocationCSVWriter(std::shared_ptr<platform::OutputStream> stream);

  /// Writes one fix and passes it to the stream.
  /// @throws platform::CSVError when the stream does not take it
  void add(const CLLocation& location);

  /// Writes fixes in order and passes them to the stream together.
  /// @throws platform::CSVError at the first write that fails; fixes already written stay, the
  ///   following ones are not tried
  void add(std::span<const CLLocation> locations);

  /// The number of fixes that the stream has taken completely since the writer was created.
  [[nodiscard]] std::uint64_t fixesWritten() const noexcept {
    return writer_.linesWritten() - linesBefore_;
  }

  /// Waits until all fixes so far would survive a loss of power. A disk takes milliseconds for it:
  /// during a recording, call it once a minute rather than for each fix.
  /// @throws platform::CSVError when that cannot be guaranteed, as for a stream without a disk
  void sync();

  /// The output stream.
  [[nodiscard]] const std::shared_ptr<platform::OutputStream>& stream() const noexcept {
    return writer_.stream();
  }

 private:
  void addRow(const CLLocation& location);

  platform::CSVWriter writer_;
  std::uint64_t linesBefore_ = 0;  ///< The line break written at the start, if any.
};

}  // namespace ombrix
