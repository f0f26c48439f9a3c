#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

std::shared_ptr<NSUbiquitousKeyValueStore> makeEtcdUbiquitousKeyValueStore(EtcdConfiguration) {
  throw Error("this build has no cloud store on etcd (OMBRIX_WITH_ETCD)");
}

}  // namespace ombrix::platform
