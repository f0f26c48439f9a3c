#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Coding/Decoder.hpp"
#include "OmbrixPlatform/Coding/Encoder.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/PropertyList.hpp"

namespace ombrix::platform {

std::string_view nameOf(CodingPrimitiveKind kind) noexcept {
  switch (kind) {
    case CodingPrimitiveKind::boolean:
      return "a truth value";
    case CodingPrimitiveKind::integer:
    case CodingPrimitiveKind::unsignedInteger:
      return "an integer";
    case CodingPrimitiveKind::real:
      return "a number";
    case CodingPrimitiveKind::text:
      return "a text";
    case CodingPrimitiveKind::data:
      return "data";
    case CodingPrimitiveKind::date:
      return "a date";
  }
  return "a value";
}

std::size_t Decoder::expectItems(std::size_t, std::size_t) { return 0; }
bool Decoder::readJSON(JSON&) { return false; }
bool Decoder::readPropertyList(PropertyList&) { return false; }
void Encoder::expectItems(std::size_t, std::size_t) {}
bool Encoder::writeJSON(const JSON&) { return false; }
bool Encoder::writePropertyList(const PropertyList&) { return false; }

JSON DecoderReader::readJSON() {
  JSON value;
  if (decoder()->readJSON(value)) return value;
  throw DecodingError::typeMismatch("a JSON value", "a value of another format", codingPath());
}

PropertyList DecoderReader::readPropertyList() {
  PropertyList value;
  if (decoder()->readPropertyList(value)) return value;
  throw DecodingError::typeMismatch("a property list", "a value of another format", codingPath());
}

CodingPrimitive DecoderReader::read(CodingPrimitiveKind kind) {
  if (frames_.empty()) return decoder_.singleValueContainer()->decodePrimitive(kind);
  Frame& frame = frames_.back();
  if (frame.peeked != nullptr) return decoder()->singleValueContainer()->decodePrimitive(kind);
  if (frame.unkeyed != nullptr) return frame.unkeyed->decodePrimitive(kind);
  return frame.keyed->decodePrimitive(kind, keyOf(frame));
}

bool DecoderReader::readNull() {
  if (frames_.empty()) return decoder_.singleValueContainer()->decodeNil();
  Frame& frame = frames_.back();
  if (frame.peeked != nullptr) return frame.peeked->singleValueContainer()->decodeNil();
  if (frame.unkeyed != nullptr) return frame.unkeyed->decodeNil();
  return frame.keyed->decodeNil(frame.key);
}

std::shared_ptr<Decoder> DecoderReader::decoder() {
  if (frames_.empty()) return decoder_.shared_from_this();
  Frame& frame = frames_.back();
  if (frame.peeked != nullptr) return std::exchange(frame.peeked, nullptr);
  if (frame.unkeyed != nullptr) return frame.unkeyed->superDecoder();
  return frame.keyed->superDecoder(keyOf(frame));
}

void DecoderReader::skip() {
  if (!frames_.empty() && frames_.back().unkeyed != nullptr) static_cast<void>(decoder());
}

void DecoderReader::beginObject() {
  Frame frame;
  frame.keyed = decoder()->keyedContainer();
  frame.keys = frame.keyed->allKeys();
  std::ranges::reverse(frame.keys);
  frames_.push_back(std::move(frame));
}

bool DecoderReader::nextKey(std::string_view& key) {
  Frame& frame = frames_.back();
  if (frame.keys.empty()) {
    frames_.pop_back();
    return false;
  }
  frame.key = std::move(frame.keys.back());
  frame.keys.pop_back();
  key = frame.key;
  return true;
}

void DecoderReader::beginArray() {
  Frame frame;
  frame.unkeyed = decoder()->unkeyedContainer();
  frames_.push_back(std::move(frame));
}

bool DecoderReader::nextItem() {
  if (!frames_.back().unkeyed->isAtEnd()) return true;
  frames_.pop_back();
  return false;
}

std::size_t DecoderReader::expectItems(std::size_t bytesEach) {
  const Frame& frame = frames_.back();
  const std::size_t count =
      frame.unkeyed == nullptr ? frame.keys.size() : frame.unkeyed->count().value_or(0);
  return decoder_.expectItems(count, bytesEach);
}

std::optional<std::string> DecoderReader::peekText(std::string_view key) {
  const std::shared_ptr<Decoder> next = decoder();
  // An array hands out each item only once.
  if (!frames_.empty() && frames_.back().unkeyed != nullptr) frames_.back().peeked = next;
  const auto container = next->keyedContainer();
  if (!container->contains(key) || container->decodeNil(key)) return std::nullopt;
  return std::get<std::string>(container->decodePrimitive(CodingPrimitiveKind::text, key));
}

std::shared_ptr<Encoder> EncoderWriter::nested() {
  Frame& frame = frames_.back();
  if (frame.unkeyed != nullptr) return frame.unkeyed->superEncoder();
  return frame.keyed->superEncoder(frame.key);
}

void EncoderWriter::write(const CodingPrimitive& value) {
  if (frames_.empty()) return encoder_.singleValueContainer()->encodePrimitive(value);
  Frame& frame = frames_.back();
  if (frame.unkeyed != nullptr) return frame.unkeyed->encodePrimitive(value);
  frame.keyed->encodePrimitive(value, frame.key);
}

void EncoderWriter::null() {
  if (frames_.empty()) return encoder_.singleValueContainer()->encodeNil();
  Frame& frame = frames_.back();
  if (frame.unkeyed != nullptr) return frame.unkeyed->encodeNil();
  frame.keyed->encodeNil(frame.key);
}

template <class Tree>
void EncoderWriter::writeTree(bool (Encoder::*writeIt)(const Tree&), const Tree& value) {
  const bool isWritten =
      frames_.empty() ? (encoder_.*writeIt)(value) : ((*nested()).*writeIt)(value);
  if (isWritten) return;
  throw EncodingError::invalidValue("A value of another format cannot be encoded", codingPath());
}

void EncoderWriter::json(const JSON& value) { writeTree(&Encoder::writeJSON, value); }
void EncoderWriter::propertyList(const PropertyList& value) {
  writeTree(&Encoder::writePropertyList, value);
}

void EncoderWriter::beginObject() {
  Frame frame;
  frame.keyed = frames_.empty() ? encoder_.keyedContainer() : nested()->keyedContainer();
  frames_.push_back(std::move(frame));
}

void EncoderWriter::beginArray() {
  Frame frame;
  frame.unkeyed = frames_.empty() ? encoder_.unkeyedContainer() : nested()->unkeyedContainer();
  frames_.push_back(std::move(frame));
}

void EncoderWriter::end() {
  const Frame& frame = frames_.back();
  if (frame.itemBytes > 0) {
    encoder_.expectItems(frame.unkeyed == nullptr ? frame.keys : frame.unkeyed->count(),
                         frame.itemBytes);
  }
  frames_.pop_back();
}

void EncoderWriter::writeWith(void (*encode)(Encoder&, const void*), const void* value) {
  if (frames_.empty()) return encode(encoder_, value);
  encode(*nested(), value);
}

}  // namespace ombrix::platform
