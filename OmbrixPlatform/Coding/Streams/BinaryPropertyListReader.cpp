#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListReader.hpp"

#include "OmbrixPlatform/Coding/Detail/Numbers.hpp"
#include "OmbrixPlatform/Coding/Detail/PathCost.hpp"
#include "OmbrixPlatform/Coding/Detail/PropertyListTree.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"

namespace ombrix::platform {
namespace {

using View = BinaryPropertyListView;
using Allowance = View::Allowance;

constexpr std::size_t kUsualDepth = 8;
bool isText(const View::Object& object) noexcept {
  return object.kind == View::Kind::text8 || object.kind == View::Kind::text16;
}

bool isNull(const View::Object& object) noexcept {
  return object.kind == View::Kind::text8 && View::view(object) == kPropertyListNull;
}

PropertyList::Kind treeKind(View::Kind kind) noexcept {
  switch (kind) {
    case View::Kind::boolean:
      return PropertyList::Kind::boolean;
    case View::Kind::integer:
    case View::Kind::unsignedInteger:
      return PropertyList::Kind::integer;
    case View::Kind::real:
      return PropertyList::Kind::real;
    case View::Kind::date:
      return PropertyList::Kind::date;
    case View::Kind::uid:
      return PropertyList::Kind::uid;
    case View::Kind::data:
      return PropertyList::Kind::data;
    case View::Kind::text8:
    case View::Kind::text16:
      return PropertyList::Kind::text;
    case View::Kind::array:
      return PropertyList::Kind::array;
    case View::Kind::dictionary:
      break;
  }
  return PropertyList::Kind::dictionary;
}

[[noreturn]] void tooDeep() {
  throw PropertyListError("damaged property list: it is nested too deep");
}

}  // namespace

BinaryPropertyListReader::BinaryPropertyListReader(DataView bytes, const CodingUserInfo* userInfo)
    : bytes_(bytes),
      userInfo_(userInfo),
      view_(bytes),
      ownAllowance_(bytes.size(), view_.objectCount()),
      current_(view_.topObject()) {
  frames_.reserve(kUsualDepth);
}

BinaryPropertyListReader::BinaryPropertyListReader(const Document& document, std::uint64_t object,
                                                   const CodingPath& path)
    : bytes_(document.bytes),
      userInfo_(&document.info),
      view_(document.view),
      ownAllowance_(0, 0),
      allowance_(document.allowance),
      current_(object),
      path_(path) {}

void BinaryPropertyListReader::mismatch(std::string_view expected, const View::Object& object,
                                        const CodingPath& path) {
  if (isNull(object)) throw DecodingError::valueNotFound(expected, path);
  throw DecodingError::typeMismatch(expected, nameOf(treeKind(object.kind)), path);
}

void BinaryPropertyListReader::misfit() const {
  throw DecodingError::dataCorrupted("The number does not fit", codingPath());
}

View::Object BinaryPropertyListReader::object() { return view_.object(current_); }

std::size_t BinaryPropertyListReader::expectItems(std::size_t bytesEach) {
  const std::uint64_t count = frames_.back().container.bits;
  allowance_.visit(count, bytesEach);
  return static_cast<std::size_t>(count);
}

std::string_view BinaryPropertyListReader::text(const View::Object& object) {
  allowance_.spend(object.bits);
  return View::text(object, scratch_);
}

bool BinaryPropertyListReader::readNull() { return isNull(view_.object(current_)); }

bool BinaryPropertyListReader::readBool() {
  const View::Object value = object();
  if (value.kind != View::Kind::boolean) mismatch("a truth value", value);
  return value.bits != 0;
}

std::int64_t BinaryPropertyListReader::readInteger() {
  const View::Object value = object();
  if (value.kind == View::Kind::integer) return static_cast<std::int64_t>(value.bits);
  if (value.kind == View::Kind::unsignedInteger) misfit();
  if (value.kind != View::Kind::real) mismatch("an integer", value);
  if (const auto whole = detail::exactly<std::int64_t>(value.real())) return *whole;
  misfit();
}

std::uint64_t BinaryPropertyListReader::readUnsignedInteger() {
  const View::Object value = object();
  if (value.kind == View::Kind::unsignedInteger) return value.bits;
  if (value.kind == View::Kind::integer) {
    if (static_cast<std::int64_t>(value.bits) >= 0) return value.bits;
    misfit();
  }
  if (value.kind != View::Kind::real) mismatch("an integer", value);
  if (const auto whole = detail::exactly<std::uint64_t>(value.real())) return *whole;
  misfit();
}

double BinaryPropertyListReader::readReal() {
  const View::Object value = object();
  switch (value.kind) {
    case View::Kind::real:
      return value.real();
    case View::Kind::integer:
      return static_cast<double>(static_cast<std::int64_t>(value.bits));
    case View::Kind::unsignedInteger:
      return static_cast<double>(value.bits);
    default:
      mismatch("a number", value);
  }
}

std::string_view BinaryPropertyListReader::readText() {
  const View::Object value = object();
  if (!isText(value)) mismatch("a text", value);
  return text(value);
}

Data BinaryPropertyListReader::readData() {
  const View::Object value = object();
  if (value.kind != View::Kind::data) mismatch("data", value);
  allowance_.spend(value.bits);
  return {value.payload, value.payload + value.bits};
}

Date BinaryPropertyListReader::readDate() {
  const View::Object value = object();
  if (value.kind != View::Kind::date) mismatch("a date", value);
  return dateSinceReferenceDate(value.real());
}

void BinaryPropertyListReader::begin(View::Kind kind) {
  const View::Object value = object();
  if (value.kind != kind) {
    mismatch(kind == View::Kind::array ? "an array" : "a dictionary", value);
  }
  if (frames_.size() >= static_cast<std::size_t>(kMaxPropertyListDepth)) tooDeep();
  frames_.push_back({value, 0});
}

bool BinaryPropertyListReader::nextKey(std::string_view& key) {
  Frame& frame = frames_.back();
  if (frame.next == frame.container.bits) {
    frames_.pop_back();
    return false;
  }
  allowance_.spend(Allowance::kVisitCost);
  const View::Object name = view_.object(view_.reference(frame.container, frame.next));
  if (!isText(name)) throw PropertyListError("damaged property list: a key is not a text");
  key = text(name);
  current_ = view_.valueReference(frame.container, frame.next++);
  return true;
}

bool BinaryPropertyListReader::nextItem() {
  Frame& frame = frames_.back();
  if (frame.next == frame.container.bits) {
    frames_.pop_back();
    return false;
  }
  allowance_.spend(Allowance::kVisitCost);
  current_ = view_.reference(frame.container, frame.next++);
  return true;
}

PropertyList BinaryPropertyListReader::tree(std::uint64_t index, int depth) {
  const View::Object value = view_.object(index);
  allowance_.spend(Allowance::kVisitCost);
  switch (value.kind) {
    case View::Kind::boolean:
      return value.bits != 0;
    case View::Kind::integer:
      return static_cast<std::int64_t>(value.bits);
    case View::Kind::unsignedInteger:
      return value.bits;
    case View::Kind::real:
      return value.real();
    case View::Kind::date:
      return dateSinceReferenceDate(value.real());
    case View::Kind::uid:
      return PropertyList::UID{value.bits};
    case View::Kind::text8:
    case View::Kind::text16:
      return text(value);
    case View::Kind::data:
      allowance_.spend(value.bits);
      return Data(value.payload, value.payload + value.bits);
    default:
      break;
  }
  // References in a circle end at the depth limit, exploding ones when the allowance is spent.
  if (depth >= kMaxPropertyListDepth) tooDeep();
  if (value.kind == View::Kind::array) {
    allowance_.visit(value.bits, sizeof(PropertyList));
    PropertyList::Array items;
    items.reserve(static_cast<std::size_t>(value.bits));
    for (std::uint64_t i = 0; i < value.bits; ++i) {
      items.push_back(tree(view_.reference(value, i), depth + 1));
    }
    return items;
  }
  allowance_.visit(value.bits, Allowance::kEntryCost);
  PropertyList::Dictionary entries;
  entries.reserve(static_cast<std::size_t>(value.bits));
  for (std::uint64_t i = 0; i < value.bits; ++i) {
    const View::Object key = view_.object(view_.reference(value, i));
    if (!isText(key)) throw PropertyListError("damaged property list: a key is not a text");
    std::string name{text(key)};
    entries.set(std::move(name), tree(view_.valueReference(value, i), depth + 1));
  }
  return entries;
}

PropertyList BinaryPropertyListReader::readPropertyList() {
  return tree(current_, static_cast<int>(frames_.size()));
}

std::optional<std::string> BinaryPropertyListReader::peekText(std::string_view wanted) {
  const std::uint64_t start = current_;
  const std::size_t depth = frames_.size();
  std::optional<std::string> found;
  std::string_view key;
  for (beginObject(); nextKey(key);) {
    if (key != wanted) continue;
    CodingPathChain::Step step(path_);
    step.setKey(wanted);
    if (!readNull()) found = readText();
    break;
  }
  current_ = start;
  frames_.resize(depth);
  return found;
}

OrderedDictionary<std::uint64_t> BinaryPropertyListReader::entries() {
  OrderedDictionary<std::uint64_t> entries;
  std::string_view key;
  beginObject();
  expectItems(Allowance::kDecoderCost);
  while (nextKey(key)) entries.set(std::string{key}, current_);
  return entries;
}

std::vector<std::uint64_t> BinaryPropertyListReader::items() {
  std::vector<std::uint64_t> items;
  beginArray();
  expectItems(Allowance::kDecoderCost);
  while (nextItem()) items.push_back(current_);
  return items;
}

namespace {

/// Binary property lists for `TreeDecoder`: a value is the number of its object.
struct Objects {
  using Document = BinaryPropertyListReader::Document;
  using Cursor = std::uint64_t;
  using Tree = PropertyList;

  template <class Read>
  static auto read(const Document& document, Cursor object, const CodingPath& path, Read read) {
    try {
      // References in a circle end here.
      if (path.size() >= static_cast<std::size_t>(kMaxPropertyListDepth)) tooDeep();
      document.allowance.spend(detail::pathCost(path));
      BinaryPropertyListReader reader(document, object, path);
      return read(reader);
    } catch (const PropertyListSizeError& error) {
      throw DecodingError::tooLarge(error.what(), path);
    } catch (const PropertyListError& error) {
      throw DecodingError::dataCorrupted(std::string("The data cannot be read: ") + error.what(),
                                         path);
    }
  }

  static void expectItems(const Document& document, std::size_t count, std::size_t bytesEach,
                          const CodingPath& path) {
    if (bytesEach <= Allowance::kDecoderCost) return;  // has been charged with the decoder
    try {
      document.allowance.visit(count, bytesEach);
    } catch (const PropertyListSizeError& error) {
      throw DecodingError::tooLarge(error.what(), path);
    }
  }
  static bool isNull(const Document& document, Cursor object) {
    return read(document, object, {}, [](auto& reader) { return reader.readNull(); });
  }
  static OrderedDictionary<Cursor> entries(const Document& document, Cursor object,
                                           const CodingPath& path) {
    return read(document, object, path, [](auto& reader) { return reader.entries(); });
  }
  static std::vector<Cursor> items(const Document& document, Cursor object,
                                   const CodingPath& path) {
    return read(document, object, path, [](auto& reader) { return reader.items(); });
  }
  static CodingPrimitive primitive(const Document& document, Cursor object,
                                   CodingPrimitiveKind kind, const CodingPath& path) {
    return read(document, object, path,
                [kind](auto& reader) { return detail::readPrimitive(reader, kind); });
  }
  static PropertyList tree(const Document& document, Cursor object, const CodingPath& path) {
    return read(document, object, path, [](auto& reader) { return reader.readPropertyList(); });
  }
};

}  // namespace

std::shared_ptr<Decoder> BinaryPropertyListReader::decoder() {
  static const CodingUserInfo* const kNone = new CodingUserInfo;
  if (document_ == nullptr) {
    document_ =
        std::make_shared<const Document>(bytes_, userInfo_ == nullptr ? *kNone : *userInfo_);
  }
  static_cast<void>(object());  // what cannot be read at all is told at once
  const CodingPath path = codingPath();
  allowance_.spend(Allowance::kDecoderCost + detail::pathCost(path));
  return detail::makeTreeDecoder<Objects>(document_, current_, path);
}

void BinaryPropertyListReader::startOver() const {
  throw DecodingError::dataCorrupted("The value cannot be judged in one pass", codingPath());
}

}  // namespace ombrix::platform
