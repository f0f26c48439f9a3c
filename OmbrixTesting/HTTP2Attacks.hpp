#pragma once

#include <string>
#include <vector>

#include "OmbrixTesting/RawHTTP2Server.hpp"

namespace ombrix::testing {

/// An HTTP/2 answer that breaks off, violates the rules or never ends; a few are just unusual.
struct HTTP2Attack {
  using Reply = RawHTTP2Server::Reply;

  const char* name;
  Reply (*reply)(std::uint32_t stream);
  bool isWhole = false;  ///< "200 abc"; else an error
};

inline std::string many(int count, const std::string& bytes) {
  std::string all;
  for (int i = 0; i < count; ++i) all += bytes;
  return all;
}

inline const std::vector<HTTP2Attack>& http2Attacks() {
  using S = RawHTTP2Server;
  using F = RawHTTP2Server::Frame;
  using Reply = RawHTTP2Server::Reply;
  static const std::string ok = "\x88";  // ":status: 200", indexed
  static const auto whole = [](std::uint32_t stream) {
    return S::headers(stream, ok) + S::data(stream, "abc", S::kEndStream);
  };
  static const auto lengthOf = [](const char* length) {
    return ok + S::field("content-length", length);
  };
  static const auto ping = S::frame(F::ping, 0, 0, "12345678");
  // clang-format off: a table
  static const std::vector<HTTP2Attack> attacks{
      {"whole",               [](auto s) { return Reply{whole(s)}; }, true},
      {"in pieces",           [](auto s) { return Reply{S::headers(s, ok) + many(3, S::data(s, "")) + S::data(s, "a") + S::data(s, "bc") + S::data(s, "", S::kEndStream)}; }, true},
      {"trailers",            [](auto s) { return Reply{S::headers(s, ok) + S::data(s, "abc") + S::headers(s, S::field("x", "y"), S::kEndStream)}; }, true},
      {"early hints",         [](auto s) { return Reply{many(50, S::headers(s, S::field(":status", "103"))) + whole(s)}; }, true},
      {"reset after the end", [](auto s) { return Reply{whole(s) + S::reset(s, 0)}; }, true},
      {"going away politely", [](auto s) { return Reply{S::goAway(s, 0) + whole(s)}; }, true},
      {"HTTP/1.1 wanted",     [](auto s) { return Reply{S::reset(s, 13)}; }, true},
      {"pings with it",       [](auto s) { return Reply{many(100, ping) + whole(s)}; }, true},

      {"reset at once",       [](auto s) { return Reply{S::reset(s, 2)}; }},
      {"refused",             [](auto s) { return Reply{S::reset(s, 7)}; }},
      {"reset in the body",   [](auto s) { return Reply{S::headers(s, ok) + S::data(s, "ab") + S::reset(s, 2)}; }},
      {"reset, no error",     [](auto s) { return Reply{S::headers(s, lengthOf("3")) + S::data(s, "ab") + S::reset(s, 0)}; }},
      {"too short a body",    [](auto s) { return Reply{S::headers(s, lengthOf("9")) + S::data(s, "abc", S::kEndStream)}; }},
      {"too long a body",     [](auto s) { return Reply{S::headers(s, lengthOf("2")) + S::data(s, "abc", S::kEndStream)}; }},
      {"two lengths",         [](auto s) { return Reply{S::headers(s, lengthOf("3") + S::field("content-length", "4")) + S::data(s, "abc", S::kEndStream)}; }},
      {"gone before",         [](auto) { return Reply{S::goAway(0, 0), true}; }},
      {"gone in the body",    [](auto s) { return Reply{S::headers(s, ok) + S::data(s, "ab") + S::goAway(s, 0), true}; }},
      {"gone with an error",  [](auto s) { return Reply{S::goAway(s, 11), true}; }},
      {"cut in a frame",      [](auto s) { return Reply{whole(s).substr(0, 14), true}; }},
      {"no frame at all",     [](auto)   { return Reply{"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc"}; }},
      {"too long a frame",    [](auto s) { return Reply{S::headers(s, lengthOf("20000")) + S::data(s, std::string(20'000, 'x'), S::kEndStream)}; }},
      {"no header",           [](auto s) { return Reply{S::data(s, "abc", S::kEndStream)}; }},
      {"no status",           [](auto s) { return Reply{S::headers(s, S::field("x", "y")) + S::data(s, "abc", S::kEndStream)}; }},
      {"capitals in a name",  [](auto s) { return Reply{S::headers(s, ok + S::field("X-Big", "y")) + S::data(s, "abc", S::kEndStream)}; }},
      {"broken header block", [](auto s) { return Reply{S::headers(s, "\xFF\xFF\xFF\xFF\xFF\xFF") + S::data(s, "abc", S::kEndStream)}; }},
      {"pushed",              [](auto s) { return Reply{S::frame(F::pushPromise, S::kEndHeaders, s, S::number(2) + ok) + whole(s)}; }},
      {"window overflows",    [](auto s) { return Reply{S::frame(F::windowUpdate, 0, 0, S::number(0x7FFFFFFF)) + S::frame(F::windowUpdate, 0, 0, S::number(0x7FFFFFFF)) + whole(s)}; }},
      {"endless header",      [](auto s) { return Reply{S::frame(F::headers, 0, s, ok) + many(500, S::frame(F::continuation, 0, s, many(90, S::field("x", std::string(100, 'y')))))}; }},
      {"many fields",         [](auto s) { return Reply{S::headers(s, ok + many(3'000, S::field("x", ""))) + S::data(s, "abc", S::kEndStream)}; }},
      {"ends in a flood",     [](auto s) { return Reply{many(3'000, ping) + many(2'000, S::frame(F::settings, 0, 0, "")) + many(1'000, S::headers(s, S::field(":status", "103"))) + S::reset(s, 2)}; }},
  };
  // clang-format on
  return attacks;
}

}  // namespace ombrix::testing
