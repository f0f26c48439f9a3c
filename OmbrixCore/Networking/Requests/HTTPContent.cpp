#include "OmbrixCore/Networking/Requests/HTTPContent.hpp"

#include <algorithm>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix {
namespace {

using platform::HTTPBodySource;
using platform::SharedData;
using platform::URLError;

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

/// Bytes in memory.
class BytesSource final : public HTTPBodySource {
 public:
  explicit BytesSource(SharedData data) : data_(std::move(data)) {}

  [[nodiscard]] std::string_view text() const { return platform::textOf(data_); }

  std::expected<std::optional<std::int64_t>, URLError> length() const override {
    return static_cast<std::int64_t>(data_.size());
  }
  std::expected<std::size_t, URLError> read(std::int64_t offset,
                                            std::span<std::byte> buffer) const override {
    const auto rest =
        platform::DataView(data_).subspan(std::min(static_cast<std::size_t>(offset), data_.size()));
    const std::size_t count = std::min(rest.size(), buffer.size());
    std::ranges::copy(rest.first(count), buffer.begin());
    return count;
  }

 private:
  const SharedData data_;
};

std::shared_ptr<const BytesSource> bytes(std::string_view text) {
  return std::make_shared<const BytesSource>(SharedData(platform::dataFrom(text)));
}

/// Bodies of known lengths, one after the other.
class JoinedSource final : public HTTPBodySource {
 public:
  void add(std::shared_ptr<const HTTPBodySource> source) {
    if (failure_ || !source) return;
    const auto length = source->length();
    if (!length) {
      failure_ = length.error();
    } else if (!*length) {
      failure_ = URLError(URLError::Code::unknown, "a part of the body does not know its length");
    } else {
      pieces_.push_back({std::move(source), length_});
      length_ += **length;
    }
  }
  void fail(URLError error) {
    if (!failure_) failure_ = std::move(error);
  }

  std::expected<std::optional<std::int64_t>, URLError> length() const override {
    if (failure_) return std::unexpected(*failure_);
    return length_;
  }
  std::expected<std::size_t, URLError> read(std::int64_t offset,
                                            std::span<std::byte> buffer) const override {
    if (offset >= length_) return 0;
    // The last piece that begins there or earlier; an empty piece begins where the next one does.
    const auto after = std::ranges::upper_bound(pieces_, offset, {}, &Piece::start);
    const auto end = after == pieces_.end() ? length_ : after->start;
    const auto& piece = *std::prev(after);
    const auto most = static_cast<std::uint64_t>(end - offset);
    return piece.source->read(offset - piece.start,
                              buffer.first(std::min<std::uint64_t>(buffer.size(), most)));
  }

 private:
  struct Piece {
    std::shared_ptr<const HTTPBodySource> source;
    std::int64_t start = 0;
  };

  std::vector<Piece> pieces_;
  std::int64_t length_ = 0;
  std::optional<URLError> failure_;
};

bool isPlainInForm(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '*' ||
         c == '-' || c == '.' || c == '_';
}

void appendEscaped(std::string& text, char c) {
  const auto byte = static_cast<unsigned char>(c);
  text.append(1, '%').append(1, kHexDigits[byte >> 4U]).append(1, kHexDigits[byte & 15U]);
}

void appendToForm(std::string& text, std::string_view value) {
  for (const char c : value) {
    if (c == ' ') {
      text += '+';
    } else if (isPlainInForm(c)) {
      text += c;
    } else {
      appendEscaped(text, c);
    }
  }
}

/// A name in quotes: characters that would end it, or the line, are escaped, as browsers do.
std::string inQuotes(std::string_view name) {
  std::string text = "\"";
  for (const char c : name) {
    if (c == '"' || c == '\r' || c == '\n') {
      appendEscaped(text, c);
    } else {
      text += c;
    }
  }
  return text += '"';
}

std::string headOf(const HTTPPart& part) {
  std::string head = "Content-Disposition: form-data; name=" + inQuotes(part.name);
  if (!part.fileName.empty()) head += "; filename=" + inQuotes(part.fileName);
  if (!part.type.empty()) head += "\r\nContent-Type: " + part.type;
  return head += "\r\n\r\n";
}

bool contains(const HTTPPart& part, std::string_view boundary) {
  const auto* inMemory = dynamic_cast<const BytesSource*>(part.body.get());
  return (inMemory != nullptr && inMemory->text().find(boundary) != std::string_view::npos) ||
         headOf(part).find(boundary) != std::string::npos;
}

}  // namespace

HTTPPart HTTPPart::field(std::string name, std::string_view value) {
  return {.name = std::move(name), .fileName = {}, .type = {}, .body = bytes(value)};
}

HTTPPart HTTPPart::data(std::string name, SharedData data, std::string fileName, std::string type) {
  return {.name = std::move(name),
          .fileName = std::move(fileName),
          .type = std::move(type),
          .body = std::make_shared<const BytesSource>(std::move(data))};
}

HTTPPart HTTPPart::file(std::string name, const std::filesystem::path& file, std::string type) {
  return {.name = std::move(name),
          .fileName = file.filename().string(),
          .type = std::move(type),
          .body = HTTPBodySource::file(file)};
}

HTTPContent HTTPContent::form(const Fields& fields) {
  std::string text;
  for (const auto& [name, value] : fields) {
    if (!text.empty()) text += '&';
    appendToForm(text, name);
    text += '=';
    appendToForm(text, value);
  }
  return {.type = "application/x-www-form-urlencoded", .body = bytes(text)};
}

HTTPContent HTTPContent::multipart(std::vector<HTTPPart> parts,
                                   const std::function<std::string()>& boundary) {
  std::string line;
  do {
    line = boundary ? boundary() : platform::UUID::random().uuidString();
  } while (std::ranges::any_of(parts, [&](const auto& part) { return contains(part, line); }));
  const auto body = std::make_shared<JoinedSource>();
  std::string before = "--" + line + "\r\n";
  for (auto& part : parts) {
    if (!platform::HTTPHeaders::isValue(part.type)) {
      body->fail(URLError(URLError::Code::badURL, "the type of a part cannot be sent"));
    }
    body->add(bytes(before + headOf(part)));
    body->add(std::move(part.body));
    before = "\r\n--" + line + "\r\n";
  }
  body->add(bytes((parts.empty() ? "--" : "\r\n--") + line + "--\r\n"));
  return {.type = "multipart/form-data; boundary=" + line, .body = body};
}

}  // namespace ombrix
