#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswer.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

// What the disk holds of an answer besides its body. Values from requests, tokens among them, are
// stored as SHA-256 digests only. Pure functions, any thread.

namespace ombrix::platform::detail {

using Digest = std::array<std::byte, 32>;

/// A selecting field whose value is known by its digest alone; views into the record.
struct DigestedField {
  std::string_view name;
  std::optional<Digest> value;

  friend bool operator==(const DigestedField&, const DigestedField&) = default;
};

/// The front of a record, enough to tell whether it fits a request; views into the record.
struct RecordHead {
  std::string_view key;
  std::vector<DigestedField> selecting;
  DataView rest;
};

/// The rest of it.
struct RecordBody {
  ExchangeTimes times;
  std::uint64_t bodyBytes = 0;
  std::uint64_t bodyChecksum = 0;
  std::shared_ptr<const HTTPURLResponse> response;
};

/// A fast checksum against damage, not against forgery; the same on every machine of one byte
/// order.
std::uint64_t checksumOf(DataView bytes) noexcept;

/// The key as the index stores it.
std::int64_t hashOf(std::string_view key) noexcept;

/// The most header fields of one answer: one with more is not kept, and a record with more counts
/// as damaged.
inline constexpr std::size_t kMostRecordFields = 1024;

/// Whether the record of an answer can be read back.
bool fitsRecord(const CachedAnswer& answer);

/// @param answer An answer for which `fitsRecord` is true.
Data recordOf(const CachedAnswer& answer);

/// Empty for a record that is damaged, truncated or of another version.
std::optional<RecordHead> readHead(DataView record);
std::optional<RecordBody> readBody(const RecordHead& head);

/// Computes the checksum of a record's bytes and stores it in the record.
void sealRecord(std::span<std::byte> record) noexcept;

bool selects(const std::vector<DigestedField>& fields, const HTTPHeaders& request);

}  // namespace ombrix::platform::detail
