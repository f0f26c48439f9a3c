#include <Ombrix/Client.hpp>
#include <Ombrix/Formatting.hpp>
#include <cstdio>

using namespace ombrix;

/// The phone's own idea of language and region. `localeDidChange` is called when the user changes
/// it.
class PhoneLocale final : public LocaleService {
 public:
  Locale current() const override { return Locale("fr_CH"); }
  std::vector<std::string> preferredLanguages() const override { return {"fr-CH", "de-CH"}; }

 private:
  void reload() override {}
};

/// Sessions of the phone's own. This one adds a header and leaves the rest to those on sockets; one
/// that brings its own transport implements `URLSession` and `URLSessionTask`, as
/// `OmbrixTesting/FakeURLSession.cpp` does in 200 lines.
class PhoneSessions final : public URLSessionFactory {
 public:
  std::shared_ptr<URLSession> make(const URLSessionConfiguration& configuration,
                                   std::shared_ptr<URLSessionDelegate> delegate,
                                   std::shared_ptr<DispatchQueue> delegateQueue) override {
    URLSessionConfiguration own = configuration;
    own.httpAdditionalHeaders.set("X-Phone", "Example One");
    std::puts("a session is made");
    return sockets_->make(own, std::move(delegate), std::move(delegateQueue));
  }

 private:
  std::shared_ptr<URLSessionFactory> sockets_ = platform::makeSystemURLSessionFactory();
};

int main(int, char** arguments) {
  // Before anything else uses them.
  services().locale.set(std::make_shared<PhoneLocale>());
  services().urlSessionFactory.set(std::make_shared<PhoneSessions>());
  services().standardDefaults.set(
      UserDefaults::make({.folder = arguments[1], .domain = "org.example.phone"}));

  OmbrixSettings::shared().registerCoreSettings();
  OmbrixMeasurementFormatter speed;
  std::puts(speed.string(12.5)->c_str());
  const auto session = URLSession::make({});
  session->close();
}
