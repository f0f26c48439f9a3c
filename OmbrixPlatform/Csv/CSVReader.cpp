#include "OmbrixPlatform/Csv/CSVReader.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "OmbrixPlatform/Csv/Detail/NumberRow.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::platform {
namespace {

constexpr char kQuote = '"';
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Bytes before and after the buffer's contents that number scanners may load.
constexpr std::size_t kPadding = 128;

/// If the buffer holds fewer bytes than this, the next block is read before a row of numbers is
/// tried, so that few rows are scanned twice.
constexpr std::ptrdiff_t kLowWaterBytes = 1024;

constexpr bool endsRow(char c) noexcept { return c == '\n' || c == '\r'; }

constexpr bool isNumberCharacter(char c) noexcept {
  return (c >= '0' && c <= '9') || c == '.' || c == '-';
}

/// The number of bytes left in the stream, if known.
std::optional<std::uint64_t> remainingSize(const InputStream& stream) {
  if (const auto bytes = stream.remainingBytes()) return bytes->size();
  const int descriptor = stream.fileDescriptor();
  struct stat info{};
  if (descriptor < 0 || fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) {
    return std::nullopt;
  }
  const off_t place = lseek(descriptor, 0, SEEK_CUR);
  if (place < 0 || place > info.st_size) return std::nullopt;
  return static_cast<std::uint64_t>(info.st_size - place);
}

}  // namespace

CSVReader::CSVReader(std::string_view text) : CSVReader(text, Configuration{}) {}

CSVReader::CSVReader(std::string_view text, const Configuration& configuration)
    : bytesTotal_(text.size()) {
  readInPlace(text);
  start(configuration);
}

CSVReader::CSVReader(InputStream& stream) : CSVReader(stream, Configuration{}) {}

CSVReader::CSVReader(InputStream& stream, const Configuration& configuration) : stream_(&stream) {
  openStream();
  try {
    start(configuration);
  } catch (...) {
    if (closesStream_) stream_->close();
    throw;
  }
}

CSVReader::~CSVReader() {
  if (closesStream_) {
    stream_->close();
  } else if (stream_ != nullptr && stream_->remainingBytes()) {
    // A stream that was open is read to its end, even if its bytes were read in place.
    std::array<std::byte, 4096> unused;
    while (stream_->read(unused).value_or(0) != 0) {
    }
  }
}

void CSVReader::openStream() {
  if (stream_->streamStatus() == StreamStatus::notOpen) {
    const auto opened = stream_->open();
    if (!opened) throw CSVError(CSVError::Kind::cannotOpenStream, opened.error().what());
    closesStream_ = true;
  }
  bytesTotal_ = remainingSize(*stream_);
  if (const auto bytes = stream_->remainingBytes()) {
    readInPlace(textOf(*bytes));
  } else {
    atEnd_ = false;
  }
}

void CSVReader::readInPlace(std::string_view text) {
  position_ = readableBegin_ = text.data();
  end_ = readableEnd_ = text.data() + text.size();
  bytesBehindEnd_ = text.size();
}

void CSVReader::start(const Configuration& configuration) {
  if (configuration.delimiter == kQuote || endsRow(configuration.delimiter)) {
    throw CSVError(CSVError::Kind::badConfiguration,
                   "A CSV delimiter cannot be a quote or a line break.");
  }
  delimiter_ = configuration.delimiter;
  trimFields_ = configuration.trimFields;
  whitespaces_ = configuration.whitespaces;
  keptFields_ = std::max<std::size_t>(configuration.keptFields, 1);
  const bool numbersAreFields =
      !isNumberCharacter(delimiter_) &&
      (!trimFields_ || std::ranges::none_of(whitespaces_, &isNumberCharacter));
  scanNumbers_ = !numbersAreFields                    ? nullptr
                 : configuration.usesWideInstructions ? detail::fastestNumberRowScanner()
                                                      : &detail::scanNumberRowPortable;
  while (static_cast<std::size_t>(end_ - position_) < kByteOrderMark.size() && fill()) {
  }
  if (error_) throw CSVError(*error_);
  if (std::string_view(position_, end_).starts_with(kByteOrderMark)) {
    position_ += kByteOrderMark.size();
  }
  if (!configuration.hasHeaderRow) return;
  if (const auto header = next()) headerRow_.assign(header->begin(), header->end());
}

std::uint64_t CSVReader::bytesRead() const noexcept {
  return bytesBehindEnd_ - static_cast<std::uint64_t>(end_ - position_);
}

/// Reads more bytes after the unconsumed ones, which may move: at least as many as there are
/// already, so that a long row is not scanned over and over. False at the end.
bool CSVReader::fill() {
  if (atEnd_) return false;
  if (std::exchange(fieldsLieInBuffer_, false)) keepFields();
  const auto tail = static_cast<std::size_t>(end_ - position_);
  makeRoom(tail);
  std::size_t added = 0;
  while (added <= tail && !atEnd_) {
    char* const target = buffer_.get() + (end_ - buffer_.get());
    const auto room = static_cast<std::size_t>(buffer_.get() + kPadding + capacity_ - target);
    if (room == 0) break;
    const auto count = stream_->read(std::as_writable_bytes(std::span(target, room)));
    if (!count) error_.emplace(CSVError::Kind::cannotReadStream, count.error().what());
    atEnd_ = !count || *count == 0;
    if (atEnd_) break;
    added += *count;
    end_ += *count;
  }
  bytesBehindEnd_ += added;
  return added != 0;
}

/// Moves the unread tail to the front of a buffer with space for as much again.
void CSVReader::makeRoom(std::size_t tail) {
  std::unique_ptr<char[]> old;
  if (capacity_ < 2 * tail || buffer_ == nullptr) {
    capacity_ = std::max(kBlockBytes, 2 * tail);
    old = std::move(buffer_);
    buffer_ = std::make_unique_for_overwrite<char[]>(capacity_ + 2 * kPadding);
    std::memset(buffer_.get(), 0, kPadding);
    std::memset(buffer_.get() + kPadding + capacity_, 0, kPadding);
  }
  char* const front = buffer_.get() + kPadding;
  if (tail != 0) std::memmove(front, position_, tail);
  position_ = front;
  end_ = front + tail;
  readableBegin_ = buffer_.get();
  readableEnd_ = buffer_.get() + capacity_ + 2 * kPadding;
}

std::optional<CSVReader::Row> CSVReader::next() {
  for (;;) {
    fieldsLieInBuffer_ = false;
    while (position_ != end_ && endsRow(*position_)) ++position_;
    const char* position = position_;
    switch (position_ != end_ ? scanRow(position) : Scan::unread) {
      case Scan::whole:
        position_ = position;
        return Row(fields_);
      case Scan::behind:
        position_ = position;
        fieldsLieInBuffer_ = true;
        if (skipFields()) return Row(fields_);
        break;
      case Scan::tooLong:
        ++droppedRows_;
        position_ = position;
        skipPlain(false);
        break;
      case Scan::unread: {
        // At the end of the input an unclosed quote is scanned again, even if the stream failed.
        const bool wasAtEnd = atEnd_;
        if (fill() || !wasAtEnd) break;
        if (error_) position_ = end_;  // the truncated row
        if (position_ == end_) return std::nullopt;
        break;
      }
    }
  }
}

bool CSVReader::nextNumbers(std::span<double> numbers) {
  if (scanNumbers_ == nullptr) return false;
  if (end_ - position_ < kLowWaterBytes) fill();
  const char* const behind =
      scanNumbers_({position_, end_, readableBegin_, readableEnd_, delimiter_}, numbers);
  if (behind == nullptr) return false;
  position_ = behind;
  return true;
}

/// Splits the row at `position` and moves past it: past its line end, past the delimiter of the
/// last kept field, or to the point where a field becomes too long.
CSVReader::Scan CSVReader::scanRow(const char*& position) {
  fields_.clear();
  unescaped_.clear();
  unescapedText_.clear();
  for (;;) {
    const char* const begin = position;
    if (trimFields_) skipWhitespace(position);
    if (static_cast<std::size_t>(position - begin) > kMaximumFieldBytes) return Scan::tooLong;
    const bool isQuoted = position != end_ && *position == kQuote;
    const Scan scan = isQuoted ? scanQuotedField(position) : scanPlainField(position);
    if (scan != Scan::whole) return scan;
    const bool isLast = position == end_ || endsRow(*position++);
    if (!isLast && fields_.size() < keptFields_) continue;
    for (const auto& [field, place, size] : unescaped_) {
      fields_[field] = std::string_view(unescapedText_).substr(place, size);
    }
    return isLast ? Scan::whole : Scan::behind;
  }
}

CSVReader::Scan CSVReader::scanPlainField(const char*& position) {
  const char* const begin = position;
  const auto bytes =
      std::min<std::size_t>(static_cast<std::size_t>(end_ - begin), kMaximumFieldBytes + 1);
  while (position != begin + bytes && !endsField(*position)) ++position;
  if (static_cast<std::size_t>(position - begin) > kMaximumFieldBytes) return Scan::tooLong;
  if (position == end_ && !isComplete()) return Scan::unread;
  fields_.push_back(trimmed({begin, position}));
  return Scan::whole;
}

/// Moves from the opening quote to the closing one. False when there is none within a field's limit
/// or before the end of the input, empty when those bytes have not been read yet.
std::optional<bool> CSVReader::findClosingQuote(const char*& position) const noexcept {
  const auto bytes =
      std::min<std::size_t>(static_cast<std::size_t>(end_ - position), kMaximumFieldBytes + 1);
  // One past the last byte where the closing quote may be.
  const char* const limit = position + bytes;
  for (;; position += 2) {
    position = std::find(position, limit, kQuote);
    if (position == limit) break;
    const bool isLast = position + 1 == end_;
    if (isLast && !atEnd_) return std::nullopt;
    if (isLast || position[1] != kQuote) return true;
    if (position + 1 == limit) break;
  }
  if (bytes <= kMaximumFieldBytes && !atEnd_) return std::nullopt;
  return false;
}

/// Scans a field whose opening quote is at `position`.
CSVReader::Scan CSVReader::scanQuotedField(const char*& position) {
  const char* segment = position + 1;
  const char* close = segment;
  const auto isClosed = findClosingQuote(close);
  if (!isClosed) return Scan::unread;
  if (!*isClosed) return scanPlainField(position);

  const char* const rest = close + 1;
  const auto bytes =
      std::min<std::size_t>(static_cast<std::size_t>(end_ - rest), kMaximumFieldBytes + 1);
  position = rest;
  while (position != rest + bytes && !endsField(*position)) ++position;
  if ((close - segment) + (position - rest) > static_cast<std::ptrdiff_t>(kMaximumFieldBytes)) {
    return Scan::tooLong;
  }
  if (position == end_ && !isComplete()) return Scan::unread;

  const std::string_view behindQuote = trimmed({rest, position});
  const auto unescapedBegin = unescapedText_.size();
  for (const char* quote = segment; (quote = std::find(segment, close, kQuote)) != close;) {
    unescapedText_.append(segment, quote + 1);
    segment = quote + 2;
  }
  const std::string_view lastSegment(segment, close);
  if (unescapedText_.size() == unescapedBegin && behindQuote.empty()) {
    fields_.push_back(lastSegment);
    return Scan::whole;
  }
  unescapedText_.append(lastSegment).append(behindQuote);
  unescaped_.push_back({fields_.size(), unescapedBegin, unescapedText_.size() - unescapedBegin});
  fields_.emplace_back();
  return Scan::whole;
}

/// Copies the fields out of the buffer, so that the following bytes can be read over them.
void CSVReader::keepFields() {
  std::string text;
  for (const auto field : fields_) text += field;
  unescapedText_ = std::move(text);
  std::size_t begin = 0;
  for (auto& field : fields_) {
    field = std::string_view(unescapedText_).substr(begin, field.size());
    begin += field.size();
  }
}

/// Skips the row whose next field begins at `position_`; false when the stream fails before.
bool CSVReader::skipFields() {
  for (;;) {
    if (trimFields_) skipWhitespace(position_);
    if (position_ == end_ && fill()) continue;
    if (position_ != end_ && *position_ == kQuote) {
      const char* close = position_ + 1;
      const auto isClosed = findClosingQuote(close);
      if (!isClosed) {
        static_cast<void>(fill());
        continue;
      }
      if (*isClosed) position_ = close + 1;
    }
    if (!skipPlain(true)) return false;
    if (position_ == end_ || endsRow(*position_++)) return true;
  }
}

/// Moves to the next line end, or delimiter if asked to; false when the stream fails before it.
bool CSVReader::skipPlain(bool stopsAtDelimiter) {
  for (;;) {
    while (position_ != end_ && !endsRow(*position_) &&
           !(stopsAtDelimiter && *position_ == delimiter_)) {
      ++position_;
    }
    if (position_ != end_) return true;
    if (!fill()) return isComplete();
  }
}

void CSVReader::skipWhitespace(const char*& position) const noexcept {
  while (position != end_ && *position != delimiter_ && whitespaces_.contains(*position) &&
         !endsRow(*position)) {
    ++position;
  }
}

std::string_view CSVReader::trimmed(std::string_view field) const noexcept {
  if (!trimFields_) return field;
  const auto last = field.find_last_not_of(whitespaces_);
  const auto first = field.find_first_not_of(whitespaces_);
  return last == field.npos ? std::string_view{} : field.substr(first, last + 1 - first);
}

}  // namespace ombrix::platform
