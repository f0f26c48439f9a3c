// What the cache reads back from its database about an answer: as it lies there, and with its
// checksum set right, behind which everything else is looked at.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswerCoding.hpp"

namespace {

using namespace ombrix::platform;
using namespace ombrix::platform::detail;

void require(bool condition) {
  if (!condition) std::abort();
}

void read(DataView record) {
  const auto head = readHead(record);
  if (!head) return;
  (void)selects(head->selecting, {{"authorization", "Bearer a"}, {"accept", "b"}});
  const auto body = readBody(*head);
  if (!body) return;
  const HTTPURLResponse& response = *body->response;
  require(response.statusCode() >= 200 && response.statusCode() <= 599);
  for (const auto& [name, value] : response.headers()) {
    require(HTTPHeaders::isName(name) && HTTPHeaders::isValue(value));
  }
  const auto freshness = freshnessOf(response.statusCode(), response.headers(), body->times);
  require(freshness.ageSeconds(body->times.response) >= 0);

  // Written again it reads the same.
  const CachedAnswer again{.key = std::string(head->key),
                           .selecting = {},
                           .times = body->times,
                           .freshness = freshness,
                           .answer = {body->response, std::make_shared<const Data>()}};
  const Data written = recordOf(again);
  const auto headAgain = readHead(written);
  require(headAgain && headAgain->key == head->key);
  const auto bodyAgain = readBody(*headAgain);
  require(bodyAgain && bodyAgain->times == body->times);
  require(bodyAgain->response->headers() == response.headers());
  require(bodyAgain->response->url() == response.url());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* bytes = reinterpret_cast<const std::byte*>(data);
  Data record(bytes, bytes + size);
  read(record);
  sealRecord(record);
  read(record);
  return 0;
}
