#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "OmbrixCore/Location/CLLocation.hpp"
#include "OmbrixPlatform/Csv/CSVWriter.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix {

/// Appends fixes to a track file, or to any stream, in the form that `LocationCSVParser` reads.
///
/// Numbers are cut towards zero after six decimals, course and accuracies after one. There is no
/// header line. A value that is not finite has no text: its field is left out, and the parser will
/// reject the shorter row.
///
/// After a failure, as on a full disk, the writer goes on with the next fix once there is room; a
/// file then ends with its last whole row, and no part of a row stays in it. Where another process
/// has appended behind or among that part, nothing is cut: the part is ended as a row that no
/// parser takes, and the next fix begins a line. `fixesWritten` tells how many fixes are there, so
/// that those behind can be added again. One thread at a time.
class LocationCSVWriter {
 public:
  LocationCSVWriter() = delete;

  /// Opens the file at a URL for appending, or makes it. When the last character of an existing
  /// file is not a line break, one is written at once, so that the first fix stands on a line of
  /// its own; a file that is not UTF-8 throughout, or cannot be read, is left as it is. Only such a
  /// file without a line break at its end is read from its beginning.
  ///
  /// A URL that is not a file URL stops the program.
  /// @throws platform::CSVError when the file cannot be opened or the line break not be written
  explicit LocationCSVWriter(const platform::URL& url);

  /// Writes to a stream, which is opened, and closed with the writer, when it is not open yet.
  /// @throws platform::CSVError when it cannot be opened
  explicit LocationCSVWriter(std::shared_ptr<platform::OutputStream> stream);

  /// Writes one fix and hands it to the stream.
  /// @throws platform::CSVError when the stream does not take it
  void add(const CLLocation& location);

  /// Writes fixes in their order and hands them to the stream together.
  /// @throws platform::CSVError at the first write that fails; fixes already written stay, those
  ///         behind are not tried
  void add(std::span<const CLLocation> locations);

  /// How many fixes the stream has taken whole since the writer was made.
  [[nodiscard]] std::uint64_t fixesWritten() const noexcept {
    return writer_.linesWritten() - linesBefore_;
  }

  /// Waits until all fixes so far survive a loss of power. A disk takes milliseconds for it: once
  /// in a minute suits a recording better than once for each fix.
  /// @throws platform::CSVError when that cannot be promised, as for a stream without a disk
  void sync();

  /// The stream that is written to.
  [[nodiscard]] const std::shared_ptr<platform::OutputStream>& stream() const noexcept {
    return writer_.stream();
  }

 private:
  void addRow(const CLLocation& location);

  platform::CSVWriter writer_;
  std::uint64_t linesBefore_ = 0;  ///< The line break that may have been written at the start.
};

}  // namespace ombrix
