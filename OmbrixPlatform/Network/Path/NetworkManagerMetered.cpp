#include "OmbrixPlatform/Network/Path/Detail/NetworkManagerMetered.hpp"

#ifndef OMBRIX_WITHOUT_NETWORKMANAGER

#include <algorithm>
#include <string_view>

namespace ombrix::platform::detail {
namespace {

constexpr const char* kService = "org.freedesktop.NetworkManager";
constexpr const char* kPath = "/org/freedesktop/NetworkManager";
constexpr const char* kInterface = "org.freedesktop.NetworkManager";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

// NMMetered: 0 unknown, 1 yes, 2 no, 3 guessed yes, 4 guessed no.
constexpr bool meansMetered(std::uint32_t value) noexcept { return value == 1 || value == 3; }

}  // namespace

void NetworkManagerMetered::connect() {
  if (bus_ != nullptr) return;
  // Opening a local bus only connects the socket; greetings are exchanged by `process`.
  if (sd_bus_open_system(&bus_) < 0) {
    bus_ = nullptr;
    return;
  }
  if (subscribe() < 0 || ask() < 0) {
    disconnect();
    return;
  }
  process();
}

void NetworkManagerMetered::disconnect() {
  isMetered_ = false;
  hasReply_ = false;
  // Nothing is flushed here: that would wait for a bus that does not read.
  if (bus_ != nullptr) sd_bus_close_unref(bus_);
  bus_ = nullptr;
}

int NetworkManagerMetered::descriptor() const { return bus_ == nullptr ? -1 : sd_bus_get_fd(bus_); }

std::uint32_t NetworkManagerMetered::events() const {
  return bus_ == nullptr ? 0 : static_cast<std::uint32_t>(std::max(sd_bus_get_events(bus_), 0));
}

void NetworkManagerMetered::process() {
  int result = 0;
  while (bus_ != nullptr && (result = sd_bus_process(bus_, nullptr)) > 0) {
  }
  if (result < 0) disconnect();
}

int NetworkManagerMetered::subscribe() {
  const int changes =
      sd_bus_match_signal_async(bus_, nullptr, kService, kPath, kProperties, "PropertiesChanged",
                                &onPropertiesChanged, nullptr, this);
  if (changes < 0) return changes;
  return sd_bus_add_match_async(bus_, nullptr,
                                "type='signal',sender='org.freedesktop.DBus',"
                                "path='/org/freedesktop/DBus',interface='org.freedesktop.DBus',"
                                "member='NameOwnerChanged',arg0='org.freedesktop.NetworkManager'",
                                &onOwnerChanged, nullptr, this);
}

int NetworkManagerMetered::ask() {
  sd_bus_message* call = nullptr;
  int result = sd_bus_message_new_method_call(bus_, &call, kService, kPath, kProperties, "Get");
  if (result >= 0) result = sd_bus_message_append(call, "ss", kInterface, "Metered");
  // This question is no reason to start NetworkManager.
  if (result >= 0) result = sd_bus_message_set_auto_start(call, 0);
  if (result >= 0) result = sd_bus_call_async(bus_, nullptr, call, &onReply, this, UINT64_MAX);
  sd_bus_message_unref(call);
  return result;
}

int NetworkManagerMetered::readVariant(sd_bus_message* message) {
  std::uint32_t value = 0;
  const int result = sd_bus_message_read(message, "v", "u", &value);
  if (result >= 0) isMetered_ = meansMetered(value);
  return result;
}

int NetworkManagerMetered::readChangedProperties(sd_bus_message* message) {
  const char* interface = nullptr;
  int result = sd_bus_message_read(message, "s", &interface);
  if (result < 0 || std::string_view(interface) != kInterface) return result;
  result = sd_bus_message_enter_container(message, 'a', "{sv}");
  while (result >= 0 && (result = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
    const char* name = nullptr;
    result = sd_bus_message_read(message, "s", &name);
    if (result < 0) return result;
    const bool isMetered = std::string_view(name) == "Metered";
    result = isMetered ? readVariant(message) : sd_bus_message_skip(message, "v");
    if (result >= 0) result = sd_bus_message_exit_container(message);
  }
  return result;
}

// The handlers answer 0: a message that is not understood must not end the connection.

int NetworkManagerMetered::onReply(sd_bus_message* message, void* self, sd_bus_error*) {
  auto* metered = static_cast<NetworkManagerMetered*>(self);
  metered->hasReply_ = true;
  if (sd_bus_message_is_method_error(message, nullptr) == 0) (void)metered->readVariant(message);
  return 0;
}

int NetworkManagerMetered::onPropertiesChanged(sd_bus_message* message, void* self, sd_bus_error*) {
  (void)static_cast<NetworkManagerMetered*>(self)->readChangedProperties(message);
  return 0;
}

int NetworkManagerMetered::onOwnerChanged(sd_bus_message*, void* self, sd_bus_error*) {
  auto* metered = static_cast<NetworkManagerMetered*>(self);
  metered->isMetered_ = false;  // a service that has gone says nothing any more
  (void)metered->ask();
  return 0;
}

}  // namespace ombrix::platform::detail

#endif
