#include "Tools/DevServer/HTTP/Connection.hpp"

#include <asio/buffer.hpp>
#include <asio/post.hpp>
#include <utility>
#include <variant>

namespace ombrix::devserver {
namespace {

using asio::error_code;
using asio::ip::tcp;

// A client that sends more than this without reading its answers is made to wait.
constexpr std::size_t kMostUnreadBytes = std::size_t{256} * 1024;
// After this many repetitions without a pause, other connections get a turn.
constexpr std::uint64_t kTurnRepeats = 256;
constexpr std::size_t kTLSPieceBytes = std::size_t{64} * 1024;
// How long a connection closed on this side waits for the client to close its side.
constexpr std::chrono::seconds kLingerTime{5};
constexpr char kTLSHandshake = 0x16;  // the first byte of every TLS connection

}  // namespace

Connection::Connection(tcp::socket socket, ServerCore& core, std::uint64_t number)
    : socket_(std::move(socket)),
      core_(core),
      number_(number),
      parser_(core.options.mostBodyBytes),
      timer_(core.context) {
  if (core.identity.context) tls_.emplace(core.identity.context.get());
}

void Connection::start() {
  error_code ignored;
  static_cast<void>(socket_.non_blocking(true, ignored));
  static_cast<void>(socket_.set_option(tcp::no_delay(true), ignored));
  core_.journal.connectionOpened();
  read();
}

void Connection::end(End how) {
  if (isOver_) return;
  script_.clear();
  out_.clear();
  outSent_ = 0;
  if (how == End::close && tls_) {
    tls_->close();
    flush();
  }
  if (how == End::reset) {
    error_code ignored;
    static_cast<void>(socket_.set_option(asio::socket_base::linger(true, 0), ignored));
  }
  abandon();
}

// Does all that is possible now; called after each event.
void Connection::proceed() {
  while (!isOver_) {
    const Flush flushed = flush();
    if (flushed == Flush::failed) return abandon();
    if (flushed == Flush::waiting || isPaused_) break;
    if (isDraining_) {
      if (hasInputEnded_) return abandon();
      break;
    }
    if (isAnswering_) {
      if (!followStep()) finishAnswer();
    } else if (!beginNextRequest()) {
      if (hasInputEnded_) return abandon();
      break;
    }
  }
  if (!isOver_) read();
}

// False when no complete request has arrived yet.
bool Connection::beginNextRequest() {
  std::string_view unread = std::string_view(in_).substr(inRead_);
  if (unread.empty() && !parser_.isInside()) return false;
  const auto state = parser_.parse(unread);
  inRead_ = in_.size() - unread.size();
  if (unread.empty() || inRead_ > kMostUnreadBytes) {
    in_.erase(0, inRead_);
    inRead_ = 0;
  }
  switch (state) {
    case RequestParser::State::incomplete:
      return false;
    case RequestParser::State::wantsContinue:
      out_ = "HTTP/1.1 100 Continue\r\n\r\n";
      break;
    case RequestParser::State::failed:
      refuse(parser_.failure().status, parser_.failure().message);
      break;
    case RequestParser::State::complete:
      beginAnswer(parser_.take());
      break;
  }
  return true;
}

void Connection::beginAnswer(Request received) {
  const auto request = std::make_shared<Request>(std::move(received));
  request->connection = number_;
  core_.journal.requestBegan(request);
  isAnswering_ = isCounted_ = true;
  Response response = core_.answer(*request);
  if (!response.script.empty()) {
    script_ = std::move(response.script);
    isLastAnswer_ = !request->isKeptAlive;
    return;
  }
  isLastAnswer_ =
      !request->isKeptAlive || equalsIgnoringCase(response.headers.value("Connection"), "close");
  if (!request->isKeptAlive) response.headers.set("Connection", "close");
  response.appendTo(out_, request->method == "HEAD");
}

void Connection::refuse(int status, std::string_view message) {
  Response response = Response::message(status, message);
  response.headers.add("Connection", "close");
  response.appendTo(out_);
  isAnswering_ = true;
  isLastAnswer_ = true;
}

void Connection::finishAnswer() {
  isAnswering_ = false;
  script_.clear();
  step_ = 0;
  if (std::exchange(isCounted_, false)) core_.journal.requestEnded();
  if (isLastAnswer_) beginEnd(End::close);
}

// Performs one step of the script; false when none is left.
bool Connection::followStep() {
  if (step_ >= script_.size()) return false;
  const Step& step = script_[step_];
  if (const auto* repeat = std::get_if<Repeat>(&step)) {
    if (repeated_ == repeat->count) {
      repeated_ = 0;
      ++step_;
      return true;
    }
    ++repeated_;
    out_ = repeat->bytes;
    if (repeat->pause.count() > 0) {
      if (flush() != Flush::failed) pauseFor(repeat->pause);
    } else if (repeated_ % kTurnRepeats == 0) {
      giveWay();
    }
    return true;
  }
  ++step_;
  if (const auto* send = std::get_if<Send>(&step)) {
    out_ = send->bytes;
  } else if (const auto* wait = std::get_if<Wait>(&step)) {
    pauseFor(wait->time);
  } else if (const auto* hold = std::get_if<Hold>(&step)) {
    holdAt(hold->gate);
  } else if (const auto* how = std::get_if<End>(&step)) {
    beginEnd(*how);
  }
  return true;
}

void Connection::pauseFor(std::chrono::milliseconds time) {
  isPaused_ = true;
  timer_.expires_after(time);
  timer_.async_wait([self = shared_from_this()](const error_code& error) {
    if (!error) self->resume();
  });
}

// Gives the other connections a turn.
void Connection::giveWay() {
  isPaused_ = true;
  asio::post(core_.context, [self = shared_from_this()] { self->resume(); });
}

void Connection::holdAt(const std::string& gate) {
  isPaused_ = isHeld_ = true;
  core_.journal.holdBegan();
  const bool passes =
      core_.gates.enter(gate, number_, [&context = core_.context, weak = weak_from_this()] {
        asio::post(context, [weak] {
          if (const auto self = weak.lock()) self->resume();
        });
      });
  if (!passes) return;
  isPaused_ = isHeld_ = false;
  core_.journal.holdEnded();
}

void Connection::resume() {
  if (isOver_ || !isPaused_) return;
  isPaused_ = false;
  if (std::exchange(isHeld_, false)) core_.journal.holdEnded();
  proceed();
}

void Connection::read() {
  if (isReading_ || hasInputEnded_ || in_.size() - inRead_ > kMostUnreadBytes) return;
  isReading_ = true;
  socket_.async_read_some(asio::buffer(block_),
                          [self = shared_from_this()](const error_code& error, std::size_t count) {
                            self->isReading_ = false;
                            if (self->isOver_) return;
                            if (error) return self->inputEnded();
                            self->received(count);
                          });
}

void Connection::received(std::size_t count) {
  if (std::exchange(isFirstRead_, false)) {
    auto script = core_.takeConnectionScript();
    if (script) {
      tls_.reset();
      script_ = std::move(*script);
      isAnswering_ = isLastAnswer_ = true;
    } else if (tls_ && block_[0] != kTLSHandshake) {
      tls_.reset();
      refuse(400, "This port speaks TLS.");
      return proceed();
    }
  }
  if (isDraining_) return read();
  const std::string_view bytes(block_.data(), count);
  if (!tls_) {
    in_ += bytes;
    return proceed();
  }
  switch (tls_->receive(bytes, in_)) {
    case TLSFilter::State::open:
      return proceed();
    case TLSFilter::State::ended:
      return inputEnded();
    case TLSFilter::State::failed:
      flush();
      return abandon();
  }
}

// The client has closed its side. Its requests are still answered, unless an answer has to wait:
// the client may be gone by then.
void Connection::inputEnded() {
  hasInputEnded_ = true;
  if (isPaused_) return abandon();
  proceed();
}

Connection::Flush Connection::flush() {
  if (isWriting_) return Flush::waiting;
  while (refillWire()) {
    error_code error;
    const auto unsent = asio::buffer(wire_.data() + wireSent_, wire_.size() - wireSent_);
    wireSent_ += socket_.write_some(unsent, error);
    if (error == asio::error::would_block) {
      isWriting_ = true;
      socket_.async_wait(tcp::socket::wait_write, [self = shared_from_this()](const error_code& e) {
        self->isWriting_ = false;
        if (self->isOver_) return;
        if (e) return self->abandon();
        self->proceed();
      });
      return Flush::waiting;
    }
    if (error) return Flush::failed;
  }
  return Flush::done;
}

// False when nothing is left to send.
bool Connection::refillWire() {
  if (wireSent_ < wire_.size()) return true;
  wire_.clear();
  wireSent_ = 0;
  if (!tls_) {
    wire_.swap(out_);
    return !wire_.empty();
  }
  tls_->takeOutput(wire_);
  if (wire_.empty() && outSent_ < out_.size()) {
    const auto piece = std::string_view(out_).substr(outSent_, kTLSPieceBytes);
    outSent_ += piece.size();
    if (tls_->send(piece)) tls_->takeOutput(wire_);
  }
  if (outSent_ == out_.size()) {
    out_.clear();
    outSent_ = 0;
  }
  return !wire_.empty();
}

// Ends this side of the connection in the requested way. The socket is closed once the client has
// closed its side: bytes that it still sends would reset what it has not read yet.
void Connection::beginEnd(End how) {
  if (how == End::reset) return end(how);
  if (how == End::close && tls_) {
    tls_->close();
    if (flush() == Flush::failed) return abandon();
  }
  if (std::exchange(isCounted_, false)) core_.journal.requestEnded();
  isAnswering_ = false;
  isDraining_ = true;
  in_.clear();
  inRead_ = 0;
  error_code ignored;
  static_cast<void>(socket_.shutdown(tcp::socket::shutdown_send, ignored));
  timer_.expires_after(kLingerTime);
  timer_.async_wait([self = shared_from_this()](const error_code& error) {
    if (!error) self->abandon();
  });
}

void Connection::abandon() {
  if (std::exchange(isOver_, true)) return;
  const auto self = shared_from_this();
  error_code ignored;
  timer_.cancel(ignored);
  static_cast<void>(socket_.close(ignored));
  core_.gates.leave(number_);
  if (std::exchange(isHeld_, false)) core_.journal.holdEnded();
  if (std::exchange(isCounted_, false)) core_.journal.requestEnded();
  core_.journal.connectionClosed();
  core_.connections.erase(self);
}

}  // namespace ombrix::devserver
