// FIT activity files: records, laps, timer events and the sport, after the protocol's public
// description.

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixDay/Formats/Detail/FITRepair.hpp"
#include "OmbrixDay/Formats/Detail/TrackFormats.hpp"

namespace ombrix::detail {
namespace {

constexpr double kEpoch = 631'065'600;  // 1989-12-31 00:00:00 UTC
constexpr double kDegreesPerSemicircle = 180.0 / 2'147'483'648.0;
constexpr std::uint32_t kLeastDate = 0x1000'0000;  // Times below count from when the device began.

enum Message : std::uint16_t { kSport = 12, kSession = 18, kLap = 19, kRecord = 20, kEvent = 21 };

/// The places in `Values` of what messages hold: time in all of them, the others in one each.
constexpr std::uint8_t kTime = 0;
enum Record : std::uint8_t {
  kLatitude = 1,
  kLongitude,
  kAltitude,
  kBeats,
  kTurns,
  kWay,
  kFast,
  kWatts,
  kWarmth,
  kAccuracy,
  kTurns128ths,
  kFinerSpeed,
  kFinerAltitude
};
enum LapValue : std::uint8_t {
  kStart = 1,
  kElapsed,
  kTimer,
  kLapWay,
  kCalories,
  kAverageSpeed,
  kMaxSpeed,
  kAverageBeats,
  kMaxBeats,
  kAverageTurns,
  kMaxTurns,
  kAverageWatts,
  kMaxWatts,
  kIntensity,
  kTrigger,
  kFinerAverageSpeed,
  kFinerMaxSpeed,
  kMostValues
};
enum EventValue : std::uint8_t { kEventOf = 1, kEventType };
enum SportValue : std::uint8_t { kSportOf = 1, kSubSport };

/// A field of a message that is read, by the number that names it.
struct KnownField {
  Message message;
  std::uint8_t number, value;
};
constexpr KnownField kKnownFields[] = {{kRecord, 0, kLatitude},
                                       {kRecord, 1, kLongitude},
                                       {kRecord, 2, kAltitude},
                                       {kRecord, 3, kBeats},
                                       {kRecord, 4, kTurns},
                                       {kRecord, 5, kWay},
                                       {kRecord, 6, kFast},
                                       {kRecord, 7, kWatts},
                                       {kRecord, 13, kWarmth},
                                       {kRecord, 31, kAccuracy},
                                       {kRecord, 53, kTurns128ths},
                                       {kRecord, 73, kFinerSpeed},
                                       {kRecord, 78, kFinerAltitude},
                                       {kLap, 2, kStart},
                                       {kLap, 7, kElapsed},
                                       {kLap, 8, kTimer},
                                       {kLap, 9, kLapWay},
                                       {kLap, 11, kCalories},
                                       {kLap, 13, kAverageSpeed},
                                       {kLap, 14, kMaxSpeed},
                                       {kLap, 15, kAverageBeats},
                                       {kLap, 16, kMaxBeats},
                                       {kLap, 17, kAverageTurns},
                                       {kLap, 18, kMaxTurns},
                                       {kLap, 19, kAverageWatts},
                                       {kLap, 20, kMaxWatts},
                                       {kLap, 23, kIntensity},
                                       {kLap, 24, kTrigger},
                                       {kLap, 110, kFinerAverageSpeed},
                                       {kLap, 111, kFinerMaxSpeed},
                                       {kEvent, 0, kEventOf},
                                       {kEvent, 1, kEventType},
                                       {kSession, 5, kSportOf},
                                       {kSession, 6, kSubSport},
                                       {kSport, 0, kSportOf},
                                       {kSport, 1, kSubSport}};

/// The numbers of sports, in the words of `Track::sport`.
constexpr std::pair<std::uint8_t, std::string_view> kSportNames[] = {{1, "running"},
                                                                     {2, "cycling"},
                                                                     {5, "swimming"},
                                                                     {11, "walking"},
                                                                     {12, "cross_country_skiing"},
                                                                     {13, "alpine_skiing"},
                                                                     {14, "snowboarding"},
                                                                     {15, "rowing"},
                                                                     {16, "mountaineering"},
                                                                     {17, "hiking"},
                                                                     {19, "paddling"},
                                                                     {20, "flying"},
                                                                     {21, "e_biking"},
                                                                     {27, "horseback_riding"},
                                                                     {30, "inline_skating"},
                                                                     {31, "rock_climbing"},
                                                                     {32, "sailing"},
                                                                     {33, "ice_skating"},
                                                                     {35, "snowshoeing"},
                                                                     {36, "snowmobiling"},
                                                                     {41, "kayaking"}};
/// A sub-sport of alpine skiing.
constexpr std::uint8_t kAlpine = 13, kBackcountry = 37;

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
  using Values = std::array<std::optional<std::int64_t>, kMostValues>;

  [[nodiscard]] static std::uint64_t number(platform::DataView bytes, bool isBigEndian) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const std::size_t at = isBigEndian ? i : bytes.size() - 1 - i;
      value = value << 8 | std::to_integer<std::uint64_t>(bytes[at]);
    }
    return value;
  }

  platform::DataView take(std::size_t count) {
    if (count > data_.size()) throw BrokenMessage{"a message is cut off", true};
    const platform::DataView taken = data_.first(count);
    data_ = data_.subspan(count);
    return taken;
  }
  std::uint8_t takeByte() { return static_cast<std::uint8_t>(take(1)[0]); }

  static constexpr std::size_t kLeastHeader = 12, kUsualHeader = 14, kChecksumBytes = 2;

  static bool isSigned(platform::DataView file) {
    return file.size() >= kLeastHeader && number(file.subspan(8, 4), false) == 0x5449'462E;
  }
  static std::uint64_t sizeOf(platform::DataView file) { return number(file.subspan(4, 4), false); }

  /// The difference between the checksum of a file's header and data and the one behind them.
  static std::uint16_t difference(platform::DataView file, std::size_t whole) {
    const auto stored = number(file.subspan(whole, kChecksumBytes), false);
    return static_cast<std::uint16_t>(fitChecksum(file.first(whole)) ^ stored);
  }

  /// The bytes of the header that a file begins with, also of one with a damaged byte; 0 for none.
  std::size_t headerOf(platform::DataView file) {
    if (file.size() < kLeastHeader) return 0;
    const auto header = std::to_integer<std::size_t>(file[0]);
    const bool isUsual = header == kLeastHeader || header == kUsualHeader;
    const auto fits = [&](std::size_t bytes) {
      return sizeOf(file) > 0 && file.size() >= bytes + sizeOf(file) + kChecksumBytes;
    };
    if (isSigned(file)) {
      if (isUsual) return file.size() < header ? 0 : header;
      if (header > kUsualHeader && fits(header) && difference(file, header + sizeOf(file)) == 0) {
        return header;
      }
      if (file.size() < kUsualHeader) return 0;
      tell("its header is damaged");
      return file.size() == kLeastHeader + sizeOf(file) + kChecksumBytes ? kLeastHeader
                                                                         : kUsualHeader;
    }
    if (!isUsual || !fits(header)) return 0;
    tell("its header is damaged");
    return header;
  }

  void readFile() {
    const std::size_t header = headerOf(bytes_);
    if (header == 0) {
      tell(isFirst_ ? "it has no header" : "what stands behind its end is no such file");
      bytes_ = {};
      return;
    }
    isFirst_ = false;
    beginSegment(track_);  // behind another file
    const std::uint64_t size = sizeOf(bytes_);
    platform::DataView data = bytes_.subspan(header);
    // A device writes the size last: what it could not finish has none.
    if (size > data.size() || data.size() - size < kChecksumBytes ||
        (size == 0 && data.size() > kChecksumBytes)) {
      tell("it is cut off");
      if (size > 0 && size < data.size()) data = data.first(static_cast<std::size_t>(size));
      bytes_ = {};
      return readMessages(data, false);
    }
    const std::size_t whole = header + static_cast<std::size_t>(size);
    const std::uint16_t wrong = difference(bytes_, whole);
    const platform::DataView behind = bytes_.subspan(whole + kChecksumBytes);
    bytes_ = behind;
    if (wrong == 0) return readMessages(data.first(static_cast<std::size_t>(size)), true);
    tell("its checksum is wrong");
    if (!behind.empty() && !isSigned(behind)) {  // The size may be the wrong byte.
      bytes_ = {};
      return readMessages(data.first(data.size() - kChecksumBytes), false);
    }
    readDamaged(data.first(static_cast<std::size_t>(size)), wrong);
  }

  /// Reads what has a wrong checksum: with the byte changed that may be the damaged one, where that
  /// gives more points.
  void readDamaged(platform::DataView data, std::uint16_t wrong) {
    std::size_t most = pointsIn(data);
    constexpr std::size_t kMostBytesRead = std::size_t{256} << 20;
    platform::Data changed(data.begin(), data.end()), best;
    std::size_t read = 0;
    for (const FITSuspect& suspect : fitSuspects(data, wrong)) {
      if ((read += data.size()) > kMostBytesRead) break;
      changed[suspect.at] ^= suspect.bits;
      if (const std::size_t points = pointsIn(changed); points > most) {
        most = points;
        best = changed;
      }
      changed[suspect.at] ^= suspect.bits;
    }
    readMessages(best.empty() ? data : best, false);
  }

  static std::size_t pointsIn(platform::DataView data) {
    Track track;
    try {
      Reader({}, track).readMessages(data, false);
    } catch (const TrackFormatError&) {
      // There are too many.
    }
    return track.fixes.size() + track.heartRates.size();
  }

  struct BrokenMessage {
    const char* why;
    bool isCut = false;  ///< There are too few bytes.
  };

  /// Keeps the first fault: the others may follow from it.
  void tell(const char* why) {
    if (fault_ == nullptr) fault_ = why;
  }

  /// Reads all messages. One that makes no sense is told, and reading goes on where messages make
  /// sense again.
  /// @param isWhole Whether the checksum is right: then nothing that is odd is damage.
  void readMessages(platform::DataView data, bool isWhole) {
    data_ = data;
    isWhole_ = isWhole;
    hasCompressed_ = false;
    definitions_ = {};
    last_.reset();
    time_.reset();
    while (!data_.empty()) {
      const platform::DataView rest = data_;
      try {
        readMessage();
      } catch (const BrokenMessage& broken) {
        tell(broken.why);
        data_ = rest.subspan(1);
        // Of a damaged header nothing else need be lost: it is taken for one like the last.
        const std::size_t size = last_ ? definitions_[*last_].bytes : data_.size() + 1;
        if (!broken.isCut && size <= data_.size() && makesSense(data_.subspan(size))) {
          readData(*last_);
        } else {
          while (!data_.empty() && !makesSense(data_)) data_ = data_.subspan(1);
        }
      }
    }
  }

  /// What the data may end in: whole messages, a few of them, or a part of one.
  enum class AtEnd : std::uint8_t { whole, cut };

  /// Whether some messages in a row make sense.
  [[nodiscard]] bool makesSense(platform::DataView data, AtEnd end = AtEnd::whole) const {
    constexpr int kMany = 5, kLeast = 3;
    for (int inARow = 0; inARow < kMany; ++inARow) {
      if (data.empty()) return inARow >= kLeast || end == AtEnd::cut;
      const auto header = std::to_integer<unsigned>(data[0]);
      const bool isCompressed = (header & 0x80) != 0;
      if ((header & 0xC0) == 0x40) {
        constexpr std::size_t kFew = 64;
        const bool mayBeCut = end == AtEnd::cut && data.size() < kFew;
        return fitDefinitionAt(data).has_value() || mayBeCut;
      }
      if (isCompressed ? !hasCompressed_ : (header & 0x30) != 0) return false;
      const Definition& definition = definitions_[isCompressed ? (header >> 5) & 0x3 : header];
      if (!definition.isKnown) return false;
      if (definition.bytes > data.size() - 1) return end == AtEnd::cut;
      data = data.subspan(1 + definition.bytes);
    }
    return true;
  }

  void readMessage() {
    const std::uint8_t header = takeByte();
    if ((header & 0x80) != 0) {  // With the last five bits of its time.
      const unsigned local = (header >> 5) & 0x3;
      if (!isWhole_ && !std::exchange(hasCompressed_, true)) {
        // Half of all bytes look like such a header; few files have any.
        const std::size_t size = definitions_[local].bytes;
        hasCompressed_ = size <= data_.size() && makesSense(data_.subspan(size), AtEnd::cut);
        if (!hasCompressed_) throw BrokenMessage{"a message makes no sense"};
      }
      if (time_) {
        const std::uint32_t offset = header & 0x1F;
        *time_ += (offset - *time_) & 0x1F;
      }
      readData(local);
    } else if ((header & 0x40) != 0) {
      readDefinition(header);
    } else {
      readData(header & 0xF);
    }
  }

  void readDefinition(std::uint8_t header) {
    Definition definition;
    definition.isKnown = true;
    const std::uint8_t reserved = takeByte(), byteOrder = takeByte();
    if (!isWhole_ && (reserved != 0 || byteOrder > 1)) {
      throw BrokenMessage{"a definition makes no sense"};
    }
    definition.isBigEndian = byteOrder == 1;
    definition.message = static_cast<std::uint16_t>(number(take(2), definition.isBigEndian));
    for (unsigned left = takeByte(); left > 0; --left) {
      const std::uint8_t id = takeByte(), size = takeByte(), type = takeByte();
      if (!isWhole_ && !isFITFieldType(type)) throw BrokenMessage{"a definition makes no sense"};
      const auto value = valueNamed(definition.message, id);
      if (value && size > 0) definition.fields.push_back({*value, definition.bytes, size, type});
      definition.bytes += size;
    }
    if ((header & 0x20) != 0) {
      for (unsigned left = takeByte(); left > 0; --left) {
        takeByte();
        definition.bytes += takeByte();
        takeByte();
      }
    }
    definitions_[header & 0xF] = std::move(definition);
  }

  void readData(unsigned local) {
    const Definition& definition = definitions_[local];
    if (!definition.isKnown) throw BrokenMessage{"a message has no definition"};
    const platform::DataView message = take(definition.bytes);
    last_ = local;
    Values values;
    for (const Field& field : definition.fields) {
      values[field.value] =
          valueOf(message.subspan(field.offset, field.size), field, definition.isBigEndian);
    }
    if (values[kTime]) time_ = dateIn(*values[kTime]);
    switch (definition.message) {
      case kRecord:
        return readRecord(values);
      case kLap:
        return readLap(values);
      case kEvent:
        return readEvent(values);
      case kSport:
      case kSession:
        return readSport(values);
      default:
        break;
    }
  }

  /// Where a field's value is kept; nothing for one that is not read.
  static std::optional<std::uint8_t> valueNamed(std::uint16_t message, std::uint8_t number) {
    constexpr std::uint8_t kTimeNumber = 253;
    if (number == kTimeNumber) return kTime;
    for (const KnownField& field : kKnownFields) {
      if (field.message == message && field.number == number) return field.value;
    }
    return std::nullopt;
  }

  /// A time that is a date.
  static std::optional<std::uint32_t> dateIn(std::int64_t seconds) {
    if (seconds < kLeastDate) return std::nullopt;
    return static_cast<std::uint32_t>(seconds);
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

  static std::optional<double> scaled(const std::optional<std::int64_t>& value, double scale) {
    if (!value) return std::nullopt;
    return static_cast<double>(*value) / scale;
  }

  void readRecord(const Values& values) {
    CLLocation fix;
    const auto north = scaled(values[kLatitude], 1 / kDegreesPerSemicircle);
    const auto east = scaled(values[kLongitude], 1 / kDegreesPerSemicircle);
    fix.coordinate = north && east ? CLLocationCoordinate2D{*north, *east} : kNowhere;
    // The finer fields are the same with more bits.
    const auto up = scaled(values[kFinerAltitude] ? values[kFinerAltitude] : values[kAltitude], 5);
    fix.altitude = up ? *up - 500 : kNone;
    const auto fast = scaled(values[kFinerSpeed] ? values[kFinerSpeed] : values[kFast], 1000);
    if (fast) fix.speed = *fast;
    if (values[kAccuracy]) fix.horizontalAccuracy = static_cast<double>(*values[kAccuracy]);
    SensorValues sensors = kNoSensorValues;
    sensors[kHeartRate] = scaled(values[kBeats], 1).value_or(kNone);
    sensors[kCadence] =
        scaled(values[kTurns], 1).value_or(kNone) + scaled(values[kTurns128ths], 128).value_or(0);
    sensors[kPower] = scaled(values[kWatts], 1).value_or(kNone);
    sensors[kTemperature] = scaled(values[kWarmth], 1).value_or(kNone);
    sensors[kDistance] = scaled(values[kWay], 100).value_or(kNone);
    std::optional<platform::Date> date;
    if (time_) date = dateOf(*time_);
    keep(track_, fix, sensors, date);
  }

  void readLap(const Values& values) {
    const auto begin = values[kStart] ? dateIn(*values[kStart]) : std::nullopt;
    if (!begin) return;
    const auto total = [&](LapValue value, LapValue other, double scale) {
      return scaled(values[value] ? values[value] : values[other], scale).value_or(-1);
    };
    Lap lap{.begin = dateOf(*begin),
            .seconds = total(kTimer, kElapsed, 1000),
            .distanceMeters = total(kLapWay, kLapWay, 100),
            .kilocalories = total(kCalories, kCalories, 1),
            .averageSpeed = total(kFinerAverageSpeed, kAverageSpeed, 1000),
            .maxSpeed = total(kFinerMaxSpeed, kMaxSpeed, 1000),
            .averageHeartRate = total(kAverageBeats, kAverageBeats, 1),
            .maxHeartRate = total(kMaxBeats, kMaxBeats, 1),
            .averageCadence = total(kAverageTurns, kAverageTurns, 1),
            .maxCadence = total(kMaxTurns, kMaxTurns, 1),
            .averagePower = total(kAverageWatts, kAverageWatts, 1),
            .maxPower = total(kMaxWatts, kMaxWatts, 1)};
    lap.isRest = values[kIntensity] == 1;
    // Manual, time, distance, and four kinds of places; what else ends a lap is the session's end.
    constexpr LapTrigger kTriggers[] = {
        LapTrigger::manual,   LapTrigger::time,     LapTrigger::distance, LapTrigger::location,
        LapTrigger::location, LapTrigger::location, LapTrigger::location};
    const std::int64_t trigger = values[kTrigger].value_or(0);
    if (trigger >= 0 && trigger < std::ssize(kTriggers)) lap.trigger = kTriggers[trigger];
    keep(track_, lap);
  }

  void readEvent(const Values& values) {
    constexpr std::int64_t kTimerOf = 0;
    constexpr std::int64_t kStops[] = {1, 4, 8, 9};
    const bool isStop =
        values[kEventType] && std::ranges::find(kStops, *values[kEventType]) != std::end(kStops);
    if (values[kEventOf] == kTimerOf && isStop) beginSegment(track_);
  }

  void readSport(const Values& values) {
    const auto* name = std::ranges::find_if(
        kSportNames, [&](const auto& each) { return values[kSportOf] == each.first; });
    if (name == std::end(kSportNames) || !track_.sport.empty()) return;
    const bool isTour = name->first == kAlpine && values[kSubSport] == kBackcountry;
    track_.sport = isTour ? "backcountry_skiing" : name->second;
  }

  platform::DataView bytes_;      ///< Files not read yet.
  platform::DataView data_;       ///< Messages of this file not read yet.
  bool isWhole_ = true;           ///< Whether their checksum is right.
  bool hasCompressed_ = false;    ///< Whether a message had a header with its time.
  std::optional<unsigned> last_;  ///< The definition of the last data.
  std::array<Definition, 16> definitions_;
  std::optional<std::uint32_t> time_;
  Track& track_;
  bool isFirst_ = true;          ///< No file has been begun yet.
  const char* fault_ = nullptr;  ///< What is wrong, if anything is.
};

}  // namespace

void readFIT(platform::DataView bytes, Track& track) { Reader(bytes, track).read(); }

}  // namespace ombrix::detail
