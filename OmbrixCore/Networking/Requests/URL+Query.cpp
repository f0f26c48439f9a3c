#include "OmbrixCore/Networking/Requests/URL+Query.hpp"

namespace ombrix {
namespace {

// Kept: "&" and "=" stay in keys and values. Callers that pass "a=1&b=2" as one value would send
// something else.
std::string encoded(std::string_view text) {
  return platform::addingPercentEncoding(text, platform::URLAllowedCharacters::urlQueryAllowed);
}

}  // namespace

std::optional<platform::URL> urlWithQueryComponenets(
    std::string_view string, const platform::URL& relativeTo,
    const std::optional<QueryComponents>& withQueryComponenets) {
  std::string text(string);
  if (withQueryComponenets) {
    // Kept: a text with a query of its own gets a second "?", a path without items ends in "?".
    // Looking for "?" elsewhere would change the URLs that answers are cached under.
    if (!text.ends_with('?')) text += '?';
    for (const auto& [key, value] : *withQueryComponenets) {
      if (!text.ends_with('?')) text += '&';
      text.append(encoded(key)).append("=").append(encoded(value));
    }
  }
  return platform::URL::parse(text, relativeTo);
}

}  // namespace ombrix
