#include "OmbrixC/Stores/OmbrixStores.h"

#include <optional>
#include <span>
#include <string>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixCore/Data/Stores/DataFileStore.hpp"
#include "OmbrixCore/Data/Stores/DataKeyedItemStore.hpp"

using namespace ombrix;

struct OmbrixFileStore {
  DataFileStore store;
  c::Handle handle = {};
};

struct OmbrixKeyedStore {
  DataKeyedItemStore store;
  c::Handle handle = {};
};

namespace {

std::string keyFrom(const char* key) { return std::string(c::textFrom(key)); }

std::optional<platform::Data> valueFrom(const uint8_t* bytes, size_t length) {
  if (bytes == nullptr) return std::nullopt;
  const auto view = std::as_bytes(std::span(bytes, length));
  return platform::Data(view.begin(), view.end());
}

}  // namespace

OmbrixFileStore* ombrix_FileStore_initWithUrl_error_(const char* url, OmbrixError** error) {
  return c::catching(error,
                     [&] { return new OmbrixFileStore{DataFileStore(c::fileURLFrom(url))}; });
}
void ombrix_FileStore_release(OmbrixFileStore* self) { delete self; }

OmbrixData ombrix_FileStore_value(const OmbrixFileStore* self) {
  return c::catching(nullptr, [&] { return c::copied(self->store.value()); });
}
void ombrix_FileStore_setValue_length_(OmbrixFileStore* self, const uint8_t* bytes, size_t length) {
  c::catching(nullptr, [&] {
    if (bytes == nullptr) return self->store.purge();
    self->store.setValue(valueFrom(bytes, length));
  });
}
bool ombrix_FileStore_exists(const OmbrixFileStore* self) {
  return c::catching(nullptr, [&] { return self->store.exists(); });
}
uint64_t ombrix_FileStore_size(const OmbrixFileStore* self) {
  return c::catching(nullptr, [&] { return self->store.size(); });
}
void ombrix_FileStore_purge(OmbrixFileStore* self) {
  c::catching(nullptr, [&] { self->store.purge(); });
}

OmbrixKeyedStore* ombrix_KeyedStore_initWithUrl_fileExtension_error_(const char* url,
                                                                     const char* fileExtension,
                                                                     OmbrixError** error) {
  return c::catching(error, [&] {
    std::string extension = fileExtension == nullptr ? "data" : fileExtension;
    return new OmbrixKeyedStore{DataKeyedItemStore(c::fileURLFrom(url), std::move(extension))};
  });
}
void ombrix_KeyedStore_release(OmbrixKeyedStore* self) { delete self; }

OmbrixData ombrix_KeyedStore_valueForKey_(const OmbrixKeyedStore* self, const char* key) {
  return c::catching(nullptr, [&] { return c::copied(self->store.value(keyFrom(key)).get()); });
}
void ombrix_KeyedStore_storeValue_length_forKey_(OmbrixKeyedStore* self, const uint8_t* bytes,
                                                 size_t length, const char* key) {
  c::catching(nullptr, [&] { self->store.store(valueFrom(bytes, length), keyFrom(key)).get(); });
}
bool ombrix_KeyedStore_existsForKey_(const OmbrixKeyedStore* self, const char* key) {
  return c::catching(nullptr, [&] { return self->store.exists(keyFrom(key)).get(); });
}
double ombrix_KeyedStore_ageForKey_(const OmbrixKeyedStore* self, const char* key) {
  constexpr double kNothing = -1;
  const auto age = c::catching(nullptr, [&] { return self->store.age(keyFrom(key)).get(); });
  return age.value_or(kNothing);
}
uint64_t ombrix_KeyedStore_size(const OmbrixKeyedStore* self) {
  return c::catching(nullptr, [&] { return self->store.size().get(); });
}
void ombrix_KeyedStore_visitKeys_context_(const OmbrixKeyedStore* self, OmbrixKeyVisitor visitor,
                                          void* context) {
  c::catching(nullptr, [&] {
    for (const std::string& key : self->store.keys().get()) visitor(key.c_str(), context);
  });
}
void ombrix_KeyedStore_purgeForKey_(OmbrixKeyedStore* self, const char* key) {
  c::catching(nullptr, [&] { self->store.purge(keyFrom(key)).get(); });
}
void ombrix_KeyedStore_purge(OmbrixKeyedStore* self) {
  c::catching(nullptr, [&] { self->store.purge().get(); });
}
