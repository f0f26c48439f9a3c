#include <openssl/evp.h>

#include <fmt/format.h>

#include <array>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Values/Error.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"
#include "Tools/DevServer/Routes/ResortsTable.hpp"
#include "Tools/DevServer/Routes/Routes.hpp"
#include "Tools/DevServer/Service/ServerCore.hpp"

namespace ombrix::devserver {
namespace {

using platform::JSON;

constexpr std::size_t kMostItems = 10'000;

Response notFound() { return Response::message(404, "There is no such item."); }

Response noContent() {
  Response response;
  response.status = 204;
  return response;
}

JSON jsonOf(const Resort& resort) {
  return JSON::Dictionary{{"id", resort.id},
                          {"name", resort.name},
                          {"country", resort.country},
                          {"latitude", resort.latitude},
                          {"longitude", resort.longitude},
                          {"baseElevation", resort.baseElevation},
                          {"summitElevation", resort.summitElevation}};
}

Response resorts() {
  JSON::Array all;
  for (const Resort& resort : kResorts) all.push_back(jsonOf(resort));
  return Response::json(JSON(std::move(all)));
}

Response resort(const Request& request) {
  for (const Resort& resort : kResorts) {
    if (std::to_string(resort.id) == request.rest) return Response::json(jsonOf(resort));
  }
  return notFound();
}

std::string sha256Of(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
    throw platform::Error("the checksum could not be computed");
  }
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    fmt::format_to(std::back_inserter(text), "{:02x}", digest[i]);
  }
  return text;
}

/// Items stored by clients, by name and in order of arrival. Server's thread.
class Collection {
 public:
  explicit Collection(std::string path) : path_(std::move(path)) {}

  Response list() const {
    JSON::Array all;
    for (const auto& [name, item] : items_) all.push_back(item);
    return Response::json(JSON(std::move(all)));
  }

  Response get(const Request& request) const {
    const JSON* item = items_.find(request.rest);
    return item != nullptr ? Response::json(*item) : notFound();
  }

  /// Answers 201 with the location of a new item, 200 for one that existed.
  Response put(const std::string& name, JSON item) {
    const bool isNew = !items_.contains(name);
    if (isNew && items_.size() >= kMostItems) return Response::message(507, "No room is left.");
    Response response = Response::json(item, isNew ? 201 : 200);
    if (isNew) response.headers.add("Location", path_ + name);
    items_.set(name, std::move(item));
    return response;
  }

  Response remove(const Request& request) {
    return items_.erase(request.rest) ? noContent() : notFound();
  }

 private:
  std::string path_;
  JSON::Dictionary items_;
};

Response storeDay(Collection& days, const Request& request) {
  JSON day;
  try {
    day = JSON::parse(request.body);
  } catch (const platform::JSONError& error) {
    return Response::message(400, error.what());
  }
  if (day.dictionary() == nullptr) {
    return Response::json(
        JSON::Dictionary{{"message", "The given data was invalid."},
                         {"errors", JSON::Dictionary{{"day", JSON::Array{"A day is an object."}}}}},
        422);
  }
  std::string id = !request.rest.empty() ? request.rest : day["id"].stringValue();
  if (id.empty()) id = platform::UUID::random().uuidString();
  if (day["id"].stringValue() != id) day.dictionary()->set("id", id);
  return days.put(id, std::move(day));
}

// Keeps only the description of a track, however large it was.
Response storeTrack(Collection& tracks, const Request& request) {
  JSON track = JSON::Dictionary{{"id", request.rest},
                                {"size", request.body.size()},
                                {"sha256", sha256Of(request.body)},
                                {"contentType", request.headers.value("Content-Type")}};
  return tracks.put(request.rest, std::move(track));
}

}  // namespace

void addDataRoutes(ServerCore& core) {
  Router& router = core.router;
  const auto days = std::make_shared<Collection>("/days/");
  const auto tracks = std::make_shared<Collection>("/tracks/");
  router.add("GET", "/resorts", Access::open, [](const Request&) { return resorts(); });
  router.add("GET", "/resorts/*", Access::open, resort);

  const auto store = [days](const Request& request) { return storeDay(*days, request); };
  router.add("GET", "/days", Access::needsToken, [days](const Request&) { return days->list(); });
  router.add("POST", "/days", Access::needsToken, store);
  router.add("GET", "/days/*", Access::needsToken,
             [days](const Request& r) { return days->get(r); });
  router.add("PUT", "/days/*", Access::needsToken, store);
  router.add("DELETE", "/days/*", Access::needsToken,
             [days](const Request& request) { return days->remove(request); });

  const auto upload = [tracks](const Request& request) { return storeTrack(*tracks, request); };
  router.add("GET", "/tracks/*", Access::needsToken,
             [tracks](const Request& request) { return tracks->get(request); });
  router.add("POST", "/tracks/*", Access::needsToken, upload);
  router.add("PUT", "/tracks/*", Access::needsToken, upload);
  router.add("DELETE", "/tracks/*", Access::needsToken,
             [tracks](const Request& request) { return tracks->remove(request); });
}

}  // namespace ombrix::devserver
