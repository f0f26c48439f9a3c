#include <OmbrixCore/Networking/OmbrixServerAPI.hpp>
#include <cstdio>
#include <fstream>
#include <map>

using namespace ombrix;
using Fields = std::map<std::string, platform::JSON>;

platform::Async<std::string> signIn(RequestOptions own) {
  const HTTPPayload login(Fields{{"email", "skier@ombrix.test"}, {"password", "powder"}});
  auto session = co_await OmbrixServerAPI::sharedInstance().post<Fields>("login", login, own);
  co_return session["token"].stringValue();
}

platform::Async<void> tour(std::filesystem::path folder) {
  auto& api = OmbrixServerAPI::sharedInstance();
  // Off unless asked for: retries, a new token where the old one is refused, someone who listens.
  const auto listen = [](const AttemptReport& at) {
    std::printf("%s: %d, attempt %d\n", at.request.c_str(), at.code, at.metrics.attempt);
  };
  api.setPolicies({.retry = RetryPolicy{}, .tokenRefresher = {{signIn}}, .listeners = {listen}});
  api.setJwtToken("outdated");
  const auto days = co_await api.get<std::vector<platform::JSON>>("days");

  // What one request wants otherwise; an answer says how it came.
  RequestOptions own{.headers = {{"X-Asked-By", "tour"}}, .timeout = std::chrono::seconds(5)};
  const auto answer = co_await api.get("redirect?to=/resorts", own);
  std::printf("%zu days, then %s\n", days.size(), answer.url()->path().c_str());

  // Files go up and come down in pieces: as a body, as a part of a form, as lines.
  const auto track = folder / "track.csv", copy = folder / "bytes";
  std::ofstream(track) << std::string(1'000'000, '7');
  own.progress = [](const HTTPProgress& so) { std::printf("%d sent\n", int(so.bytesSent)); };
  const auto up = co_await api.upload("tracks/7", track, ServerRequests::HTTPMethod::PUT, own);
  const auto parts =
      HTTPContent::multipart({HTTPPart::field("day", "7"), HTTPPart::file("t", track)});
  const auto form = co_await api.post("echo", parts);
  const auto down = co_await api.download("bytes?bytes=300000", copy);
  std::printf("%d %d %d, %ju bytes\n", up.code, form.code, down.code, file_size(copy));
  auto lines = api.lines("status/200?body=one%0Atwo");
  for (;;) {
    const auto line = co_await lines.next();
    if (!line) break;
    std::printf("line %s\n", line->c_str());
  }
  try {  // a failure knows its case, and what the server or the network said
    co_await api.get("status/403?body=%22closed%22");
  } catch (const HTTPError& error) {
    std::printf("%s: %d\n", error.what(), error.cause()->code);
  }
}

int main(int, char** arguments) {  // what `ombrix serve` has printed, and a folder
  auto servers = ServerConfiguration::defaults();
  servers.development = *platform::URL::parse(arguments[1]);
  servers.connections.proxy = platform::URLProxy{};  // none; pins and certificates lie beside it
  OmbrixServerAPI::sharedInstance().setConfiguration(servers);
  OmbrixServerAPI::change(APIEndpoint::development);
  tour(arguments[2]).get();
}
