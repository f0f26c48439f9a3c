#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <vector>

#include "OmbrixTesting/TestServer.hpp"
#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

namespace ombrix::devserver {

/// What curl made of an answer; its body is decoded.
struct Answer {
  CURLcode error = CURLE_OK;
  long status = 0;
  Fields headers;
  std::string body;
};

/// An easy curl handle that keeps its connection; trusts the server's certificate.
class CurlClient {
 public:
  explicit CurlClient(const DevServer& server) : server_(server), handle_(curl_easy_init()) {
    const std::string port = std::to_string(server.port());
    hosts_.reset(curl_slist_append(nullptr, ("api.ombrix.test:" + port + ":127.0.0.1").c_str()));
  }

  Answer send(const std::string& method, const std::string& path, const std::string& body = {},
              const std::vector<std::string>& headers = {}) {
    Answer answer;
    CURL* curl = handle_.get();
    curl_easy_reset(curl);
    const std::string& trusted = server_.authorityPEM();
    curl_blob blob{const_cast<char*>(trusted.data()), trusted.size(), CURL_BLOB_COPY};
    if (!trusted.empty()) curl_easy_setopt(curl, CURLOPT_CAINFO_BLOB, &blob);
    curl_easy_setopt(curl, CURLOPT_RESOLVE, hosts_.get());
    curl_easy_setopt(curl, CURLOPT_URL, server_.url(path).c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    if (method == "HEAD") curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    if (!body.empty()) {
      curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
      curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    }
    curl_slist* list = nullptr;
    for (const auto& header : headers) list = curl_slist_append(list, header.c_str());
    if (!token.empty()) list = curl_slist_append(list, ("Authorization: Bearer " + token).c_str());
    const List kept(list);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, kept.get());
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, takeHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &answer);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
    answer.error = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
  }
  Answer get(const std::string& path, const std::vector<std::string>& headers = {}) {
    return send("GET", path, {}, headers);
  }

  std::string token;  ///< Sent with each request unless empty.

 private:
  struct Deleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  using List = std::unique_ptr<curl_slist, Deleter>;

  static std::size_t takeHeader(const char* bytes, std::size_t, std::size_t count, void* answer) {
    std::string_view line(bytes, count);
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
      line.remove_suffix(2);
      static_cast<Answer*>(answer)->headers.add(std::string(line.substr(0, colon)),
                                                std::string(trimmed(line.substr(colon + 1))));
    }
    return count;
  }
  static std::size_t takeBody(const char* bytes, std::size_t, std::size_t count, void* answer) {
    static_cast<Answer*>(answer)->body.append(bytes, count);
    return count;
  }

  const DevServer& server_;
  std::unique_ptr<CURL, Deleter> handle_;
  List hosts_;
};

}  // namespace ombrix::devserver
