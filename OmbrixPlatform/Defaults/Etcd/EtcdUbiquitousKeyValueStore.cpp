#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"

#include <utility>

#include "OmbrixPlatform/Defaults/Detail/CloudRoom.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/CertificateAuthorities.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdSync.hpp"

namespace ombrix::platform {
namespace {

EtcdConfiguration checked(EtcdConfiguration configuration) {
  const auto scheme = configuration.endpoint.scheme();
  if ((scheme != "http" && scheme != "https") || !configuration.endpoint.host()) {
    throw Error("the cloud store's address is neither an http nor an https URL");
  }
  if (configuration.domain.empty() || configuration.domain.contains('/')) {
    throw Error("the cloud store's domain cannot be a file name: \"" + configuration.domain + "\"");
  }
  const auto& authorities = configuration.certificateAuthorities;
  if (!authorities.empty()) detail::CertificateAuthorities(authorities).check();
  return configuration;
}

class EtcdUbiquitousKeyValueStore final : public NSUbiquitousKeyValueStore {
 public:
  explicit EtcdUbiquitousKeyValueStore(EtcdConfiguration configuration)
      : sync_(detail::EtcdSync::make(checked(std::move(configuration)))) {}

  // The network's callbacks hold the sync object, so it must be told that the store is gone.
  ~EtcdUbiquitousKeyValueStore() override {
    sync_->flushLast();
    sync_->close();
  }

  std::optional<PropertyList> objectForKey(std::string_view key) const override {
    return sync_->value(key);
  }

  void setObject(PropertyList value, std::string_view key) override {
    if (!room_.take(value, key, [this] { return sync_->values(); })) return sync_->tellRefused(key);
    sync_->set(key, std::move(value));
  }

  void removeObjectForKey(std::string_view key) override { sync_->set(key, std::nullopt); }

  PropertyList::Dictionary dictionaryRepresentation() const override { return sync_->values(); }

  bool synchronize() override { return sync_->synchronize(); }
  bool isKept() const override { return sync_->isKept(); }

  void close() override { sync_->closeAndWait(); }

  ObservationToken observeExternalChanges(ExternalChangeHandler handler) override {
    return sync_->observe(std::move(handler));
  }

 private:
  const std::shared_ptr<detail::EtcdSync> sync_;
  detail::CloudRoom room_;
};

}  // namespace

std::shared_ptr<NSUbiquitousKeyValueStore> makeEtcdUbiquitousKeyValueStore(
    EtcdConfiguration configuration) {
  return std::make_shared<EtcdUbiquitousKeyValueStore>(std::move(configuration));
}

}  // namespace ombrix::platform
