#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

namespace ombrix::devserver {

/// Parses HTTP/1.1 requests from bytes as they arrive. Not synchronised.
class RequestParser {
 public:
  enum class State {
    incomplete,     ///< Needs more bytes.
    wantsContinue,  ///< The head is read and the client waits for "100 Continue"; go on after it.
    complete,       ///< `take` returns the request.
    failed,         ///< Not a request; answer with `failure` and close.
  };
  struct Failure {
    int status = 0;
    std::string_view message;
  };

  /// @param mostBodyBytes Longer bodies fail with status 413.
  explicit RequestParser(std::size_t mostBodyBytes) : mostBodyBytes_(mostBodyBytes) {}

  /// Parses from the front of `bytes` and removes what it parsed.
  State parse(std::string_view& bytes);

  /// Returns the complete request and starts over.
  Request take();

  [[nodiscard]] const Failure& failure() const noexcept { return failure_; }
  /// Whether part of a request has been read.
  [[nodiscard]] bool isInside() const noexcept { return phase_ != Phase::head; }

 private:
  enum class Phase { head, sizedBody, chunkSize, chunk, chunkEnd, trailers, complete, failed };

  State parseHead(std::string_view& bytes);
  bool parseRequestLine(std::string_view line);
  bool parseField(std::string_view line);
  bool chooseFraming();
  State parseBody(std::string_view& bytes);
  bool advance(std::string_view& bytes);
  void beginChunk(std::string_view line);
  std::optional<std::string_view> readLine(std::string_view& bytes);
  void takeBody(std::string_view& bytes);
  bool fail(int status, std::string_view message);

  std::size_t mostBodyBytes_;
  Phase phase_ = Phase::head;
  std::size_t scanned_ = 0;  // bytes of the unread head that were searched for its end
  std::uint64_t remaining_ = 0;
  Request request_;
  Failure failure_;
};

}  // namespace ombrix::devserver
