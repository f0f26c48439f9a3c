#include <pugixml.hpp>

#include <charconv>
#include <cmath>
#include <new>
#include <string>

#include "OmbrixPlatform/Coding/Detail/XMLPropertyList.hpp"
#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"
#include "OmbrixPlatform/Detail/TextForms.hpp"
#include "OmbrixPlatform/Detail/Utf.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::string_view kUidKey = "CF$UID";

[[noreturn]] void damaged(const std::string& what) {
  throw PropertyListError("damaged property list: " + what);
}
[[noreturn]] void cannotWrite(const char* what) {
  throw PropertyListError(std::string("cannot write the property list: ") + what);
}

// pugixml ends its text at a NUL, so one in the bytes would hide what follows it.
void refuseHiddenText(DataView bytes) {
  const std::string_view text = textOf(bytes);
  const bool wide = text.starts_with("\xFE\xFF") || text.starts_with("\xFF\xFE") ||
                    text.starts_with(std::string_view("\0<", 2)) ||
                    text.starts_with(std::string_view("<\0", 2)) ||
                    text.starts_with(std::string_view("\0\0", 2));
  if (!wide && text.find('\0') != std::string_view::npos) damaged("it is not a property list");
}

// All text of an element, which must contain nothing but text.
std::string textIn(const pugi::xml_node& node) {
  std::string text;
  for (const pugi::xml_node& child : node.children()) {
    if (child.type() == pugi::node_element) damaged("an element stands inside a text");
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
      text += child.value();
    }
  }
  if (!isValidUtf8(text)) damaged("a text is not valid");
  return text;
}

template <class Number, class... Base>
bool parseWhole(std::string_view text, Number& number, Base... base) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number, base...);
  return result.ec == std::errc{} && result.ptr == end;
}

PropertyList integerFrom(std::string_view text) {
  std::string_view digits = text;
  if (digits.starts_with('+')) digits.remove_prefix(1);
  std::uint64_t magnitude = 0;
  std::int64_t number = 0;
  if (digits.starts_with("0x") || digits.starts_with("0X")) {
    if (parseWhole(digits.substr(2), magnitude, 16)) return magnitude;
  } else if (parseWhole(digits, number)) {
    return number;
  } else if (parseWhole(digits, magnitude)) {
    return magnitude;
  }
  damaged("an integer cannot be read");
}

PropertyList realFrom(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  // A number too small for a double is zero.
  const auto number = readDecimal(text);
  const bool isWhole = !text.empty() && number.end == text.data() + text.size();
  if (!isWhole || number.fit == NumberFit::tooLarge) damaged("a real number cannot be read");
  return number.value;
}

class XMLReader {
 public:
  PropertyList value(const pugi::xml_node& node, int depth) {
    const std::string_view name = node.name();
    if (name == "string") return textIn(node);
    if (name == "dict") return dictionary(node, depth);
    if (name == "array") return array(node, depth);
    if (name == "true") return true;
    if (name == "false") return false;
    const std::string text = textIn(node);
    if (name == "integer") return integerFrom(trimmed(text, kWhiteSpace));
    if (name == "real") return realFrom(trimmed(text, kWhiteSpace));
    if (name == "date") {
      if (const auto date = dateFromISO8601(trimmed(text, kWhiteSpace))) return *date;
      damaged("a date cannot be read");
    }
    if (name == "data") {
      if (auto data = bytesFromBase64(text, true)) return *std::move(data);
      damaged("data cannot be read");
    }
    damaged("an element of an unknown kind");
  }

  static pugi::xml_node nextElement(pugi::xml_node node) {
    for (; node; node = node.next_sibling()) {
      if (node.type() == pugi::node_element) return node;
      const bool isText = node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
      if (isText && !trimmed(node.value(), kWhiteSpace).empty())
        damaged("a text stands among the elements");
    }
    return node;
  }

 private:
  static void descend(int depth) {
    if (depth >= kMaxPropertyListDepth) damaged("it is nested too deep");
  }

  PropertyList array(const pugi::xml_node& node, int depth) {
    descend(depth);
    PropertyList::Array items;
    for (auto item = nextElement(node.first_child()); item; item = nextAfter(item)) {
      items.push_back(value(item, depth + 1));
    }
    return items;
  }

  PropertyList dictionary(const pugi::xml_node& node, int depth) {
    descend(depth);
    PropertyList::Dictionary entries;
    for (auto key = nextElement(node.first_child()); key; key = nextAfter(key)) {
      if (std::string_view{key.name()} != "key") damaged("a key is missing");
      const std::string name = textIn(key);
      key = nextAfter(key);
      if (!key) damaged("a value is missing");
      entries.set(name, value(key, depth + 1));
    }
    if (entries.size() == 1) {
      const PropertyList* uid = entries.find(kUidKey);
      const auto number = uid == nullptr ? std::nullopt : uid->unsignedInteger();
      if (number) return PropertyList::UID{*number};
    }
    return entries;
  }

  static pugi::xml_node nextAfter(const pugi::xml_node& node) {
    return nextElement(node.next_sibling());
  }
};

class XMLWriter {
 public:
  void write(const PropertyList& value, int depth) {
    switch (value.kind()) {
      case PropertyList::Kind::boolean:
        return line(depth, *value.boolean() ? "<true/>" : "<false/>");
      case PropertyList::Kind::integer:
        return line(depth, "<integer>" + digits(value) + "</integer>");
      case PropertyList::Kind::real:
        return line(depth, "<real>" + number(*value.real()) + "</real>");
      case PropertyList::Kind::text:
        return line(depth, element("string", *value.text()));
      case PropertyList::Kind::data:
        return line(depth, "<data>" + base64(*value.data()) + "</data>");
      case PropertyList::Kind::date:
        return line(depth, "<date>" + date(*value.date()) + "</date>");
      case PropertyList::Kind::uid: {
        PropertyList::Dictionary form;
        form.set(std::string{kUidKey}, value.uid()->value);
        return write(form, depth);
      }
      case PropertyList::Kind::array:
        return array(*value.array(), depth);
      case PropertyList::Kind::dictionary:
        return dictionary(*value.dictionary(), depth);
    }
  }

  std::string out;

 private:
  void line(int depth, std::string_view text) {
    out.append(static_cast<std::size_t>(depth), '\t').append(text).push_back('\n');
  }

  static void descend(int depth) {
    if (depth >= kMaxPropertyListDepth) cannotWrite("it is nested too deep");
  }

  void array(const PropertyList::Array& items, int depth) {
    descend(depth);
    if (items.empty()) return line(depth, "<array/>");
    line(depth, "<array>");
    for (const PropertyList& item : items) write(item, depth + 1);
    line(depth, "</array>");
  }

  void dictionary(const PropertyList::Dictionary& entries, int depth) {
    descend(depth);
    if (entries.empty()) return line(depth, "<dict/>");
    line(depth, "<dict>");
    for (const auto& [key, value] : entries) {
      line(depth + 1, element("key", key));
      write(value, depth + 1);
    }
    line(depth, "</dict>");
  }

  static std::string element(const std::string& name, std::string_view text) {
    if (!isValidUtf8(text)) cannotWrite("a text is not valid UTF-8");
    std::string form = "<" + name + ">";
    for (const char c : text) {
      const auto code = static_cast<unsigned char>(c);
      if (code < 0x20 && c != '\t' && c != '\n' && c != '\r') {
        cannotWrite("XML cannot hold a control character");
      }
      switch (c) {
        case '&':
          form += "&amp;";
          break;
        case '<':
          form += "&lt;";
          break;
        case '>':
          form += "&gt;";
          break;
        case '\r':
          form += "&#13;";
          break;  // a plain one would be read as a line feed
        default:
          form.push_back(c);
      }
    }
    return form + "</" + name + ">";
  }

  static std::string digits(const PropertyList& value) {
    if (const auto number = value.integer()) return std::to_string(*number);
    return std::to_string(*value.unsignedInteger());
  }

  static std::string number(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value > 0 ? "+infinity" : "-infinity";
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
  }

  static std::string base64(DataView bytes) {
    std::string text;
    appendBase64(text, bytes);
    return text;
  }

  static std::string date(Date date) {
    std::string text = iso8601Text(date);
    if (text.empty()) cannotWrite("XML cannot hold a date outside the years 0 to 9999");
    return text;
  }
};

}  // namespace

PropertyList readXMLPropertyList(DataView bytes) {
  refuseHiddenText(bytes);
  pugi::xml_document document;
  const auto parsed = document.load_buffer(
      bytes.data(), bytes.size(),
      pugi::parse_escapes | pugi::parse_cdata | pugi::parse_eol | pugi::parse_ws_pcdata);
  if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();  // it may be whole
  if (!parsed) {
    damaged(std::string("at byte ") + std::to_string(parsed.offset) + ": " + parsed.description());
  }
  const pugi::xml_node root = document.document_element();
  if (std::string_view{root.name()} != "plist") damaged("it is not a property list");
  const pugi::xml_node top = XMLReader::nextElement(root.first_child());
  if (!top) damaged("it is empty");
  if (XMLReader::nextElement(top.next_sibling())) damaged("it has more than one value");
  return XMLReader{}.value(top, 0);
}

Data writeXMLPropertyList(const PropertyList& value) {
  XMLWriter writer;
  writer.out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
  writer.write(value, 0);
  writer.out += "</plist>\n";
  return dataFrom(writer.out);
}

}  // namespace ombrix::platform::detail
