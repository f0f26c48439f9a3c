// URL text: a base in the first line, a reference in the rest.

#include <cstdint>
#include <cstdlib>

#include "OmbrixPlatform/Files/URL.hpp"

namespace {

using ombrix::platform::URL;

void require(bool condition) {
  if (!condition) std::abort();
}

/// Whatever made it, a URL's text must read back as the same parts.
void check(const URL& url) {
  const auto again = URL::parse(url.absoluteString());
  if (url.absoluteString().empty()) return;
  require(again == url);
  require(again->scheme() == url.scheme() && again->userInfo() == url.userInfo());
  require(again->host() == url.host() && again->port() == url.port());
  require(again->encodedPath() == url.encodedPath() && again->query() == url.query());
  require(again->fragment() == url.fragment() && again->path() == url.path());
}

void checkAround(const URL& url, std::string_view name) {
  check(url);
  check(url.deletingLastPathComponent());
  check(url.deletingPathExtension());
  check(url.appendingPathComponent(name));
  const URL folder = url.appendingPathComponent(name, true);
  check(folder);
  require(name.find_first_not_of('/') == std::string_view::npos || folder.hasDirectoryPath());
  require(url.pathExtension().size() <= url.lastPathComponent().size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto split = std::min(text.find('\n'), size);
  const std::string_view first = text.substr(0, split);
  const std::string_view rest = text.substr(std::min(split + 1, size));

  const URL file = URL::fileURL("/" + std::string(rest));
  checkAround(file, first);
  require(file.path() == "/" ||
          "/" + std::string(rest.substr(0, file.path().size() - 1)) == file.path());

  using enum ombrix::platform::URLAllowedCharacters;
  for (const auto allowed : {urlPathAllowed, urlQueryAllowed, urlFragmentAllowed}) {
    const std::string encoded = ombrix::platform::addingPercentEncoding(rest, allowed);
    require(ombrix::platform::removingPercentEncoding(encoded) == rest);
  }
  const auto base = URL::parse(first);
  if (!base) return 0;
  checkAround(*base, rest);
  if (const auto resolved = URL::parse(rest, *base)) checkAround(*resolved, first);
  return 0;
}
