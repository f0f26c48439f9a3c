#include "OmbrixC/OmbrixLibrary.h"

#include <atomic>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixCore/Extensions/Version.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Services.hpp"

using ombrix::c::catching;
using ombrix::c::textFrom;

namespace ombrix::c {
namespace {

std::atomic<std::size_t> liveHandles{0};
std::atomic<bool> isClientUsed{false};

}  // namespace

void countHandle() noexcept { liveHandles.fetch_add(1, std::memory_order_relaxed); }
void uncountHandle() noexcept { liveHandles.fetch_sub(1, std::memory_order_relaxed); }
void noteClient() noexcept { isClientUsed.store(true, std::memory_order_relaxed); }

}  // namespace ombrix::c

const char* ombrix_Library_version() { return ombrix::libraryVersion().data(); }

size_t ombrix_Library_liveHandles() { return ombrix::c::liveHandles.load(); }

void ombrix_Library_setIdentity(const char* identifier, const char* version, const char* build) {
  catching(nullptr, [&] {
    ombrix::platform::setMainBundleIdentity({.identifier = std::string(textFrom(identifier)),
                                             .version = std::string(textFrom(version)),
                                             .build = std::string(textFrom(build))});
  });
}

void ombrix_Library_end() {
  catching(nullptr, [] {
    if (ombrix::c::isClientUsed.load()) {
      auto& client = ombrix::OmbrixServerAPI::sharedInstance();
      client.cancelAllOperations();
      client.waitUntilAllOperationsAreFinished();
    }
    ombrix::platform::services().standardDefaults.get().synchronize();
    ombrix::platform::DDLog::flushLog();
    ombrix::platform::DDLog::removeAllLoggers();
  });
}
