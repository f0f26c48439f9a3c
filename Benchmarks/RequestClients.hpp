#pragma once

// Who makes the requests that the benchmarks time: a session, the whole client in both forms, and
// libcurl's multi interface with nothing around it.

#include <curl/curl.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Benchmarks/RequestBursts.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedServerAPI.hpp"

namespace bursts {

inline constexpr std::size_t kWidth = 6;

class Session {
 public:
  explicit Session(const Target& target) : session_(make(target)), request_(requestTo(target)) {}

  void submit(Burst& burst) {
    session_
        ->dataTask(request_,
                   [&burst](auto data, const auto& response, const auto& /*error*/) {
                     burst.answered(response && data && data->size() == kBodyBytes);
                   })
        ->resume();
  }

 private:
  class Trusting final : public ombrix::platform::URLSessionDelegate {
    bool judgesServers(const std::string&) const override { return true; }
    void didReceiveChallenge(ombrix::platform::URLSession&,
                             const ombrix::platform::URLAuthenticationChallenge& challenge,
                             ChallengeHandler completionHandler) override {
      completionHandler(AuthChallengeDisposition::useCredential,
                        ombrix::platform::URLCredential{*challenge.protectionSpace.serverTrust});
    }
  };

  static std::shared_ptr<ombrix::platform::URLSession> make(const Target& target) {
    auto configuration = ombrix::platform::URLSessionConfiguration::ephemeral();
    if (!target.isSecure) return ombrix::platform::URLSession::make(configuration);
    configuration.loopbackHosts = {*ombrix::platform::URL::parse(target.url)->host()};
    return ombrix::platform::URLSession::make(configuration, std::make_shared<Trusting>());
  }
  static ombrix::platform::URLRequest requestTo(const Target& target) {
    return ombrix::platform::URLRequest(ombrix::platform::URL::parse(target.url + "n").value());
  }

  const std::shared_ptr<ombrix::platform::URLSession> session_;
  const ombrix::platform::URLRequest request_;
};

/// The whole client, on a target of its own.
class Client {
 protected:
  explicit Client(const Target& target) : api_(configurationFor(target)) {
    if (target.isSecure) ombrix::OmbrixServerAPI::change(ombrix::APIEndpoint::development);
  }
  [[nodiscard]] ombrix::OmbrixServerAPI& client() const { return api_.client(); }

 private:
  static ombrix::ServerConfiguration configurationFor(const Target& target) {
    auto servers = ombrix::ServerConfiguration::defaults();
    (target.isSecure ? servers.development : servers.production) =
        *ombrix::platform::URL::parse(target.url);
    return servers;
  }

  ombrix::testing::ScopedDirectories directories_;
  ombrix::testing::ScopedServerAPI api_;
};

/// Each request as a publisher with a completion.
class Publishers : Client {
 public:
  explicit Publishers(const Target& target) : Client(target) {}

  void submit(Burst& burst) {
    client().completionWrapper<ombrix::HTTPAnswer>(
        client().publisher("n"), [&burst](const auto& result) {
          burst.answered(result && result->data.size() == kBodyBytes);
        });
  }
};

/// Each request as an operation with a callback.
class Operations : Client {
 public:
  explicit Operations(const Target& target)
      : Client(target), url_(*ombrix::platform::URL::parse(target.url + "n")) {}

  void submit(Burst& burst) {
    client().addOperation(std::make_shared<ombrix::OmbrixAPIHttpRequestOperation>(
        url_, ombrix::HttpRequestOperation::HTTPMethod::GET, ombrix::platform::HTTPHeaders(),
        [&burst](bool success, int, const auto*, const auto* data) {
          burst.answered(success && data && data->size() == kBodyBytes);
        },
        client().session()));
  }

 private:
  const ombrix::platform::URL url_;
};

/// A thread around a multi handle and a queue in front of it.
class CurlMulti {
 public:
  explicit CurlMulti(const Target& target)
      : target_(target), url_(target.url + "n"), multi_(::curl_multi_init()) {
    ::curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, static_cast<long>(kWidth));
    thread_ = std::thread([this] { run(); });
  }
  ~CurlMulti() {
    isStopping_ = true;
    ::curl_multi_wakeup(multi_);
    thread_.join();
    ::curl_multi_cleanup(multi_);
    ::curl_slist_free_all(loopback_);
  }
  CurlMulti(const CurlMulti&) = delete;
  CurlMulti& operator=(const CurlMulti&) = delete;

  void submit(Burst& burst) {
    bool mustWake = false;
    {
      const std::lock_guard lock(mutex_);
      mustWake = submitted_.empty();
      submitted_.push_back(&burst);
    }
    if (mustWake) ::curl_multi_wakeup(multi_);
  }

 private:
  struct Transfer {
    Burst* burst;
    std::string body;
  };

  static std::size_t take(const char* bytes, std::size_t size, std::size_t count, void* body) {
    static_cast<Transfer*>(body)->body.append(bytes, size * count);
    return size * count;
  }

  void run() {
    std::vector<Burst*> waiting;
    std::size_t next = 0;
    while (!isStopping_) {
      {
        const std::lock_guard lock(mutex_);
        waiting.insert(waiting.end(), submitted_.begin(), submitted_.end());
        submitted_.clear();
      }
      while (active_ < kWidth && next < waiting.size()) start(*waiting[next++]);
      if (next == waiting.size()) {
        waiting.clear();
        next = 0;
      }
      int running = 0;
      ::curl_multi_perform(multi_, &running);
      if (!finish()) ::curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
  }

  void start(Burst& burst) {
    CURL* easy = ::curl_easy_init();
    auto* transfer = new Transfer{&burst, {}};
    ::curl_easy_setopt(easy, CURLOPT_URL, url_.c_str());
    ::curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    ::curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &take);
    ::curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer);
    ::curl_easy_setopt(easy, CURLOPT_PRIVATE, transfer);
    if (target_.isSecure) {
      ::curl_easy_setopt(easy, CURLOPT_CONNECT_TO, loopback_);
      ::curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
      ::curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
      ::curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
      ::curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
    }
    ::curl_multi_add_handle(multi_, easy);
    ++active_;
  }

  bool finish() {
    bool hasFinished = false;
    int left = 0;
    while (const CURLMsg* message = ::curl_multi_info_read(multi_, &left)) {
      CURL* easy = message->easy_handle;
      char* transfer = nullptr;
      ::curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
      const std::unique_ptr<Transfer> owned(reinterpret_cast<Transfer*>(transfer));
      const bool isWhole = message->data.result == CURLE_OK && owned->body.size() == kBodyBytes;
      ::curl_multi_remove_handle(multi_, easy);
      ::curl_easy_cleanup(easy);
      --active_;
      hasFinished = true;
      owned->burst->answered(isWhole);
    }
    return hasFinished;
  }

  const Target target_;
  const std::string url_;
  curl_slist* const loopback_ = ::curl_slist_append(nullptr, "::127.0.0.1:");
  CURLM* const multi_;
  std::mutex mutex_;
  std::vector<Burst*> submitted_;
  std::size_t active_ = 0;
  std::atomic<bool> isStopping_ = false;
  std::thread thread_;
};

}  // namespace bursts
