#pragma once

#include <cstdint>
#ifndef OMBRIX_WITHOUT_NETWORKMANAGER
#include <systemd/sd-bus.h>
#endif

namespace ombrix::platform::detail {

#ifdef OMBRIX_WITHOUT_NETWORKMANAGER

/// In a build without NetworkManager nobody calls the network metered.
class NetworkManagerMetered {
 public:
  void connect() noexcept {}
  void disconnect() noexcept {}
  [[nodiscard]] int descriptor() const noexcept { return -1; }
  [[nodiscard]] std::uint32_t events() const noexcept { return 0; }
  void process() noexcept {}
  [[nodiscard]] bool isMetered() const noexcept { return false; }
  [[nodiscard]] bool hasAnswer() const noexcept { return true; }
};

#else

/// Follows over the system bus whether NetworkManager calls the network metered. It never waits: a
/// bus that is silent, missing or without NetworkManager leaves the answer at false. One thread at
/// a time.
class NetworkManagerMetered {
 public:
  NetworkManagerMetered() = default;
  ~NetworkManagerMetered() { disconnect(); }
  NetworkManagerMetered(const NetworkManagerMetered&) = delete;
  NetworkManagerMetered& operator=(const NetworkManagerMetered&) = delete;

  /// Connects to the bus, if there is one, and asks.
  void connect();
  void disconnect();

  /// The descriptor to poll, and for which events; negative when there is no bus.
  [[nodiscard]] int descriptor() const;
  [[nodiscard]] std::uint32_t events() const;

  /// Reads the messages that have come and sends those that wait; disconnects when the bus is gone.
  void process();

  [[nodiscard]] bool isMetered() const noexcept { return isMetered_; }

  /// Whether the answer is final for now: it has come, or there is nobody to give one.
  [[nodiscard]] bool hasAnswer() const noexcept { return bus_ == nullptr || hasReply_; }

 private:
  int subscribe();
  int ask();
  int readChangedProperties(sd_bus_message* message);
  int readVariant(sd_bus_message* message);
  static int onReply(sd_bus_message* message, void* self, sd_bus_error*);
  static int onPropertiesChanged(sd_bus_message* message, void* self, sd_bus_error*);
  static int onOwnerChanged(sd_bus_message* message, void* self, sd_bus_error*);

  sd_bus* bus_ = nullptr;
  bool isMetered_ = false;
  bool hasReply_ = false;  // on this bus, be it an error
};

#endif

}  // namespace ombrix::platform::detail
