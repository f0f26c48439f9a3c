#pragma once

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::testing {

/// Makes a locale the current one during its scope. Any thread may read the locale meanwhile.
class ScopedLocale {
 public:
  /// @param languages The preferred languages; the locale's own when empty.
  explicit ScopedLocale(std::string_view identifier, std::vector<std::string> languages = {})
      : service_(std::make_shared<Service>()), scoped_(platform::services().locale, service_) {
    service_->set(identifier, std::move(languages));
  }

  /// Changes the locale and announces that, as a host does when the user has changed it.
  void change(std::string_view identifier, std::vector<std::string> languages = {}) {
    service_->set(identifier, std::move(languages));
    service_->localeDidChange();
  }

 private:
  class Service final : public platform::LocaleService {
   public:
    void set(std::string_view identifier, std::vector<std::string> languages) {
      const platform::LockGuard lock(mutex_);
      locale_ = platform::Locale(identifier);
      languages_ = std::move(languages);
      if (languages_.empty()) languages_.push_back(locale_.languageTag());
    }

    platform::Locale current() const override {
      const platform::LockGuard lock(mutex_);
      return locale_;
    }
    std::vector<std::string> preferredLanguages() const override {
      const platform::LockGuard lock(mutex_);
      return languages_;
    }

   private:
    void reload() override {}

    mutable platform::Mutex mutex_;
    platform::Locale locale_ OMBRIX_GUARDED_BY(mutex_){"en_US"};
    std::vector<std::string> languages_ OMBRIX_GUARDED_BY(mutex_);
  };

  std::shared_ptr<Service> service_;
  ScopedService<platform::LocaleService> scoped_;
};

}  // namespace ombrix::testing
