#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>

#include "OmbrixCore/Location/GeoJSON.hpp"
#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListReader.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"
#include "OmbrixPlatform/Coding/Streams/JSONReader.hpp"
#include "OmbrixPlatform/Coding/Streams/JSONWriter.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::detail {
namespace {

using platform::CodingPathChain;
using platform::DecodingError;

constexpr std::string_view kType = platform::rawValue(GeoJSONRootKeys::type);
constexpr std::string_view kCoordinates = platform::rawValue(GeoJSONRootKeys::coordinates);

// Only the "type": decoding it throws the error for an unreadable type.
struct Kind {
  GeoJSONGeometryType type{};
  static constexpr auto kCodingFields = platform::codingFields(platform::field(kType, &Kind::type));
};

// Looks ahead, since the type determines how to read "coordinates", which may precede it.
template <class Reader>
GeoJSONGeometryType peekType(Reader& reader) {
  if (const std::optional<std::string> text = reader.peekText(kType)) {
    const auto type = platform::fromRawValue<GeoJSONGeometryType>(std::string_view{*text});
    if (type) return *type;
  }
  Kind kind;
  platform::decodeValue(reader, kind);
  return kind.type;
}

// Kept: a position with fewer than two numbers stops the program. An error would pass for ordinary
// bad input, which callers skip. What is read in one pass may be cut behind it, or hold other
// "coordinates" that count instead: only who knows the whole document stops.
template <class Reader>
[[noreturn]] void stopAtShortPosition(const Reader& reader) {
  platform::startOver(reader);
  platform::fatalError(fmt::format("GeoJSON position with fewer than two numbers at \"{}\"",
                                   platform::describe(reader.codingPath())));
}

template <class Reader>
void readCoordinates(Reader& reader, CLLocationCoordinate2D& out) {
  reader.beginArray();
  CodingPathChain::Step step(reader.pathChain());
  std::size_t index = 0;
  for (const auto component :
       {&CLLocationCoordinate2D::longitude, &CLLocationCoordinate2D::latitude}) {
    step.setIndex(index++);
    if (!reader.nextItem()) stopAtShortPosition(reader);
    out.*component = reader.readReal();
  }
  for (step.setIndex(index); reader.nextItem(); step.setIndex(++index)) {
    static_cast<void>(reader.readReal());
  }
}

template <class Reader, class Item>
void readCoordinates(Reader& reader, std::vector<Item>& out) {
  out.clear();
  reader.beginArray();
  CodingPathChain::Step step(reader.pathChain());
  std::size_t index = 0;
  for (step.setIndex(0); reader.nextItem(); step.setIndex(++index)) {
    readCoordinates(reader, out.emplace_back());
  }
}

// Reads the rest once the type is known.
template <class Reader, class Structure>
void readStructure(Reader& reader, GeoJSONGeometryType type, Structure& out) {
  if (type != Structure{}.type) {
    CodingPathChain::Step step(reader.pathChain());
    step.setKey(kType);
    throw DecodingError::dataCorrupted(
        fmt::format("\"{}\" stands where \"{}\" is required", platform::rawValue(type),
                    platform::rawValue(Structure{}.type)),
        reader.codingPath());
  }
  out.type = type;
  reader.beginObject();
  bool found = false;
  bool foundType = false;
  {
    CodingPathChain::Step step(reader.pathChain());
    std::string_view key;
    while (reader.nextKey(key)) {
      bool* const known = key == kCoordinates ? &found : key == kType ? &foundType : nullptr;
      if (known != nullptr && std::exchange(*known, true)) platform::startOver(reader);
      if (known != &found) {
        reader.skip();
        continue;
      }
      step.setKey(kCoordinates);
      readCoordinates(reader, out.coordinates);
    }
  }
  if (!found) throw DecodingError::keyNotFound(kCoordinates, reader.codingPath());
}

template <class Reader, class Structure>
Structure newStructure(Reader& reader, GeoJSONGeometryType type) {
  Structure structure;
  readStructure(reader, type, structure);
  return structure;
}

template <class Writer>
void writeCoordinates(Writer& writer, const CLLocationCoordinate2D& position) {
  writer.beginArray();
  CodingPathChain::Step step(writer.pathChain());
  step.setIndex(0);
  writer.real(position.longitude);
  step.setIndex(1);
  writer.real(position.latitude);
  writer.endArray();
}

template <class Writer, class Item>
void writeCoordinates(Writer& writer, const std::vector<Item>& items) {
  writer.beginArray();
  CodingPathChain::Step step(writer.pathChain());
  std::size_t index = 0;
  for (const Item& item : items) {
    step.setIndex(index++);
    writeCoordinates(writer, item);
  }
  writer.endArray();
}

template <class Writer, class Structure>
void writeStructure(Writer& writer, const Structure& structure) {
  writer.beginObject();
  {
    CodingPathChain::Step step(writer.pathChain());
    step.setKey(kType);
    writer.key(kType);
    writer.text(platform::rawValue(structure.type));
    step.setKey(kCoordinates);
    writer.key(kCoordinates);
    writeCoordinates(writer, structure.coordinates);
  }
  writer.endObject();
}

}  // namespace

template <class Reader>
void GeoJSONReading<Reader>::decode(Reader& reader, GeoJSONPoint& out) {
  readStructure(reader, peekType(reader), out);
}

template <class Reader>
void GeoJSONReading<Reader>::decode(Reader& reader, GeoJSONLineString& out) {
  readStructure(reader, peekType(reader), out);
}

template <class Reader>
void GeoJSONReading<Reader>::decode(Reader& reader, GeoJSONPolygon& out) {
  readStructure(reader, peekType(reader), out);
}

template <class Reader>
void GeoJSONReading<Reader>::decode(Reader& reader, GeoJSONGeometry& out) {
  const GeoJSONGeometryType type = peekType(reader);
  switch (type) {
    case GeoJSONGeometryType::polygon:
      out.value = GeoJSONGeometryValue::polygon(newStructure<Reader, GeoJSONPolygon>(reader, type));
      break;
    case GeoJSONGeometryType::linestring:
      out.value =
          GeoJSONGeometryValue::lineString(newStructure<Reader, GeoJSONLineString>(reader, type));
      break;
    case GeoJSONGeometryType::point:
      out.value = GeoJSONGeometryValue::point(newStructure<Reader, GeoJSONPoint>(reader, type));
      break;
  }
}

template <class Writer>
void GeoJSONWriting<Writer>::encode(Writer& writer, const GeoJSONPoint& value) {
  writeStructure(writer, value);
}

template <class Writer>
void GeoJSONWriting<Writer>::encode(Writer& writer, const GeoJSONLineString& value) {
  writeStructure(writer, value);
}

template <class Writer>
void GeoJSONWriting<Writer>::encode(Writer& writer, const GeoJSONPolygon& value) {
  writeStructure(writer, value);
}

template <class Writer>
void GeoJSONWriting<Writer>::encode(Writer& writer, const GeoJSONGeometry& value) {
  value.value.visit([&writer](const auto& structure) { writeStructure(writer, structure); });
}

template struct GeoJSONReading<platform::DecoderReader>;
template struct GeoJSONReading<platform::JSONReader>;
template struct GeoJSONReading<platform::BinaryPropertyListReader>;
template struct GeoJSONWriting<platform::EncoderWriter>;
template struct GeoJSONWriting<platform::JSONWriter>;
template struct GeoJSONWriting<platform::BinaryPropertyListWriter>;

}  // namespace ombrix::detail
