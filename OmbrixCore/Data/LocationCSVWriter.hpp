#pragma once

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
/// reject the shorter row. One thread at a time.
class LocationCSVWriter {
 public:
  LocationCSVWriter() = delete;

  /// Opens the file at a URL for appending, or makes it. When the last character of an existing
  /// file is not a line break, one is written at once, so that the first fix stands on a line of
  /// its own; a file that is not UTF-8 throughout, or cannot be read, is left as it is. Only such a
  /// file without a line break at its end is read from its beginning.
  ///
  /// A URL that is no file URL stops the program.
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

  /// The stream that is written to.
  [[nodiscard]] const std::shared_ptr<platform::OutputStream>& stream() const noexcept {
    return writer_.stream();
  }

 private:
  void addRow(const CLLocation& location);

  platform::CSVWriter writer_;
};

}  // namespace ombrix
