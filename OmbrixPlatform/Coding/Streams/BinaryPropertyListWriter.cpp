#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include "OmbrixPlatform/Coding/Detail/PathCost.hpp"
#include "OmbrixPlatform/Coding/Detail/PropertyListTree.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListView.hpp"
#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {
namespace {

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kFirstTableSize = 64;
constexpr unsigned kRecentBits = 8;

std::uint64_t hashOf(const char* at, std::size_t size) noexcept {
  constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
  std::uint64_t hash = size * kFactor;
  const auto mix = [&](std::uint64_t word) {
    hash = (hash ^ word) * kFactor;
    hash ^= hash >> 32;
  };
  std::uint64_t word = 0;
  for (; size >= 8; at += 8, size -= 8) {
    std::memcpy(&word, at, 8);
    mix(word);
  }
  word = 0;
  if (size > 0) {
    std::memcpy(&word, at, size);
    mix(word);
  }
  return hash;
}

unsigned bytesFor(std::uint64_t largest) noexcept {
  if (largest <= 0xFF) return 1;
  if (largest <= 0xFFFF) return 2;
  return largest <= 0xFFFF'FFFF ? 4 : 8;
}

char* putBigEndian(char* out, std::uint64_t value, unsigned size) noexcept {
  for (unsigned i = size; i > 0; --i, value >>= 8) out[i - 1] = static_cast<char>(value & 0xFF);
  return out + size;
}

void appendBigEndian(Data& out, std::uint64_t value, unsigned size) {
  char bytes[8];
  putBigEndian(bytes, value, size);
  const auto* first = reinterpret_cast<const std::byte*>(bytes);
  out.insert(out.end(), first, first + size);
}

void appendHeader(Data& out, unsigned marker, std::uint64_t count) {
  if (count < 0xF) return appendBigEndian(out, marker | count, 1);
  appendBigEndian(out, marker | 0xF, 1);
  const unsigned size = bytesFor(count);
  appendBigEndian(out, 0x10U | static_cast<unsigned>(std::countr_zero(size)), 1);
  appendBigEndian(out, count, size);
}

}  // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter(const CodingUserInfo* userInfo, Sharing sharing)
    : userInfo_(userInfo),
      sharing_(sharing),
      table_(kFirstTableSize),
      recent_(std::size_t{1} << kRecentBits) {}

void BinaryPropertyListWriter::refuse(const char* what) const {
  throw EncodingError::invalidValue(what, codingPath());
}

void BinaryPropertyListWriter::bigEndian(std::uint64_t value, unsigned size) {
  if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
  char bytes[8];
  std::memcpy(bytes, &value, sizeof bytes);
  leaves_.append(bytes + 8 - size, size);
}

void BinaryPropertyListWriter::header(unsigned marker, std::uint64_t count) {
  if (count < 0xF) return byte(marker | static_cast<unsigned>(count));
  byte(marker | 0xF);
  const unsigned size = bytesFor(count);
  byte(0x10U | static_cast<unsigned>(std::countr_zero(size)));
  bigEndian(count, size);
}

std::uint32_t BinaryPropertyListWriter::newId(std::uint64_t offset) {
  if (offsets_.size() >= std::numeric_limits<std::uint32_t>::max()) {
    refuse("The property list has too many values");
  }
  offsets_.push_back(offset);
  return static_cast<std::uint32_t>(offsets_.size() - 1);
}

void BinaryPropertyListWriter::growTable() {
  std::vector<Slot> old(table_.size() * 2);
  old.swap(table_);
  const std::size_t mask = table_.size() - 1;
  for (const Slot& slot : old) {
    if (slot.idAfter == 0) continue;
    std::size_t at = slot.hash & mask;
    while (table_[at].idAfter != 0) at = (at + 1) & mask;
    table_[at] = slot;
  }
}

// The object was just written at the end; if an equal one exists already, that one replaces it. No
// object's bytes begin a longer object, so it is enough to compare as many bytes.
std::uint32_t BinaryPropertyListWriter::uniqueTail(std::size_t start, Sharing sharing) {
  const std::string_view tail = std::string_view{leaves_}.substr(start);
  if (tail.size() > kLongestShared || sharing == Sharing::keys) return newId(start);
  const auto hash = static_cast<std::uint32_t>(hashOf(tail.data(), tail.size()));
  const std::size_t mask = table_.size() - 1;
  std::size_t at = hash & mask;
  for (; table_[at].idAfter != 0; at = (at + 1) & mask) {
    const Slot& slot = table_[at];
    if (slot.hash != hash) continue;
    const auto offset = static_cast<std::size_t>(offsets_[slot.idAfter - 1]);
    if (std::string_view{leaves_}.substr(offset, tail.size()) == tail) {
      leaves_.resize(start);
      return slot.idAfter - 1;
    }
  }
  const std::uint32_t id = newId(start);
  table_[at] = {hash, id + 1};
  if (++tableUsed_ * 2 > table_.size()) growTable();
  return id;
}

// Looking up every number would cost more than the space is worth: only the last number with the
// same hash is recognised.
void BinaryPropertyListWriter::number(unsigned marker, std::uint64_t bits, unsigned size) {
  const std::uint64_t hash = (bits ^ marker) * 0x9E3779B97F4A7C15U;
  RecentNumber& recent = recent_[hash >> (64 - kRecentBits)];
  if (recent.idAfter == 0 || recent.bits != bits || recent.marker != marker ||
      sharing_ == Sharing::keys) {
    recent = {bits, newId(leaves_.size()) + 1, marker};
    byte(marker);
    bigEndian(bits, size);
  }
  pending_.push_back(recent.idAfter - 1);
}

std::uint32_t BinaryPropertyListWriter::textId(std::string_view text, Sharing sharing) {
  const std::size_t start = leaves_.size();
  if (detail::isAscii(text)) {
    header(0x50, text.size());
    leaves_.append(text);
    return uniqueTail(start, sharing);
  }
  std::string units;
  const std::size_t count = detail::appendAsUtf16BigEndian(units, text);
  if (count == std::string::npos) {
    refuse("A text is not valid UTF-8");
  }
  header(0x60, count);
  leaves_.append(units);
  return uniqueTail(start, sharing);
}

void BinaryPropertyListWriter::key(std::string_view name) { pending_.push_back(textId(name)); }
void BinaryPropertyListWriter::text(std::string_view value) {
  pending_.push_back(textId(value, sharing_));
}

void BinaryPropertyListWriter::boolean(bool value) { number(value ? 0x09 : 0x08, 0, 0); }

void BinaryPropertyListWriter::integer(std::int64_t value) {
  // Only the eight-byte form is signed.
  const unsigned size = value < 0 ? 8 : bytesFor(static_cast<std::uint64_t>(value));
  number(0x10U | static_cast<unsigned>(std::countr_zero(size)), static_cast<std::uint64_t>(value),
         size);
}

void BinaryPropertyListWriter::unsignedInteger(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return integer(static_cast<std::int64_t>(value));
  }
  const std::size_t start = leaves_.size();
  byte(0x14);
  bigEndian(0, 8);
  bigEndian(value, 8);
  pending_.push_back(uniqueTail(start, sharing_));
}

void BinaryPropertyListWriter::real(double value) {
  number(0x23, std::bit_cast<std::uint64_t>(value), 8);
}

void BinaryPropertyListWriter::date(Date value) {
  number(0x33, std::bit_cast<std::uint64_t>(timeIntervalSinceReferenceDate(value)), 8);
}

void BinaryPropertyListWriter::uid(PropertyList::UID value) {
  const std::size_t start = leaves_.size();
  const unsigned size = bytesFor(value.value);
  byte(0x80U | (size - 1));
  bigEndian(value.value, size);
  pending_.push_back(uniqueTail(start, sharing_));
}

void BinaryPropertyListWriter::data(DataView value) {
  const std::size_t start = leaves_.size();
  header(0x40, value.size());
  leaves_.append(textOf(value));
  pending_.push_back(uniqueTail(start, sharing_));
}

void BinaryPropertyListWriter::begin(bool isDictionary) {
  if (open_.size() >= static_cast<std::size_t>(kMaxPropertyListDepth)) {
    refuse("The value is nested too deep");
  }
  const std::uint32_t id = newId(0);
  pending_.push_back(id);
  open_.push_back({id, isDictionary, pending_.size(), 0});
}

void BinaryPropertyListWriter::end() {
  Container container = open_.back();
  open_.pop_back();
  const auto first = pending_.begin() + static_cast<std::ptrdiff_t>(container.firstReference);
  container.references = pending_.size() - container.firstReference;
  container.firstReference = references_.size();
  references_.insert(references_.end(), first, pending_.end());
  pending_.erase(first, pending_.end());
  if (container.itemBytes > 0) {
    const std::uint64_t items = container.references / (container.isDictionary ? 2 : 1);
    visits_ += items;
    visitBytes_ += items * container.itemBytes;
    widestItem_ = std::max<std::uint64_t>(widestItem_, container.itemBytes);
  }
  ended_.push_back(container);
}

void BinaryPropertyListWriter::emitContainer(Data& out, const Container& container,
                                             unsigned referenceSize) const {
  const std::size_t step = container.isDictionary ? 2 : 1;
  appendHeader(out, container.isDictionary ? 0xD0 : 0xA0, container.references / step);
  const std::size_t start = out.size();
  out.resize(start + container.references * referenceSize);
  char* at = reinterpret_cast<char*>(out.data()) + start;
  const std::uint32_t* first = references_.data() + container.firstReference;
  for (std::size_t column = 0; column < step; ++column) {
    for (std::size_t i = column; i < container.references; i += step) {
      at = putBigEndian(at, first[i], referenceSize);
    }
  }
}

namespace {

/// The most that decoders of a value and of all its contents are charged.
std::uint64_t decoderCost(const PropertyList& value, std::uint64_t steps, std::uint64_t keyBytes) {
  constexpr std::uint64_t kOperations = 4;  // on one value
  std::uint64_t cost = BinaryPropertyListView::Allowance::kDecoderCost +
                       kOperations * detail::pathCost(steps, keyBytes);
  if (const auto* items = value.array()) {
    for (const PropertyList& item : *items) cost += decoderCost(item, steps + 1, keyBytes);
  } else if (const auto* entries = value.dictionary()) {
    for (const auto& [name, item] : *entries) {
      cost += decoderCost(item, steps + 1, keyBytes + name.size());
    }
  }
  return cost;
}

}  // namespace

void BinaryPropertyListWriter::propertyList(const PropertyList& value) {
  using Allowance = BinaryPropertyListView::Allowance;
  const auto itemBytes = [this](std::size_t inTree) {
    return isForDecoders_ ? std::max<std::size_t>(Allowance::kDecoderCost, inTree) : inTree;
  };
  switch (value.kind()) {
    case PropertyList::Kind::boolean:
      return boolean(*value.boolean());
    case PropertyList::Kind::integer:
      if (const auto number = value.integer()) return integer(*number);
      return unsignedInteger(*value.unsignedInteger());
    case PropertyList::Kind::real:
      return real(*value.real());
    case PropertyList::Kind::text:
      return text(*value.text());
    case PropertyList::Kind::data:
      return data(*value.data());
    case PropertyList::Kind::date:
      return date(*value.date());
    case PropertyList::Kind::uid:
      return uid(*value.uid());
    case PropertyList::Kind::array:
      beginArray();
      expectItems(itemBytes(sizeof(PropertyList)));
      for (const PropertyList& item : *value.array()) propertyList(item);
      return endArray();
    case PropertyList::Kind::dictionary:
      beginObject();
      expectItems(itemBytes(Allowance::kEntryCost));
      for (const auto& [name, item] : *value.dictionary()) {
        key(name);
        propertyList(item);
      }
      return endObject();
  }
}

void BinaryPropertyListWriter::writeWith(void (*encode)(Encoder&, const void*), const void* value) {
  static const CodingUserInfo* const kNone = new CodingUserInfo;
  const detail::PropertyListCodingOptions options{userInfo_ == nullptr ? *kNone : *userInfo_};
  const CodingPath path = codingPath();
  const auto tree = detail::encodeTree<detail::PropertyListTree>(options, path, encode, value);
  std::uint64_t keyBytes = 0;
  for (const CodingKey& key : path) keyBytes += key.stringValue.size();
  decoderBytes_ += decoderCost(tree, open_.size(), keyBytes);
  isForDecoders_ = true;
  propertyList(tree);
  isForDecoders_ = false;
  visits_ += options.items->count;
  visitBytes_ += options.items->bytes;
  widestItem_ = std::max(widestItem_, options.items->widest);
}

/// Whether a reader accepts the file on any way through it: compares the most that it charges with
/// the least that it allows.
bool BinaryPropertyListWriter::staysWithinAllowance() const {
  using Allowance = BinaryPropertyListView::Allowance;
  const std::uint64_t objects = offsets_.size(), references = references_.size() + 1;
  const std::uint64_t size = leaves_.size() + references * bytesFor(objects - 1) + objects;
  const std::uint64_t unpaid = visits_ - std::min(visits_, objects);
  const std::uint64_t charged = std::min(unpaid * widestItem_, visitBytes_) +
                                references * (Allowance::kVisitCost + kLongestShared) +
                                leaves_.size() + decoderBytes_;
  return charged < Allowance::bytesFor(size);
}

Data BinaryPropertyListWriter::finish() {
  const unsigned referenceSize = bytesFor(offsets_.size() - 1);
  Data out = dataFrom(kHeader);
  out.reserve(kHeader.size() + leaves_.size() + references_.size() * referenceSize +
              ended_.size() * 6 + offsets_.size() * 8 + 32);
  const DataView leaves = bytesOf(leaves_);
  out.insert(out.end(), leaves.begin(), leaves.end());
  for (std::uint64_t& offset : offsets_) offset += kHeader.size();
  for (const Container& container : ended_) {
    offsets_[container.id] = out.size();
    emitContainer(out, container, referenceSize);
  }

  const std::uint64_t tableOffset = out.size();
  const unsigned offsetSize = bytesFor(tableOffset);
  out.resize(out.size() + offsets_.size() * offsetSize + 6);
  char* at = reinterpret_cast<char*>(out.data()) + tableOffset;
  for (const std::uint64_t offset : offsets_) at = putBigEndian(at, offset, offsetSize);
  appendBigEndian(out, offsetSize, 1);
  appendBigEndian(out, referenceSize, 1);
  appendBigEndian(out, offsets_.size(), 8);
  appendBigEndian(out, pending_.front(), 8);
  appendBigEndian(out, tableOffset, 8);
  *this = BinaryPropertyListWriter(userInfo_);
  return out;
}

}  // namespace ombrix::platform
