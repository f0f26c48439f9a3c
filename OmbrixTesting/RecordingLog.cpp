#include "OmbrixTesting/RecordingLog.hpp"

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::testing {

using platform::DDLog;
using platform::DDLogFlag;
using platform::DDLogLevel;

class RecordingLog::Logger final : public platform::DDLogger {
 public:
  void log(const platform::DDLogMessage& message) override {
    const platform::LockGuard lock(mutex_);
    lines_.push_back({message.flag, std::string(message.message), std::string(message.file),
                      std::string(message.function), message.line});
  }

  std::vector<Line> lines() const {
    const platform::LockGuard lock(mutex_);
    return lines_;
  }

  std::vector<std::string> takeErrors() {
    const platform::LockGuard lock(mutex_);
    std::vector<std::string> errors;
    for (; seen_ < lines_.size(); ++seen_) {
      if (lines_[seen_].flag == DDLogFlag::error) errors.push_back(lines_[seen_].message);
    }
    return errors;
  }

 private:
  mutable platform::Mutex mutex_;
  std::vector<Line> lines_ OMBRIX_GUARDED_BY(mutex_);
  std::size_t seen_ OMBRIX_GUARDED_BY(mutex_) = 0;
};

RecordingLog::RecordingLog()
    : logger_(std::make_shared<Logger>()),
      previousLevel_(DDLog::dynamicLevel()),
      wasLoggingSetUp_(ombrix::detail::isLoggingSetUp.exchange(true)) {
  DDLog::setDynamicLevel(DDLogLevel::verbose);
  DDLog::addLogger(logger_, DDLogLevel::verbose);
}

RecordingLog::~RecordingLog() {
  DDLog::removeLogger(*logger_);
  DDLog::setDynamicLevel(previousLevel_);
  ombrix::detail::isLoggingSetUp = wasLoggingSetUp_;
  const auto unexpected = takeErrors();
  if (!unexpected.empty()) platform::fatalError("Unexpected error in the log: " + unexpected[0]);
}

std::vector<RecordingLog::Line> RecordingLog::lines() const { return logger_->lines(); }
std::vector<std::string> RecordingLog::takeErrors() { return logger_->takeErrors(); }

}  // namespace ombrix::testing
