// FIT activity files: record and lap messages, after the protocol's public description.

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {
namespace {

constexpr double kEpoch = 631'065'600;  // 1989-12-31 00:00:00 UTC
constexpr double kDegreesPerSemicircle = 180.0 / 2'147'483'648.0;
constexpr std::uint16_t kRecord = 20, kLap = 19;

/// The fields that are read, of records and laps alike.
enum Value : std::uint8_t {
  latitude,
  longitude,
  altitudeOrStart,
  heartRate,
  speed,
  accuracy,
  finerSpeed,
  finerAltitude,
  time,
  kValues
};

/// The numbers by which messages name them.
constexpr std::array<std::uint8_t, kValues> kFieldNumbers = {0, 1, 2, 3, 6, 31, 73, 78, 253};

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

/// Where a value that is read stands in a message.
struct Field {
  std::size_t value, offset;
  std::uint8_t size, type;
};

struct Definition {
  std::uint16_t message = 0;
  bool isKnown = false, isBigEndian = false;
  std::vector<Field> fields;
  std::size_t bytes = 0;  ///< Of a message, developers' fields included.
};

class Reader {
 public:
  Reader(platform::DataView bytes, Track& track) : bytes_(bytes), track_(track) {}

  /// @throws TrackFormatError the first fault, once all is read that can be
  void read() {
    // Files may stand one behind the other; each has its header and checksum.
    do readFile();
    while (!bytes_.empty());
    if (fault_ != nullptr) throw TrackFormatError(fault_);
  }

 private:
  using Values = std::array<std::optional<std::int64_t>, kValues>;

  [[nodiscard]] static std::uint64_t number(platform::DataView bytes, bool isBigEndian) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const std::size_t at = isBigEndian ? i : bytes.size() - 1 - i;
      value = value << 8 | std::to_integer<std::uint64_t>(bytes[at]);
    }
    return value;
  }

  platform::DataView take(std::size_t count) {
    if (count > data_.size()) throw BrokenMessage{"a message is cut off"};
    const platform::DataView taken = data_.first(count);
    data_ = data_.subspan(count);
    return taken;
  }
  std::uint8_t takeByte() { return static_cast<std::uint8_t>(take(1)[0]); }

  void readFile() {
    const std::size_t header = bytes_.empty() ? 0 : std::to_integer<std::size_t>(bytes_[0]);
    if (header < 12 || bytes_.size() < header ||
        number(bytes_.subspan(8, 4), false) != 0x5449'462E) {
      tell(isFirst_ ? "it has no header" : "what stands behind its end is no such file");
      bytes_ = {};
      return;
    }
    isFirst_ = false;
    const std::uint64_t size = number(bytes_.subspan(4, 4), false);
    // A device writes the size last: what it could not finish has none.
    if (size > bytes_.size() - header || bytes_.size() - header - size < 2 ||
        (size == 0 && bytes_.size() - header > 2)) {
      tell("it is cut off");
      data_ = bytes_.subspan(header);
      if (size > 0 && size < data_.size()) data_ = data_.first(static_cast<std::size_t>(size));
      bytes_ = {};
    } else {
      const std::size_t whole = header + static_cast<std::size_t>(size);
      if (checksum(bytes_.first(whole)) != number(bytes_.subspan(whole, 2), false)) {
        tell("its checksum is wrong");
      }
      data_ = bytes_.subspan(header, static_cast<std::size_t>(size));
      bytes_ = bytes_.subspan(whole + 2);
    }
    definitions_ = {};
    time_.reset();
    try {
      while (!data_.empty()) readMessage();
    } catch (const BrokenMessage& broken) {
      tell(broken.why);
    }
  }

  struct BrokenMessage {
    const char* why;
  };

  /// Keeps the first fault: the others may follow from it.
  void tell(const char* why) {
    if (fault_ == nullptr) fault_ = why;
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
      const auto* found = std::ranges::find(kFieldNumbers, id);
      if (found != kFieldNumbers.end() && size > 0) {
        const auto value = static_cast<std::size_t>(found - kFieldNumbers.begin());
        definition.fields.push_back({value, definition.bytes, size, type});
      }
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
    if (!definition.isKnown) throw BrokenMessage{"a message has no definition"};
    const platform::DataView message = take(definition.bytes);
    Values values;
    for (const Field& field : definition.fields) {
      values[field.value] =
          valueOf(message.subspan(field.offset, field.size), field, definition.isBigEndian);
    }
    if (values[time]) time_ = static_cast<std::uint32_t>(*values[time]);
    if (definition.message == kRecord) readRecord(values);
    const auto& start = values[altitudeOrStart];
    if (definition.message == kLap && start && track_.laps.size() < kMostTrackPoints) {
      track_.laps.push_back(dateOf(*start));
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

  void readRecord(const Values& values) {
    const auto scaled = [&values](Value value, double scale) -> std::optional<double> {
      if (!values[value]) return std::nullopt;
      return static_cast<double>(*values[value]) / scale;
    };
    CLLocation fix;
    const auto north = scaled(latitude, 1 / kDegreesPerSemicircle);
    const auto east = scaled(longitude, 1 / kDegreesPerSemicircle);
    if (north && east) fix.coordinate = {*north, *east};
    // The finer fields are the same with more bits.
    const auto up = scaled(values[finerAltitude] ? finerAltitude : altitudeOrStart, 5);
    fix.altitude = up ? *up - 500 : std::numeric_limits<double>::quiet_NaN();
    if (const auto fast = scaled(values[finerSpeed] ? finerSpeed : speed, 1000)) fix.speed = *fast;
    if (values[accuracy]) fix.horizontalAccuracy = static_cast<double>(*values[accuracy]);
    std::optional<platform::Date> date;
    if (time_) date = dateOf(*time_);
    keep(track_, north && east ? &fix : nullptr, scaled(heartRate, 1), date);
  }

  platform::DataView bytes_;  ///< Files not read yet.
  platform::DataView data_;   ///< Messages of this file not read yet.
  std::array<Definition, 16> definitions_;
  std::optional<std::uint32_t> time_;
  Track& track_;
  bool isFirst_ = true;          ///< No file has been begun yet.
  const char* fault_ = nullptr;  ///< What is wrong, if anything is.
};

}  // namespace

void readFIT(platform::DataView bytes, Track& track) { Reader(bytes, track).read(); }

}  // namespace ombrix::detail
