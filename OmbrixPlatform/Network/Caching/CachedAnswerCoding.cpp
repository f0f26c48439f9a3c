#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswerCoding.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <string>

#include "OmbrixPlatform/Detail/OpenSSL.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

// A record: version, checksum of all that follows, then the fields of head and body in the order
// of the structs; numbers in the machine's byte order, texts behind their length.
constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kChecksumAt = 1;
constexpr std::size_t kContentsAt = kChecksumAt + sizeof(std::uint64_t);

constexpr std::uint64_t kMultiplier = 0x9E37'79B9'7F4A'7C15U;

constexpr std::uint64_t mixed(std::uint64_t state, std::uint64_t word) noexcept {
  return std::rotl((state ^ word) * kMultiplier, 29);
}

std::uint64_t wordAt(const std::byte* bytes) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

Digest digestOf(std::string_view text) {
  // Fetched once: to look the algorithm up takes longer than to digest a header field.
  static EVP_MD* const algorithm = [] {
    setUpOpenSSL();
    return ::EVP_MD_fetch(nullptr, "SHA256", nullptr);
  }();
  Digest digest{};
  unsigned size = 0;
  const bool isDone =
      algorithm != nullptr &&
      ::EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char*>(digest.data()), &size,
                   algorithm, nullptr) == 1;
  // With a constant in its place one user's answer would be served to another.
  if (!isDone || size != digest.size()) fatalError("the library offers no SHA-256");
  return digest;
}

class Writer {
 public:
  template <class Number>
  void number(Number value) {
    const auto* bytes = reinterpret_cast<const std::byte*>(&value);
    record_.insert(record_.end(), bytes, bytes + sizeof value);
  }
  void bytes(DataView bytes) { record_.insert(record_.end(), bytes.begin(), bytes.end()); }
  void text(std::string_view text) {
    number(static_cast<std::uint32_t>(text.size()));
    bytes(bytesOf(text));
  }
  Data take() { return std::move(record_); }

 private:
  Data record_;
};

/// Reads a record field by field; once one field does not fit, all later ones read as empty.
class Reader {
 public:
  explicit Reader(DataView rest) : rest_(rest) {}

  template <class Number>
  Number number() {
    Number value{};
    const DataView taken = bytes(sizeof value);
    if (!taken.empty()) std::memcpy(&value, taken.data(), sizeof value);
    return value;
  }
  DataView bytes(std::size_t count) {
    isRight_ = isRight_ && count <= rest_.size();
    if (!isRight_) return {};
    const DataView taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }
  std::string_view text() { return textOf(bytes(number<std::uint32_t>())); }

  [[nodiscard]] bool isRight() const noexcept { return isRight_; }
  [[nodiscard]] DataView rest() const noexcept { return rest_; }

 private:
  DataView rest_;
  bool isRight_ = true;
};

bool isKeepable(std::string_view name, std::string_view value) noexcept {
  return HTTPHeaders::isName(name) && HTTPHeaders::isValue(value);
}

bool isKeepable(int status) noexcept { return status >= 200 && status <= 599; }

Date finiteDate(double seconds, bool& isRight) {
  isRight = isRight && std::isfinite(seconds);
  return dateSince1970(isRight ? seconds : 0);
}

}  // namespace

std::uint64_t checksumOf(DataView bytes) noexcept {
  // Eight lanes, so that the processor need not wait for each multiplication.
  std::array<std::uint64_t, 8> lanes{1, 2, 3, 4, 5, 6, 7, 8};
  const std::byte* at = bytes.data();
  std::size_t left = bytes.size();
  constexpr std::size_t kBlock = lanes.size() * sizeof(std::uint64_t);
  for (; left >= kBlock; left -= kBlock, at += kBlock) {
    for (std::size_t i = 0; i < lanes.size(); ++i) {
      lanes[i] = mixed(lanes[i], wordAt(at + i * sizeof(std::uint64_t)));
    }
  }
  std::uint64_t sum = bytes.size();
  for (const std::uint64_t lane : lanes) sum = mixed(sum, lane);
  for (; left >= sizeof sum; left -= sizeof sum, at += sizeof sum) sum = mixed(sum, wordAt(at));
  for (; left > 0; --left, ++at) sum = mixed(sum, static_cast<std::uint64_t>(*at));
  sum ^= sum >> 32;
  sum *= kMultiplier;
  return sum ^ (sum >> 29);
}

std::int64_t hashOf(std::string_view key) noexcept {
  return std::bit_cast<std::int64_t>(checksumOf(bytesOf(key)));
}

void sealRecord(std::span<std::byte> record) noexcept {
  if (record.size() < kContentsAt) return;
  const std::uint64_t checksum = checksumOf(record.subspan(kContentsAt));
  std::memcpy(record.data() + kChecksumAt, &checksum, sizeof checksum);
}

bool fitsRecord(const CachedAnswer& answer) {
  const HTTPURLResponse& response = *answer.answer.response;
  return response.headers().size() <= kMostRecordFields && isKeepable(response.statusCode()) &&
         std::isfinite(timeIntervalSince1970(answer.times.request)) &&
         std::isfinite(timeIntervalSince1970(answer.times.response)) &&
         std::ranges::all_of(response.headers(),
                             [](const auto& field) { return isKeepable(field.name, field.value); });
}

Data recordOf(const CachedAnswer& answer) {
  Writer writer;
  writer.number(kVersion);
  writer.number(std::uint64_t{0});
  writer.text(answer.key);
  writer.number(static_cast<std::uint32_t>(answer.selecting.size()));
  for (const auto& [name, value] : answer.selecting) {
    writer.text(name);
    writer.number(static_cast<std::uint8_t>(value.has_value()));
    if (value) writer.bytes(digestOf(*value));
  }
  const HTTPURLResponse& response = *answer.answer.response;
  writer.number(timeIntervalSince1970(answer.times.request));
  writer.number(timeIntervalSince1970(answer.times.response));
  writer.number(std::uint64_t{answer.answer.data->size()});
  writer.number(checksumOf(*answer.answer.data));
  writer.text(response.url().absoluteString());
  writer.number(static_cast<std::uint16_t>(response.statusCode()));
  writer.text(response.httpVersion());
  writer.number(static_cast<std::uint32_t>(response.headers().size()));
  for (const auto& [name, value] : response.headers()) {
    writer.text(name);
    writer.text(value);
  }
  Data record = writer.take();
  sealRecord(record);
  return record;
}

std::optional<RecordHead> readHead(DataView record) {
  Reader reader(record);
  const bool isKnown = reader.number<std::uint8_t>() == kVersion;
  const auto checksum = reader.number<std::uint64_t>();
  if (!isKnown || !reader.isRight() || checksum != checksumOf(reader.rest())) return std::nullopt;
  RecordHead head;
  head.key = reader.text();
  const auto count = reader.number<std::uint32_t>();
  for (std::uint32_t i = 0; i < count && reader.isRight(); ++i) {
    DigestedField field{.name = reader.text(), .value = std::nullopt};
    if (reader.number<std::uint8_t>() != 0) {
      const DataView digest = reader.bytes(sizeof(Digest));
      if (!digest.empty()) std::ranges::copy(digest, field.value.emplace().begin());
    }
    head.selecting.push_back(field);
  }
  head.rest = reader.rest();
  if (!reader.isRight()) return std::nullopt;
  return head;
}

std::optional<RecordBody> readBody(const RecordHead& head) {
  Reader reader(head.rest);
  RecordBody body;
  bool isRight = true;
  body.times.request = finiteDate(reader.number<double>(), isRight);
  body.times.response = finiteDate(reader.number<double>(), isRight);
  body.bodyBytes = reader.number<std::uint64_t>();
  body.bodyChecksum = reader.number<std::uint64_t>();
  auto url = URL::parse(reader.text());
  const int status = reader.number<std::uint16_t>();
  const std::string_view version = reader.text();
  HTTPHeaders headers;
  const auto count = reader.number<std::uint32_t>();
  if (count > kMostRecordFields) return std::nullopt;
  for (std::uint32_t i = 0; i < count && reader.isRight(); ++i) {
    const std::string_view name = reader.text();
    const std::string_view value = reader.text();
    isRight = isRight && isKeepable(name, value);
    headers.set(name, std::string(value));
  }
  const bool isWhole = reader.isRight() && reader.rest().empty();
  if (!isRight || !isWhole || !url || !isKeepable(status)) return std::nullopt;
  body.response = std::make_shared<const HTTPURLResponse>(*std::move(url), status,
                                                          std::move(headers), std::string(version));
  return body;
}

bool selects(const std::vector<DigestedField>& fields, const HTTPHeaders& request) {
  return std::ranges::all_of(fields, [&](const DigestedField& field) {
    const auto value = request.value(field.name);
    return field.value ? value && digestOf(*value) == *field.value : !value;
  });
}

}  // namespace ombrix::platform::detail
