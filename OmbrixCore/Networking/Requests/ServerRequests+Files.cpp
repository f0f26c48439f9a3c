#include <exception>
#include <utility>

#include "OmbrixCore/Networking/Requests/Detail/FileSink.hpp"
#include "OmbrixCore/Networking/Requests/Detail/HTTPLinesState.hpp"
#include "OmbrixCore/Networking/Requests/ServerRequests.hpp"

namespace ombrix {
namespace {

using platform::Async;

constexpr int kRangeNotSatisfiable = 416;

Async<HTTPAnswer> downloaded(ServerRequests::APIPublisher<HTTPAnswer> publisher,
                             std::shared_ptr<detail::FileSink> sink) {
  std::optional<HTTPError> failure;
  auto waiting = asAsync(std::move(publisher));
  try {
    HTTPAnswer answer = co_await std::move(waiting);
    co_return answer;
  } catch (const HTTPError& error) {
    failure = error;
  }
  // The stored part was complete already if it ends where the server's file does.
  const auto* cause = failure->cause();
  if (cause == nullptr || cause->code != kRangeNotSatisfiable ||
      !sink->endWithWhatIsThere(*cause->response)) {
    throw *std::move(failure);
  }
  co_return HTTPAnswer{.code = cause->code, .response = cause->response};
}

}  // namespace

Async<HTTPAnswer> ServerRequests::upload(std::string_view url, const std::filesystem::path& file,
                                         HTTPMethod method, RequestOptions options) {
  const auto operation = operationFor(url, method, Duration::unlimited);
  options.body = platform::HTTPBodySource::file(file);
  if (operation) operation->setOptions(std::move(options));
  return asAsync(publisherOf(operation, std::nullopt));
}

Async<HTTPAnswer> ServerRequests::download(std::string_view url, std::filesystem::path file,
                                           RequestOptions options) {
  const auto operation = operationFor(url, HTTPMethod::GET, Duration::unlimited);
  const auto sink = std::make_shared<detail::FileSink>(
      std::move(file), operation ? operation->url().absoluteString() : std::string());
  if (operation) {
    sink->prepare(options.headers);
    operation->setOptions(std::move(options));
    operation->setSink(sink);
  }
  return downloaded(publisherOf(operation, std::nullopt), sink);
}

HTTPLines ServerRequests::lines(std::string_view url, RequestOptions options) {
  const auto operation = operationFor(url, HTTPMethod::GET, Duration::unlimited);
  const auto state = std::make_shared<HTTPLines::State>(operation);
  if (operation) {
    operation->setOptions(std::move(options));
    operation->setSink(state);
  }
  auto run = [state, publisher = publisherOf(operation, std::nullopt)]() mutable -> Async<void> {
    auto answer = asAsync(std::move(publisher));
    try {
      co_await std::move(answer);
    } catch (...) {
      state->finish(std::current_exception());
      co_return;
    }
    state->finish(nullptr);
  };
  return HTTPLines(state, platform::startTask(std::move(run)));
}

}  // namespace ombrix
