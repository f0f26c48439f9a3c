#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::testing {

/// Redirects the user's folders below a new empty folder during its scope. None of them is created;
/// no group has a container until `setGroupContainer`, which applies to every group.
class ScopedDirectories {
 public:
  ScopedDirectories()
      : service_(std::make_shared<Service>(dir_)),
        scoped_(platform::services().directories, service_) {}

  [[nodiscard]] const ScopedDir& dir() const { return dir_; }

  /// Gives every group the container "group" (without creating it), or none.
  void setGroupContainer(bool isThere) {
    service_->setContainerForGroup(
        {}, isThere ? std::optional(service_->folder("group")) : std::nullopt);
  }

 private:
  class Service final : public platform::Directories {
   public:
    explicit Service(const ScopedDir& dir) : root_(dir.path().string()) {}

    platform::URL folder(std::string_view name) const {
      return platform::URL::fileURL(root_).appendingPathComponent(name, true);
    }

    platform::URL caches() const override { return folder("caches"); }
    platform::URL applicationSupport() const override { return folder("support"); }
    platform::URL library() const override { return folder("library"); }
    platform::URL preferences() const override { return folder("preferences"); }
    platform::URL documents() const override { return folder("documents"); }
    platform::URL temporary() const override { return folder("temporary"); }

    std::optional<platform::URL> containerForGroup(std::string_view) const override {
      const platform::LockGuard lock(mutex_);
      return container_;
    }
    void setContainerForGroup(std::string_view, std::optional<platform::URL> container) override {
      const platform::LockGuard lock(mutex_);
      container_ = std::move(container);
    }

   private:
    std::string root_;
    mutable platform::Mutex mutex_;
    std::optional<platform::URL> container_ OMBRIX_GUARDED_BY(mutex_);
  };

  ScopedDir dir_;
  std::shared_ptr<Service> service_;
  ScopedService<platform::Directories> scoped_;
};

}  // namespace ombrix::testing
