#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>
#ifndef OMBRIX_WITHOUT_JOURNAL
#include <systemd/sd-journal.h>
#endif

#include <algorithm>
#include <array>
#include <climits>
#include <string>

#include "OmbrixPlatform/Logging/Detail/JournalFields.hpp"

#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

constexpr const char* kJournalSocket = "/run/systemd/journal/socket";

int clampedLength(std::string_view text) noexcept {
  return static_cast<int>(std::min<std::size_t>(text.size(), INT_MAX));
}

class SystemdSystemLog final : public SystemLog {
 public:
  void write(const SystemLogEntry& entry) override {
    if (hasJournal_ && sendToJournal(entry)) return;
    // No openlog: the host keeps its own identity and facility.
    ::syslog(syslogPriority(entry.flag), "[%.*s:%.*s] %.*s", clampedLength(entry.subsystem),
             entry.subsystem.data(), clampedLength(entry.category), entry.category.data(),
             clampedLength(entry.text), entry.text.data());
  }

 private:
  static bool sendToJournal([[maybe_unused]] const SystemLogEntry& entry) {
#ifdef OMBRIX_WITHOUT_JOURNAL
    return false;
#else
    auto fields = journalFields(entry);
    std::vector<iovec> parts;
    parts.reserve(fields.size());
    for (std::string& field : fields) parts.push_back({field.data(), field.size()});
    return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
#endif
  }

  const bool hasJournal_ = ::access(kJournalSocket, F_OK) == 0;
};

}  // namespace

std::vector<std::string> journalFields(const SystemLogEntry& entry) {
  const auto field = [](std::string_view name, std::string_view value) {
    std::string text;
    text.reserve(name.size() + 1 + value.size());
    return text.append(name).append("=").append(value);
  };
  std::vector<std::string> fields{
      field("MESSAGE", entry.text),
      field("PRIORITY", std::to_string(syslogPriority(entry.flag))),
      field("SUBSYSTEM", entry.subsystem),
      field("CATEGORY", entry.category),
      field("CODE_FILE", entry.file),
      field("CODE_LINE", std::to_string(entry.line)),
  };
  if (!entry.function.empty()) fields.push_back(field("CODE_FUNC", entry.function));
  return fields;
}

int syslogPriority(DDLogFlag flag) noexcept {
  switch (flag) {
    case DDLogFlag::error:
      return LOG_ERR;
    case DDLogFlag::warning:
      return LOG_WARNING;
    case DDLogFlag::info:
      return LOG_INFO;
    case DDLogFlag::debug:
    case DDLogFlag::verbose:
      break;
  }
  return LOG_DEBUG;
}

std::shared_ptr<SystemLog> makeSystemLog() { return std::make_shared<SystemdSystemLog>(); }

template <>
std::shared_ptr<SystemLog> makeDefault() {
  return makeSystemLog();
}

}  // namespace ombrix::platform
