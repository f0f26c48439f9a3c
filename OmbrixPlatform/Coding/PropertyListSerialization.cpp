#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"

#include "OmbrixPlatform/Coding/BinaryPropertyListView.hpp"
#include "OmbrixPlatform/Coding/BinaryPropertyListWriter.hpp"
#include "OmbrixPlatform/Coding/Detail/XMLPropertyList.hpp"

namespace ombrix::platform {
namespace {

class BinaryReader {
 public:
  explicit BinaryReader(DataView bytes) : view_(bytes), allowance_(bytes.size()) {}

  PropertyList read() { return value(view_.topObject(), 0); }

 private:
  using View = BinaryPropertyListView;

  // References in a circle end at the depth limit, exploding ones when the allowance is spent.
  PropertyList value(std::uint64_t index, int depth) {
    const View::Object object = view_.object(index);
    allowance_.spend(sizeof(PropertyList));
    switch (object.kind) {
      case View::Kind::boolean:
        return PropertyList{object.bits != 0};
      case View::Kind::integer:
        return PropertyList{static_cast<std::int64_t>(object.bits)};
      case View::Kind::unsignedInteger:
        return PropertyList{object.bits};
      case View::Kind::real:
        return PropertyList{object.real()};
      case View::Kind::date:
        return PropertyList{dateSinceReferenceDate(object.real())};
      case View::Kind::uid:
        return PropertyList{PropertyList::UID{object.bits}};
      case View::Kind::text8:
      case View::Kind::text16:
        return PropertyList{text(object)};
      case View::Kind::data: {
        allowance_.spend(object.bits);
        return PropertyList{Data(object.payload, object.payload + object.bits)};
      }
      case View::Kind::array:
        return PropertyList{array(object, depth)};
      case View::Kind::dictionary:
        return PropertyList{dictionary(object, depth)};
    }
    return {};
  }

  std::string text(const View::Object& object) {
    allowance_.spend(object.bits);
    return std::string{View::text(object, scratch_)};
  }

  void descend(int depth) const {
    if (depth >= kMaxPropertyListDepth) {
      throw PropertyListError("damaged property list: it is nested too deep");
    }
  }

  PropertyList::Array array(const View::Object& object, int depth) {
    descend(depth);
    allowance_.spend(object.bits * sizeof(PropertyList));
    PropertyList::Array items;
    items.reserve(static_cast<std::size_t>(object.bits));
    for (std::uint64_t i = 0; i < object.bits; ++i) {
      items.push_back(value(view_.reference(object, i), depth + 1));
    }
    return items;
  }

  PropertyList::Dictionary dictionary(const View::Object& object, int depth) {
    descend(depth);
    allowance_.spend(object.bits * sizeof(PropertyList::Dictionary::Entry));
    PropertyList::Dictionary entries;
    entries.reserve(static_cast<std::size_t>(object.bits));
    for (std::uint64_t i = 0; i < object.bits; ++i) {
      const View::Object key = view_.object(view_.reference(object, i));
      if (key.kind != View::Kind::text8 && key.kind != View::Kind::text16) {
        throw PropertyListError("damaged property list: a key is not a text");
      }
      std::string name = text(key);
      entries.set(std::move(name), value(view_.valueReference(object, i), depth + 1));
    }
    return entries;
  }

  View view_;
  View::Allowance allowance_;
  std::string scratch_;
};

void writeBinary(BinaryPropertyListWriter& writer, const PropertyList& value) {
  switch (value.kind()) {
    case PropertyList::Kind::boolean:
      return writer.value(*value.boolean());
    case PropertyList::Kind::integer:
      if (const auto number = value.integer()) return writer.value(*number);
      return writer.value(*value.unsignedInteger());
    case PropertyList::Kind::real:
      return writer.value(*value.real());
    case PropertyList::Kind::text:
      return writer.value(std::string_view{*value.text()});
    case PropertyList::Kind::data:
      return writer.value(DataView{*value.data()});
    case PropertyList::Kind::date:
      return writer.value(*value.date());
    case PropertyList::Kind::uid:
      return writer.value(*value.uid());
    case PropertyList::Kind::array:
      writer.beginArray();
      for (const PropertyList& item : *value.array()) writeBinary(writer, item);
      return writer.end();
    case PropertyList::Kind::dictionary:
      writer.beginDictionary();
      for (const auto& [key, item] : *value.dictionary()) {
        writer.key(key);
        writeBinary(writer, item);
      }
      return writer.end();
  }
}

}  // namespace

PropertyList PropertyListSerialization::read(DataView bytes) {
  if (BinaryPropertyListView::matches(bytes)) return BinaryReader(bytes).read();
  return detail::readXMLPropertyList(bytes);
}

Data PropertyListSerialization::write(const PropertyList& value, PropertyListFormat format) {
  if (format == PropertyListFormat::xml) return detail::writeXMLPropertyList(value);
  BinaryPropertyListWriter writer;
  writeBinary(writer, value);
  return writer.finish();
}

}  // namespace ombrix::platform
