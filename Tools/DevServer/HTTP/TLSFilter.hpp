#pragma once

#include <memory>
#include <string>
#include <string_view>

struct bio_st;
struct ssl_ctx_st;
struct ssl_st;

namespace ombrix::devserver {

/// The server's side of one TLS connection, as a filter between bytes on the wire and plain bytes:
/// it owns no socket, so that its user decides which bytes are sent. Not synchronised.
class TLSFilter {
 public:
  enum class State { open, ended, failed };

  /// @param context Must outlive the filter.
  explicit TLSFilter(ssl_ctx_st* context);
  ~TLSFilter();
  TLSFilter(const TLSFilter&) = delete;
  TLSFilter& operator=(const TLSFilter&) = delete;

  /// Takes bytes from the wire and appends the plain bytes; `ended` after the closing message.
  State receive(std::string_view wire, std::string& plain);

  /// Takes plain bytes to send; call it only after plain bytes were received. False on failure.
  bool send(std::string_view plain);

  /// Writes the closing message.
  void close();

  /// Appends the bytes to send over the wire now.
  void takeOutput(std::string& wire);

 private:
  std::unique_ptr<ssl_st, void (*)(ssl_st*)> ssl_;
  bio_st* input_;   // owned by ssl_
  bio_st* output_;  // owned by ssl_
};

}  // namespace ombrix::devserver
