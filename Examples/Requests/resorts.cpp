#include <OmbrixCore/Networking/OmbrixServerAPI.hpp>
#include <cstdio>

using namespace ombrix;

struct Resort {
  int id;
  std::string name;
  static constexpr auto kCodingFields = platform::codingFields(
      platform::field("id", &Resort::id), platform::field("name", &Resort::name));
};

platform::Async<int> listResorts() {
  try {
    auto& api = OmbrixServerAPI::sharedInstance();
    const auto resorts = co_await api.get<std::vector<Resort>>("resorts");
    for (const Resort& resort : resorts) std::puts(resort.name.c_str());  // on a pool thread
    co_return 0;
  } catch (const HTTPError& error) {
    std::puts(OmbrixServerAPI::errorMessageForError(&error).c_str());
    co_return 1;
  }
}

int main(int, char** arguments) {
  auto servers = ServerConfiguration::defaults();
  servers.development = *platform::URL::parse(arguments[1]);  // what `ombrix serve` has printed
  OmbrixServerAPI::sharedInstance().setConfiguration(servers);
  OmbrixServerAPI::change(APIEndpoint::development);
  return listResorts().get();  // waits for it
}
