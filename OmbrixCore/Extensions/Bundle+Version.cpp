#include "OmbrixCore/Extensions/Bundle+Version.hpp"

namespace ombrix {
namespace {

std::string infoText(const platform::Bundle& bundle, std::string_view key) {
  const platform::PropertyList* value = bundle.objectForInfoDictionaryKey(key);
  return value == nullptr || value->text() == nullptr ? "" : *value->text();
}

}  // namespace

std::string version(const platform::Bundle& bundle) {
  return infoText(bundle, "CFBundleShortVersionString");
}

std::string build(const platform::Bundle& bundle) { return infoText(bundle, "CFBundleVersion"); }

}  // namespace ombrix
