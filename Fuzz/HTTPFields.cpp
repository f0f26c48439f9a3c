// Header fields as a cache reads them: a URL in the first line, then fields of an answer, an empty
// line, and fields of a request.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "OmbrixPlatform/Network/Caching/Detail/HTTPCacheControl.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/HTTPCaching.hpp"
#include "OmbrixPlatform/Network/HTTPDate.hpp"

namespace {

using namespace ombrix::platform;
using namespace ombrix::platform::detail;

void require(bool condition) {
  if (!condition) std::abort();
}

std::string_view takeLine(std::string_view& text) {
  const auto end = std::min(text.find('\n'), text.size());
  const auto line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

HTTPHeaders takeFields(std::string_view& text) {
  HTTPHeaders headers;
  while (!text.empty()) {
    const auto line = takeLine(text);
    if (line.empty()) break;
    const auto colon = std::min(line.find(':'), line.size());
    const auto value = trimmed(line.substr(std::min(colon + 1, line.size())));
    headers.add(std::string(line.substr(0, colon)), std::string(value));
  }
  return headers;
}

void checkDate(std::string_view text) {
  const Date now = dateSince1970(784'111'777);
  const auto date = dateFromHTTPText(text, now);
  if (!date) return;
  require(dateFromHTTPText(httpTextFrom(*date), now) == date);
}

void checkRules(const URLRequest& request, const HTTPURLResponse& response) {
  const Date then = dateSince1970(784'111'777);
  const HTTPHeaders& fields = response.headers();
  for (const auto& [name, value] : fields) checkDate(value);
  const auto freshness =
      freshnessOf(response.statusCode(), fields, {.request = then, .response = then});
  require(freshness.lifetimeSeconds >= 0 && std::isfinite(freshness.lifetimeSeconds));
  require(freshness.initialAgeSeconds >= 0 && std::isfinite(freshness.initialAgeSeconds));
  require(freshness.ageSeconds(dateSince1970(0)) == freshness.initialAgeSeconds);
  (void)isStorable(request, response);
  (void)useOf(request, &freshness, then);

  const HTTPHeaders kept = fieldsToKeep(fields);
  require(fieldsToKeep(kept).size() <= kept.size());
  require(confirms(kept, kept));
  const HTTPHeaders merged = mergedFields(kept, fields);
  require(mergedFields(merged, fields) == merged);
  const auto selecting = selectingFields(fields, request.headers);
  require(!selecting || selects(*selecting, request.headers));
  for (const std::string& key : invalidatedKeys(request, response)) {
    const auto url = URL::parse(key);
    require(url && cacheKey(*url) == key);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto line = takeLine(text);
  checkDate(line);
  (void)deltaSeconds(line);
  auto url = *URL::parse("http://a.test/");
  if (const auto other = URL::parse(line); other && other->scheme() && other->host()) url = *other;
  const HTTPHeaders answer = takeFields(text);
  URLRequest request(url);
  request.headers = takeFields(text);
  const HTTPURLResponse response(url, 200 + static_cast<int>(size % 400), answer);
  checkRules(request, response);
  request.httpMethod = "POST";
  checkRules(request, response);
  return 0;
}
