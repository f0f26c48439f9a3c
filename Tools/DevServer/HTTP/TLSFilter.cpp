#include "Tools/DevServer/HTTP/TLSFilter.hpp"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace ombrix::devserver {

TLSFilter::TLSFilter(ssl_ctx_st* context)
    : ssl_(SSL_new(context), SSL_free),
      input_(BIO_new(BIO_s_mem())),
      output_(BIO_new(BIO_s_mem())) {
  SSL_set_bio(ssl_.get(), input_, output_);
  SSL_set_accept_state(ssl_.get());
}

TLSFilter::~TLSFilter() = default;

TLSFilter::State TLSFilter::receive(std::string_view wire, std::string& plain) {
  ERR_clear_error();
  BIO_write(input_, wire.data(), static_cast<int>(wire.size()));
  std::array<char, std::size_t{16} * 1024> block;
  for (;;) {
    std::size_t count = 0;
    if (SSL_read_ex(ssl_.get(), block.data(), block.size(), &count) == 1) {
      plain.append(block.data(), count);
      continue;
    }
    switch (SSL_get_error(ssl_.get(), 0)) {
      case SSL_ERROR_WANT_READ:
        return State::open;
      case SSL_ERROR_ZERO_RETURN:
        return State::ended;
      default:
        return State::failed;
    }
  }
}

bool TLSFilter::send(std::string_view plain) {
  ERR_clear_error();
  std::size_t count = 0;
  return plain.empty() || SSL_write_ex(ssl_.get(), plain.data(), plain.size(), &count) == 1;
}

void TLSFilter::close() {
  ERR_clear_error();
  if (SSL_is_init_finished(ssl_.get()) != 0) SSL_shutdown(ssl_.get());
}

void TLSFilter::takeOutput(std::string& wire) {
  const std::size_t pending = BIO_ctrl_pending(output_);
  if (pending == 0) return;
  const std::size_t before = wire.size();
  wire.resize(before + pending);
  const int count = BIO_read(output_, wire.data() + before, static_cast<int>(pending));
  wire.resize(before + static_cast<std::size_t>(std::max(count, 0)));
}

}  // namespace ombrix::devserver
