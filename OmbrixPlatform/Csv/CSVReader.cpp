#include "OmbrixPlatform/Csv/CSVReader.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "OmbrixPlatform/Csv/Detail/NumberRow.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::platform {
namespace {

constexpr char kQuote = '"';
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Bytes in front of and behind the buffer's contents that number scanners may load.
constexpr std::size_t kPadding = 128;

/// With fewer bytes than this in the buffer, the next block is read before a row of numbers is
/// tried, so that rows seldom have to be looked at twice.
constexpr std::ptrdiff_t kLowWaterBytes = 1024;

constexpr bool endsRow(char c) noexcept { return c == '\n' || c == '\r'; }

constexpr bool isNumberCharacter(char c) noexcept {
  return (c >= '0' && c <= '9') || c == '.' || c == '-';
}

/// How many bytes the stream has left, where that is known.
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
  if (closesStream_) stream_->close();
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

/// Reads on behind the bytes not consumed, which keep their order but not their place: at least as
/// many as there are, so that a long row is not scanned over and over. False at the end.
bool CSVReader::fill() {
  if (atEnd_) return false;
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

/// Moves the unread tail to the front of a buffer with room for as much again.
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
    while (position_ != end_ && endsRow(*position_)) ++position_;
    const char* position = position_;
    if (position_ != end_ && scanRow(position)) {
      position_ = position;
      return Row(fields_);
    }
    if (fill()) continue;
    if (error_) position_ = end_;  // the row that broke off
    if (position_ == end_) return std::nullopt;
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

/// Splits the row at `position` and moves behind it; false when its end has not been read yet.
bool CSVReader::scanRow(const char*& position) {
  fields_.clear();
  unescaped_.clear();
  unescapedText_.clear();
  for (;;) {
    if (trimFields_) skipWhitespace(position);
    const bool isQuoted = position != end_ && *position == kQuote;
    if (!(isQuoted ? scanQuotedField(position) : scanPlainField(position))) return false;
    if (position == end_) {
      if (!isComplete()) return false;
      break;
    }
    const char c = *position++;
    if (endsRow(c)) break;
  }
  for (const auto& [field, begin, size] : unescaped_) {
    fields_[field] = std::string_view(unescapedText_).substr(begin, size);
  }
  return true;
}

bool CSVReader::scanPlainField(const char*& position) {
  const char* const begin = position;
  while (position != end_ && !endsField(*position)) ++position;
  fields_.push_back(trimmed({begin, position}));
  return position != end_ || isComplete();
}

/// A field whose opening quote lies at `position`.
bool CSVReader::scanQuotedField(const char*& position) {
  const char* segment = ++position;
  const auto unescapedBegin = unescapedText_.size();
  bool isVerbatim = true;
  for (;;) {
    position = std::find(position, end_, kQuote);
    if (position == end_) {
      if (!isComplete()) return false;
      break;
    }
    if (position + 1 == end_ && !isComplete()) return false;
    if (position + 1 == end_ || position[1] != kQuote) break;
    isVerbatim = false;
    unescapedText_.append(segment, position + 1);
    position += 2;
    segment = position;
  }
  const std::string_view lastSegment(segment, position);
  if (position != end_) ++position;

  const char* const rest = position;
  while (position != end_ && !endsField(*position)) ++position;
  if (position == end_ && !isComplete()) return false;
  const std::string_view behindQuote = trimmed({rest, position});
  if (isVerbatim && behindQuote.empty()) {
    fields_.push_back(lastSegment);
    return true;
  }
  unescapedText_.append(lastSegment).append(behindQuote);
  unescaped_.push_back({fields_.size(), unescapedBegin, unescapedText_.size() - unescapedBegin});
  fields_.emplace_back();
  return true;
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
