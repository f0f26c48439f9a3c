#include <Ombrix/Settings.hpp>
#include <cstdio>

using namespace ombrix;

/// Sends errors to standard output. Called by several threads at once: `printf` takes its lock.
class Printer final : public DDLogger {
 public:
  void log(const DDLogMessage& message) override {
    if (message.flag != DDLogFlag::error) return;
    std::printf("%.*s\n", static_cast<int>(message.message.size()), message.message.data());
  }
};

int main() {
  OmbrixSettings::shared().registerCoreSettings();
  LoggingService::shared().attach(std::make_shared<Printer>());

  logInfo({"skier/main", "main()"}, "The day begins.");
  logError({"skier/main", "main()"}, "The lift has stopped.");
  logDebug({"skier/main", "main()"}, [] { return std::string("not built: debug is off"); });
  std::puts(LoggingService::shared().historicalLogText()->contains("The day begins")
                ? "the file has both"
                : "the file lacks one");
}
