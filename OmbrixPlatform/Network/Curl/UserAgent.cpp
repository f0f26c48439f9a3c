#include "OmbrixPlatform/Network/Curl/Detail/UserAgent.hpp"

#include <cerrno>

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform::detail {
namespace {

/// The text without the characters that a token may not contain (RFC 9110 section 10.1.5).
std::string token(std::string_view text) {
  std::string kept;
  for (const char character : text) {
    if (HTTPHeaders::isName({&character, 1})) kept.push_back(character);
  }
  return kept;
}

std::string infoText(const Bundle& bundle, const char* key) {
  const PropertyList* value = bundle.objectForInfoDictionaryKey(key);
  const std::string* text = value == nullptr ? nullptr : value->text();
  return text == nullptr ? std::string() : token(*text);
}

}  // namespace

std::string userAgentOfMainBundle() {
  const Bundle& bundle = Bundle::main();
  std::string name = infoText(bundle, "CFBundleName");
  if (name.empty()) name = token(bundle.bundleIdentifier().value_or(""));
  if (name.empty()) name = token(program_invocation_short_name);
  const std::string version = infoText(bundle, "CFBundleShortVersionString");
  return version.empty() ? name : name + "/" + version;
}

}  // namespace ombrix::platform::detail
