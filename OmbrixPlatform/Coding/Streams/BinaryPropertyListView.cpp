#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListView.hpp"

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {
namespace {

constexpr std::string_view kMagic = "bplist0";

}  // namespace

void BinaryPropertyListView::damaged(const char* what) {
  throw PropertyListError(std::string("damaged property list: ") + what);
}

void BinaryPropertyListView::Allowance::refuse() {
  throw PropertyListSizeError("The property list expands out of proportion to its size");
}

bool BinaryPropertyListView::matches(DataView bytes) noexcept {
  return textOf(bytes).starts_with(kMagic);
}

BinaryPropertyListView::BinaryPropertyListView(DataView bytes)
    : bytes_(bytes.data()), size_(bytes.size()) {
  if (!matches(bytes)) damaged("the header is missing");
  if (size_ < kHeaderSize + kTrailerSize) damaged("it is cut short");

  const std::byte* trailer = bytes_ + size_ - kTrailerSize;
  offsetSize_ = std::to_integer<unsigned>(trailer[6]);
  referenceSize_ = std::to_integer<unsigned>(trailer[7]);
  objectCount_ = readSized(trailer + 8, 8);
  topObject_ = readSized(trailer + 16, 8);
  objectsEnd_ = readSized(trailer + 24, 8);
  if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
    damaged("sizes in the trailer are out of range");
  }
  const std::uint64_t tableEnd = size_ - kTrailerSize;
  if (objectsEnd_ < kHeaderSize || objectsEnd_ > tableEnd ||
      objectCount_ > (tableEnd - objectsEnd_) / offsetSize_) {
    damaged("the object table lies out of bounds");
  }
  offsets_ = bytes_ + objectsEnd_;
}

std::uint64_t BinaryPropertyListView::parseCount(const std::byte*& at, unsigned low) const {
  ++at;
  if (low != 0xF) return low;
  const std::byte* end = bytes_ + objectsEnd_;
  if (at >= end) damaged("an object is cut short");
  const unsigned marker = std::to_integer<unsigned>(*at);
  const unsigned size = 1U << (marker & 0xF);
  if (marker < 0x10 || marker > 0x13) damaged("a length is not an integer");
  if (static_cast<std::size_t>(end - at) < 1 + size) damaged("an object is cut short");
  const std::uint64_t count = readSized(at + 1, size);
  at += 1 + size;
  return count;
}

BinaryPropertyListView::Object BinaryPropertyListView::parseNumber(const std::byte* at,
                                                                   unsigned marker) const {
  const unsigned type = marker >> 4;
  const unsigned power = marker & 0xF;
  if (power > 4) damaged("a number has an unknown size");
  const unsigned size = 1U << power;
  if (static_cast<std::size_t>(bytes_ + objectsEnd_ - at) < 1 + size) {
    damaged("an object is cut short");
  }
  ++at;
  if (type == 1) {
    if (size <= 8) return {Kind::integer, readSized(at, size), nullptr};
    const std::uint64_t high = readSized(at, 8);
    const std::uint64_t low = readSized(at + 8, 8);
    const bool negative = (low >> 63) != 0;
    if (high == 0) return {negative ? Kind::unsignedInteger : Kind::integer, low, nullptr};
    if (high == ~std::uint64_t{0} && negative) return {Kind::integer, low, nullptr};
    damaged("an integer is out of range");
  }
  const Kind kind = type == 2 ? Kind::real : Kind::date;
  if (size == 8) return {kind, readSized(at, 8), nullptr};
  if (size == 4 && kind == Kind::real) {
    const auto bits = static_cast<std::uint32_t>(readSized(at, 4));
    return {kind, std::bit_cast<std::uint64_t>(double{std::bit_cast<float>(bits)}), nullptr};
  }
  damaged("a number has an unknown size");
}

BinaryPropertyListView::Object BinaryPropertyListView::parse(const std::byte* at) const {
  const unsigned marker = std::to_integer<unsigned>(*at);
  const unsigned low = marker & 0xF;
  Kind kind{};
  unsigned width = 1;
  switch (marker >> 4) {
    case 0x0:
      if (low == 8 || low == 9) return {Kind::boolean, low - 8, nullptr};
      damaged("a null or unknown object");
    case 0x1:
    case 0x2:
    case 0x3:
      return parseNumber(at, marker);
    case 0x4:
      kind = Kind::data;
      break;
    case 0x5:
      kind = Kind::text8;
      break;
    case 0x6:
      kind = Kind::text16;
      width = 2;
      break;
    case 0x8: {
      const unsigned size = low + 1;
      if (size > 8) damaged("a number has an unknown size");
      if (static_cast<std::size_t>(bytes_ + objectsEnd_ - at) < 1 + size) {
        damaged("an object is cut short");
      }
      return {Kind::uid, readSized(at + 1, size), nullptr};
    }
    case 0xA:
    case 0xB:  // ordered set
    case 0xC:  // set
      kind = Kind::array;
      width = referenceSize_;
      break;
    case 0xD:
      kind = Kind::dictionary;
      width = 2 * referenceSize_;
      break;
    default:
      damaged("an object of an unknown kind");
  }
  const std::uint64_t count = parseCount(at, low);
  if (count > static_cast<std::uint64_t>(bytes_ + objectsEnd_ - at) / width) {
    damaged("an object is cut short");
  }
  return {kind, count, at};
}

std::string_view BinaryPropertyListView::text(const Object& object, std::string& scratch) {
  if (object.kind == Kind::text8) {
    const std::string_view text = view(object);
    if (!detail::isValidUtf8(text)) damaged("a text is not valid");
    return text;
  }
  scratch.clear();
  if (!detail::appendUtf16BigEndian(scratch, object.payload,
                                    static_cast<std::size_t>(object.bits))) {
    damaged("a text has an unpaired surrogate");
  }
  return scratch;
}

}  // namespace ombrix::platform
