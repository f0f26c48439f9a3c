#pragma once

#include <array>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Tools/DevServer/HTTP/RequestParser.hpp"
#include "Tools/DevServer/HTTP/TLSFilter.hpp"
#include "Tools/DevServer/Service/ServerCore.hpp"

namespace ombrix::devserver {

/// One client's connection: reads requests, writes answers one after the other, follows scripts.
/// The server's thread only; kept alive by the core's set and by its pending handlers.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(asio::ip::tcp::socket socket, ServerCore& core, std::uint64_t number);

  void start();
  /// Ends it from outside.
  void end(End how);

 private:
  enum class Flush { done, waiting, failed };

  // What to do next.
  void proceed();
  bool beginNextRequest();
  void beginAnswer(Request request);
  void refuse(int status, std::string_view message);
  void finishAnswer();
  bool followStep();
  void pauseFor(std::chrono::milliseconds time);
  void giveWay();
  void holdAt(const std::string& gate);
  void resume();

  // The wire.
  void read();
  void received(std::size_t count);
  void inputEnded();
  Flush flush();
  bool refillWire();
  void beginEnd(End how);
  void abandon();

  asio::ip::tcp::socket socket_;
  ServerCore& core_;
  const std::uint64_t number_;
  std::optional<TLSFilter> tls_;
  RequestParser parser_;
  asio::steady_timer timer_;

  std::array<char, std::size_t{16} * 1024> block_;
  std::string in_;  // plain bytes received and not parsed yet
  std::size_t inRead_ = 0;
  std::string out_;  // plain bytes to send
  std::size_t outSent_ = 0;
  std::string wire_;  // bytes for the socket
  std::size_t wireSent_ = 0;

  Script script_;
  std::size_t step_ = 0;
  std::uint64_t repeated_ = 0;
  bool isFirstRead_ = true;
  bool isReading_ = false;
  bool isWriting_ = false;
  bool isPaused_ = false;
  bool isHeld_ = false;
  bool isAnswering_ = false;
  bool isCounted_ = false;  // the journal counts the request being answered
  bool isLastAnswer_ = false;
  bool isDraining_ = false;  // all is sent; waits for the client to close
  bool hasInputEnded_ = false;
  bool isOver_ = false;
};

}  // namespace ombrix::devserver
