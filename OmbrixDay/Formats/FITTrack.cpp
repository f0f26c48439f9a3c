// FIT activity files: record and lap messages, after the protocol's public description.

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {
namespace {

constexpr double kEpoch = 631'065'600;  // 1989-12-31 00:00:00 UTC
constexpr double kDegreesPerSemicircle = 180.0 / 2'147'483'648.0;
constexpr std::uint16_t kRecord = 20, kLap = 19;

/// The protocol's checksum, four bits at a time.
std::uint16_t checksum(platform::DataView bytes) {
  static constexpr std::array<std::uint16_t, 16> kTable = {
      0x0000, 0xCC01, 0xD801, 0x1400, 0xF001, 0x3C00, 0x2800, 0xE401,
      0xA001, 0x6C00, 0x7800, 0xB401, 0x5000, 0x9C01, 0x8801, 0x4400};
  std::uint16_t sum = 0;
  const auto add = [&sum](unsigned nibble) {
    sum = static_cast<std::uint16_t>((sum >> 4) ^ kTable[sum & 0xF] ^ kTable[nibble]);
  };
  for (const std::byte byte : bytes) {
    add(std::to_integer<unsigned>(byte) & 0xF);
    add(std::to_integer<unsigned>(byte) >> 4);
  }
  return sum;
}

struct Field {
  std::uint8_t number, size, type;
};

struct Definition {
  std::uint16_t message = 0;
  bool isKnown = false, isBigEndian = false;
  std::vector<Field> fields;
  std::size_t bytes = 0;  ///< Of a message, developers' fields included.
};

class Reader {
 public:
  explicit Reader(platform::DataView bytes) : bytes_(bytes) {}

  Track read() {
    // Files may stand one behind the other; each has its header and checksum.
    do readFile();
    while (!bytes_.empty());
    return std::move(track_);
  }

 private:
  [[nodiscard]] static std::uint64_t number(platform::DataView bytes, bool isBigEndian) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const std::size_t at = isBigEndian ? i : bytes.size() - 1 - i;
      value = value << 8 | std::to_integer<std::uint64_t>(bytes[at]);
    }
    return value;
  }

  platform::DataView take(std::size_t count) {
    if (count > data_.size()) throw TrackFormatError("a message is cut off");
    const platform::DataView taken = data_.first(count);
    data_ = data_.subspan(count);
    return taken;
  }
  std::uint8_t takeByte() { return static_cast<std::uint8_t>(take(1)[0]); }

  void readFile() {
    const std::size_t header = bytes_.empty() ? 0 : std::to_integer<std::size_t>(bytes_[0]);
    if (header < 12 || bytes_.size() < header ||
        number(bytes_.subspan(8, 4), false) != 0x5449'462E) {
      throw TrackFormatError("it has no header");
    }
    const std::uint64_t size = number(bytes_.subspan(4, 4), false);
    if (size > bytes_.size() - header || bytes_.size() - header - size < 2) {
      throw TrackFormatError("it is cut off");
    }
    const std::size_t whole = header + static_cast<std::size_t>(size);
    if (checksum(bytes_.first(whole)) != number(bytes_.subspan(whole, 2), false)) {
      throw TrackFormatError("its checksum is wrong");
    }
    data_ = bytes_.subspan(header, static_cast<std::size_t>(size));
    bytes_ = bytes_.subspan(whole + 2);
    definitions_ = {};
    time_.reset();
    while (!data_.empty()) readMessage();
  }

  void readMessage() {
    const std::uint8_t header = takeByte();
    if ((header & 0x80) != 0) {  // With the last five bits of its time.
      if (time_) {
        const std::uint32_t offset = header & 0x1F;
        *time_ += (offset - *time_) & 0x1F;
      }
      readData((header >> 5) & 0x3);
    } else if ((header & 0x40) != 0) {
      readDefinition(header);
    } else {
      readData(header & 0xF);
    }
  }

  void readDefinition(std::uint8_t header) {
    Definition& definition = definitions_[header & 0xF];
    definition = {};
    definition.isKnown = true;
    takeByte();  // reserved
    definition.isBigEndian = takeByte() == 1;
    definition.message = static_cast<std::uint16_t>(number(take(2), definition.isBigEndian));
    for (unsigned left = takeByte(); left > 0; --left) {
      const std::uint8_t id = takeByte(), size = takeByte(), type = takeByte();
      definition.fields.push_back({id, size, type});
      definition.bytes += size;
    }
    if ((header & 0x20) == 0) return;
    for (unsigned left = takeByte(); left > 0; --left) {
      takeByte();
      definition.bytes += takeByte();
      takeByte();
    }
  }

  void readData(unsigned local) {
    const Definition& definition = definitions_[local];
    if (!definition.isKnown) throw TrackFormatError("a message has no definition");
    platform::DataView message = take(definition.bytes);
    std::array<std::optional<std::int64_t>, 256> values;
    for (const Field& field : definition.fields) {
      values[field.number] = valueOf(message.first(field.size), field, definition.isBigEndian);
      message = message.subspan(field.size);
    }
    if (values[253]) time_ = static_cast<std::uint32_t>(*values[253]);
    if (definition.message == kRecord) readRecord(values);
    if (definition.message == kLap && values[2] && track_.laps.size() < kMostTrackPoints) {
      track_.laps.push_back(dateOf(*values[2]));
    }
  }

  /// A single integer; nothing for one that stands for "unknown", and for other types.
  static std::optional<std::int64_t> valueOf(platform::DataView bytes, const Field& field,
                                             bool isBigEndian) {
    struct Type {
      std::uint8_t number, size;
      bool isSigned;
    };
    constexpr Type kTypes[] = {{0x00, 1, false}, {0x01, 1, true}, {0x02, 1, false}, {0x83, 2, true},
                               {0x84, 2, false}, {0x85, 4, true}, {0x86, 4, false}};
    for (const Type& type : kTypes) {
      if (type.number != field.type || type.size != bytes.size()) continue;
      const std::uint64_t value = number(bytes, isBigEndian);
      const unsigned bits = 8U * type.size;
      const std::uint64_t unknown = (std::uint64_t{1} << (type.isSigned ? bits - 1 : bits)) - 1;
      if (value == unknown) return std::nullopt;
      const bool isNegative = type.isSigned && (value >> (bits - 1)) != 0;
      return static_cast<std::int64_t>(value) - (isNegative ? std::int64_t{1} << bits : 0);
    }
    return std::nullopt;
  }

  static platform::Date dateOf(std::int64_t seconds) {
    return platform::dateSince1970(kEpoch + static_cast<double>(seconds));
  }

  void readRecord(const std::array<std::optional<std::int64_t>, 256>& values) {
    const auto scaled = [&values](std::size_t field, double scale) -> std::optional<double> {
      if (!values[field]) return std::nullopt;
      return static_cast<double>(*values[field]) / scale;
    };
    CLLocation fix;
    const auto latitude = scaled(0, 1 / kDegreesPerSemicircle);
    const auto longitude = scaled(1, 1 / kDegreesPerSemicircle);
    if (latitude && longitude) fix.coordinate = {*latitude, *longitude};
    // The enhanced fields are the same with more bits.
    const auto altitude = values[78] ? scaled(78, 5) : scaled(2, 5);
    const auto speed = values[73] ? scaled(73, 1000) : scaled(6, 1000);
    if (altitude) fix.altitude = *altitude - 500;
    if (speed) fix.speed = *speed;
    if (values[31]) fix.horizontalAccuracy = static_cast<double>(*values[31]);
    std::optional<platform::Date> time;
    if (time_) time = dateOf(*time_);
    keep(track_, latitude && longitude ? &fix : nullptr, scaled(3, 1), time);
  }

  platform::DataView bytes_;  ///< Files not read yet.
  platform::DataView data_;   ///< Messages of this file not read yet.
  std::array<Definition, 16> definitions_;
  std::optional<std::uint32_t> time_;
  Track track_;
};

}  // namespace

Track readFIT(platform::DataView bytes) { return Reader(bytes).read(); }

}  // namespace ombrix::detail
