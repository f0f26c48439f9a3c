#include <OmbrixCore/Networking/OmbrixServerAPI.hpp>
#include <cstdio>
#include <fstream>
#include <map>

using namespace ombrix;
using Fields = std::map<std::string, platform::JSON>;
using Method = OmbrixServerAPI::HTTPMethod;

platform::Async<void> tour(std::filesystem::path folder) {
  auto& api = OmbrixServerAPI::sharedInstance();

  // JSON goes up, and comes back decoded. The client keeps the token of the answer.
  const HTTPPayload login(Fields{{"email", "skier@ombrix.test"}, {"password", "powder"}});
  const auto session = co_await api.post<Fields>("login", login);
  std::printf("signed in, %zu fields\n", session.size());

  // What this request wants otherwise than others.
  RequestOptions fresh{.headers = {{"X-Asked-By", "tour"}},
                       .timeout = std::chrono::seconds(5),
                       .cachePolicy = RequestOptions::CachePolicy::reloadIgnoringLocalCacheData};
  const auto answer = co_await api.get("redirect?to=/resorts", fresh);
  std::printf("%d, %s, %d redirect, %zu bytes\n", answer.code, answer.url()->path().c_str(),
              answer.metrics.redirectCount, answer.data.size());

  // A file goes up in pieces and says how far it is.
  const auto track = folder / "track.csv";
  std::ofstream(track) << std::string(1'000'000, '7');
  RequestOptions watched{.progress = [](const HTTPProgress& progress) {
    if (progress.bytesSent == progress.bytesExpectedToSend) std::puts("all of it was sent");
  }};
  const auto upload = co_await api.upload("tracks/7", track, Method::PUT, watched);
  std::printf("%d, %lld bytes sent\n", upload.code,
              static_cast<long long>(upload.metrics.bytesSent));

  // A download is there when it is whole; the next one goes on where a broken one has ended.
  const auto copy = folder / "bytes";
  const auto download = co_await api.download("bytes?bytes=300000", copy);
  std::printf("%d, %ju bytes in the file\n", download.code, std::filesystem::file_size(copy));

  // Lines as they come: what is not taken holds the server back.
  auto lines = api.lines("status/200?body=one%0Atwo");
  for (;;) {
    const auto line = co_await lines.next();
    if (!line) break;
    std::printf("line %s\n", line->c_str());
  }

  // A failure knows its case, and what the server or the network said.
  try {
    co_await api.get("status/403?body=%22closed%22");
  } catch (const HTTPError& error) {
    std::printf("%s: %d, %s\n", error.what(), error.cause()->code,
                std::string(platform::textOf(error.cause()->body)).c_str());
  }
}

int main(int, char** arguments) {  // what `ombrix serve` has printed, and a folder
  auto servers = ServerConfiguration::defaults();
  servers.development = *platform::URL::parse(arguments[1]);
  OmbrixServerAPI::sharedInstance().setConfiguration(servers);
  OmbrixServerAPI::change(APIEndpoint::development);
  tour(arguments[2]).get();
}
