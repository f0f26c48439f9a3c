#include "Tools/DevServer/Service/Faults.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>
#include <utility>

#include "Tools/DevServer/HTTP/Compression.hpp"

namespace ombrix::devserver {
namespace {

constexpr std::size_t kMostBodyBytes = std::size_t{64} * 1024 * 1024;
constexpr std::string_view kGarbage =
    "\x7f"
    "ELF\x02\x01\x01 not a word of HTTP\r\n\r\n\x80\xff";

/// The options of a fault, with their defaults.
class Wish {
 public:
  explicit Wish(const Fields& items) : items_(items) {}

  [[nodiscard]] std::size_t number(std::string_view name, std::size_t fallback) const {
    return static_cast<std::size_t>(
        std::min<std::uint64_t>(items_.number(name).value_or(fallback), kMostBodyBytes));
  }
  /// Digits in a pattern, so that a missing piece is visible.
  [[nodiscard]] std::string body() const {
    std::string text(number("bytes", 100), '\0');
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('0' + i % 10);
    return text;
  }
  [[nodiscard]] std::string sentBody() const { return body().substr(0, sent()); }
  [[nodiscard]] std::string unsentBody() const { return body().substr(sent()); }
  [[nodiscard]] End end(End fallback) const {
    const auto text = items_.value("end");
    if (text == "close") return End::close;
    if (text == "drop") return End::drop;
    return text == "reset" ? End::reset : fallback;
  }
  [[nodiscard]] std::chrono::milliseconds pause(std::string_view name, std::size_t fallback) const {
    return std::chrono::milliseconds(number(name, fallback));
  }
  [[nodiscard]] std::string gate(std::string_view fallback) const {
    const std::string* gate = items_.find("gate");
    return gate != nullptr ? *gate : std::string(fallback);
  }

  /// Sends the bytes, waits as the options say, and ends.
  [[nodiscard]] Script sendThenEnd(std::string bytes, End fallback) const {
    Script script;
    if (!bytes.empty()) script.emplace_back(Send{std::move(bytes)});
    if (const auto time = pause("ms", 0); time.count() > 0) script.emplace_back(Wait{time});
    if (!gate({}).empty()) script.emplace_back(Hold{gate({})});
    script.emplace_back(end(fallback));
    return script;
  }

 private:
  [[nodiscard]] std::size_t sent() const {
    const std::size_t size = number("bytes", 100);
    return std::min(number("sent", size / 2), size);
  }

  const Fields& items_;
};

std::string head(std::string_view fields) {
  return fmt::format("HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n{}\r\n", fields);
}
std::string sizedHead(std::size_t length) {
  return head(fmt::format("Content-Length: {}\r\n", length));
}
std::string chunkedHead() { return head("Transfer-Encoding: chunked\r\n"); }
std::string chunk(std::string_view bytes) {
  return fmt::format("{:x}\r\n{}\r\n", bytes.size(), bytes);
}
std::string wholeAnswer(const Wish& wish) { return sizedHead(wish.body().size()) + wish.body(); }

// Faults that end the connection.
Script closeBeforeAnswer(const Wish& wish) { return wish.sendThenEnd({}, End::drop); }
Script resetBeforeAnswer(const Wish& wish) { return wish.sendThenEnd({}, End::reset); }
Script closeInHead(const Wish& wish) {
  return wish.sendThenEnd("HTTP/1.1 200 OK\r\nContent-Ty", End::drop);
}
Script closeInBody(const Wish& wish) {
  return wish.sendThenEnd(sizedHead(wish.body().size()) + wish.sentBody(), End::close);
}
Script resetAfterHead(const Wish& wish) {
  return wish.sendThenEnd(sizedHead(wish.body().size()), End::reset);
}
Script resetInBody(const Wish& wish) {
  return wish.sendThenEnd(sizedHead(wish.body().size()) + wish.sentBody(), End::reset);
}
Script closeAfterAnswer(const Wish& wish) { return wish.sendThenEnd(wholeAnswer(wish), End::drop); }
Script withoutLength(const Wish& wish) {
  return wish.sendThenEnd(head("") + wish.sentBody(), End::close);
}
Script truncatedChunked(const Wish& wish) {
  return wish.sendThenEnd(chunkedHead() + chunk(wish.sentBody()), End::close);
}
Script truncatedChunk(const Wish& wish) {
  const std::string whole = chunk(wish.body());
  return wish.sendThenEnd(chunkedHead() + whole.substr(0, whole.size() / 2), End::close);
}

// Faults that are slow.
Script stallBeforeHead(const Wish& wish) {
  return {Hold{wish.gate("stall")}, Send{wholeAnswer(wish)}};
}
Script stallInBody(const Wish& wish) {
  return {Send{sizedHead(wish.body().size()) + wish.sentBody()}, Hold{wish.gate("stall")},
          Send{wish.unsentBody()}};
}
Script drip(const Wish& wish) {
  Script script{Send{sizedHead(wish.body().size())}};
  for (const char byte : wish.body()) {
    script.emplace_back(Wait{wish.pause("every", 10)});
    script.emplace_back(Send{std::string(1, byte)});
  }
  return script;
}
Script dripHead(const Wish& wish) {
  Script script;
  for (const char byte : wholeAnswer(wish)) {
    script.emplace_back(Send{std::string(1, byte)});
    script.emplace_back(Wait{wish.pause("every", 10)});
  }
  return script;
}

// Faults in the message.
Script truncatedGzip(const Wish& wish) {
  const std::string whole = compressed(wish.body(), Compression::gzip);
  const std::string part =
      whole.substr(0, whole.size() - std::min(whole.size(), wish.number("cut", 8)));
  return {Send{head(fmt::format("Content-Encoding: gzip\r\nContent-Length: {}\r\n", part.size())) +
               part}};
}
Script damagedGzip(const Wish& wish) {
  std::string whole = compressed(wish.body(), Compression::gzip);
  for (std::size_t i = 10; i < whole.size(); ++i) whole[i] = static_cast<char>(~whole[i]);
  return {Send{head(fmt::format("Content-Encoding: gzip\r\nContent-Length: {}\r\n", whole.size())) +
               whole}};
}
Script shortLength(const Wish& wish) {
  return {Send{sizedHead(wish.sentBody().size()) + wish.body()}};
}
Script twoLengths(const Wish& wish) {
  const auto size = wish.body().size();
  return {Send{head(fmt::format("Content-Length: {}\r\nContent-Length: {}\r\n", size, size)) +
               wish.body()}};
}
Script conflictingLengths(const Wish& wish) {
  const auto size = wish.body().size();
  return {Send{head(fmt::format("Content-Length: {}\r\nContent-Length: {}\r\n", size, size + 1)) +
               wish.body()}};
}
Script negativeLength(const Wish& wish) {
  return {Send{head("Content-Length: -1\r\n") + wish.body()}};
}
Script chunkOverflow(const Wish& wish) {
  return {Send{chunkedHead() + "FFFFFFFFFFFFFFFFF\r\n" + wish.body()}};
}
Script noChunkSize(const Wish& wish) {
  return {Send{chunkedHead() + "many\r\n" + wish.body() + "\r\n0\r\n\r\n"}};
}
Script garbage(const Wish& wish) { return wish.sendThenEnd(std::string(kGarbage), End::drop); }

// Faults that send too much, until the client aborts.
Script headerFlood(const Wish& wish) {
  return {Send{"HTTP/1.1 200 OK\r\n"},
          Repeat{"X-Flood: " + std::string(wish.number("bytes", 1000), 'x') + "\r\n",
                 wish.number("count", 0) > 0 ? wish.number("count", 0) : Repeat::kEndless}};
}
Script longHeader(const Wish& wish) {
  return {Send{"HTTP/1.1 200 OK\r\nX-Long: " + std::string(wish.number("bytes", 1 << 20), 'x') +
               "\r\nContent-Length: 0\r\n\r\n"}};
}
Script endlessHeader(const Wish&) {
  return {Send{"HTTP/1.1 200 OK\r\nX-Long: "}, Repeat{std::string(1000, 'x')}};
}
Script endlessBody(const Wish& wish) {
  return {Send{chunkedHead()},
          Repeat{chunk(wish.body()), Repeat::kEndless, wish.pause("every", 0)}};
}

// Faults during the handshake.
Script closeInHandshake(const Wish& wish) { return wish.sendThenEnd({}, End::drop); }
Script resetInHandshake(const Wish& wish) { return wish.sendThenEnd({}, End::reset); }
Script stallInHandshake(const Wish& wish) { return {Hold{wish.gate("handshake")}, End::drop}; }
Script plainInHandshake(const Wish& wish) { return wish.sendThenEnd(wholeAnswer(wish), End::drop); }

struct Fault {
  std::string_view name;
  Script (*script)(const Wish&);
};

constexpr Fault kAnswerFaults[] = {
    {"chunk-overflow", chunkOverflow},
    {"close-after-answer", closeAfterAnswer},
    {"close-before-answer", closeBeforeAnswer},
    {"close-in-body", closeInBody},
    {"close-in-head", closeInHead},
    {"conflicting-lengths", conflictingLengths},
    {"damaged-gzip", damagedGzip},
    {"drip", drip},
    {"drip-head", dripHead},
    {"endless-body", endlessBody},
    {"endless-header", endlessHeader},
    {"garbage", garbage},
    {"header-flood", headerFlood},
    {"long-header", longHeader},
    {"negative-length", negativeLength},
    {"no-chunk-size", noChunkSize},
    {"reset-after-head", resetAfterHead},
    {"reset-before-answer", resetBeforeAnswer},
    {"reset-in-body", resetInBody},
    {"short-length", shortLength},
    {"stall-before-head", stallBeforeHead},
    {"stall-in-body", stallInBody},
    {"truncated-chunk", truncatedChunk},
    {"truncated-chunked", truncatedChunked},
    {"truncated-gzip", truncatedGzip},
    {"two-lengths", twoLengths},
    {"without-length", withoutLength},
};
constexpr Fault kConnectionFaults[] = {
    {"close-in-handshake", closeInHandshake}, {"garbage-in-handshake", garbage},
    {"plain-in-handshake", plainInHandshake}, {"reset-in-handshake", resetInHandshake},
    {"stall-in-handshake", stallInHandshake},
};

template <class Table>
std::optional<Script> find(const Table& table, std::string_view name, const Fields& items) {
  const auto found = std::ranges::find(table, name, &Fault::name);
  if (found == std::end(table)) return std::nullopt;
  return found->script(Wish(items));
}

template <class Table>
std::vector<std::string_view> names(const Table& table) {
  std::vector<std::string_view> all;
  for (const Fault& fault : table) all.push_back(fault.name);
  return all;
}

}  // namespace

std::optional<Script> answerFault(std::string_view name, const Fields& items) {
  return find(kAnswerFaults, name, items);
}
std::optional<Script> connectionFault(std::string_view name, const Fields& items) {
  return find(kConnectionFaults, name, items);
}
std::vector<std::string_view> answerFaultNames() { return names(kAnswerFaults); }
std::vector<std::string_view> connectionFaultNames() { return names(kConnectionFaults); }

}  // namespace ombrix::devserver
