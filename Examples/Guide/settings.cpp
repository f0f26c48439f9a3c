#include <Ombrix/Settings.hpp>
#include <cstdio>

using namespace ombrix;

int main() {
  setMainBundleIdentity({.identifier = "org.example.skier", .version = "1.0"});
  OmbrixSettings::shared().registerCoreSettings();

  Setting<bool> showLifts{"showLifts", "app.showLifts", true, Synced::yes};
  std::printf("lifts: %s\n", showLifts.get() ? "shown" : "hidden");
  {
    const auto token = showLifts.observe(
        [](bool shows) { std::printf("now lifts are %s\n", shows ? "shown" : "hidden"); });
    showLifts.set(false);
  }  // the token is gone, and nobody is told any more
  showLifts.reset();
  std::printf("lifts: %s\n", showLifts.get() ? "shown" : "hidden");
}
