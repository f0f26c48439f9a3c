#include <expat.h>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "OmbrixPlatform/Coding/XMLReader.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

namespace ombrix::platform {
namespace {

constexpr std::size_t kBlockBytes = 256 * 1024;
constexpr std::size_t kMostTagBytes = 1024 * 1024;

std::string_view localName(std::string_view name) {
  const std::size_t colon = name.rfind(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

struct ElementText {
  std::string text = {};
  bool isCut = false;
};

struct Reading {
  XML_Parser parser;
  XMLHandler& handler;
  std::vector<ElementText> texts = {};  ///< One for each open element.
  std::vector<XMLAttribute> attributes = {};
  std::exception_ptr error = nullptr;
  std::optional<XML_Index> errorAt = std::nullopt;

  /// Runs a piece of the handler; no exception may cross the parser.
  template <class Piece>
  void run(Piece&& piece) noexcept {
    if (error) return;
    try {
      piece();
    } catch (...) {
      error = std::current_exception();
      errorAt = XML_GetCurrentByteIndex(parser);  // moves on when the parser stops
      XML_StopParser(parser, XML_FALSE);
    }
  }
};

void onBegin(void* user, const XML_Char* name, const XML_Char** attributes) {
  auto& reading = *static_cast<Reading*>(user);
  reading.run([&] {
    if (reading.texts.size() == kMostXMLDepth) throw XMLError("elements are nested too deeply");
    reading.texts.emplace_back();
    reading.attributes.clear();
    for (; *attributes != nullptr; attributes += 2) {
      reading.attributes.push_back({localName(attributes[0]), attributes[1]});
    }
    reading.handler.beginElement(localName(name), reading.attributes);
  });
}

void onEnd(void* user, const XML_Char* name) {
  auto& reading = *static_cast<Reading*>(user);
  reading.run([&] {
    const std::string text = std::move(reading.texts.back().text);
    reading.texts.pop_back();
    reading.handler.endElement(localName(name), trimmed(text, kWhiteSpace));
  });
}

void onText(void* user, const XML_Char* text, int size) {
  auto& reading = *static_cast<Reading*>(user);
  reading.run([&] {
    if (reading.texts.empty()) return;
    auto& [whole, isCut] = reading.texts.back();
    if (isCut) return;
    auto count = static_cast<std::size_t>(size);
    if (count > kMostXMLText - whole.size()) {
      isCut = true;
      count = kMostXMLText - whole.size();
      while (count > 0 && (static_cast<unsigned char>(text[count]) & 0xC0) == 0x80) --count;
    }
    whole.append(text, count);
  });
}

void onDoctype(void* user, const XML_Char*, const XML_Char*, const XML_Char*, int) {
  static_cast<Reading*>(user)->run(
      [] { throw XMLError("a document type declaration is not accepted"); });
}

}  // namespace

void readXML(DataView bytes, XMLHandler& handler, std::string_view before) {
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(nullptr), &XML_ParserFree);
  if (!parser) throw std::bad_alloc();
  Reading reading{parser.get(), handler};
  XML_SetUserData(parser.get(), &reading);
  XML_SetElementHandler(parser.get(), onBegin, onEnd);
  XML_SetCharacterDataHandler(parser.get(), onText);
  XML_SetStartDoctypeDeclHandler(parser.get(), onDoctype);
  const auto position = [&] {
    const XML_Index index = reading.errorAt.value_or(XML_GetCurrentByteIndex(parser.get()));
    return static_cast<std::size_t>(std::max<XML_Index>(index, 0));
  };
  const auto fail = [&](const std::string& why, bool isUnfinished = false) {
    throw XMLError(why, position() - std::min(position(), before.size()), isUnfinished);
  };
  if (!before.empty()) {
    XML_Parse(parser.get(), before.data(), static_cast<int>(before.size()), XML_FALSE);
  }
  std::size_t given = before.size();
  do {
    const DataView block = bytes.first(std::min(bytes.size(), kBlockBytes));
    bytes = bytes.subspan(block.size());
    given += block.size();
    const auto status = XML_Parse(parser.get(), reinterpret_cast<const char*>(block.data()),
                                  static_cast<int>(block.size()), bytes.empty());
    if (reading.error) {
      try {
        std::rethrow_exception(reading.error);
      } catch (const XMLError& error) {
        fail(error.what());
      }
    }
    if (status != XML_STATUS_OK) {
      const XML_Error code = XML_GetErrorCode(parser.get());
      if (code == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
      fail(
          fmt::format("line {}: {}", XML_GetCurrentLineNumber(parser.get()), XML_ErrorString(code)),
          code == XML_ERROR_UNCLOSED_TOKEN);
    }
    // The parser keeps an unfinished tag or comment and may scan it again with every block.
    if (!bytes.empty() && given - std::min(given, position()) > kMostTagBytes) {
      fail("a tag or comment is longer than 1 MiB", true);
    }
  } while (!bytes.empty());
}

}  // namespace ombrix::platform
