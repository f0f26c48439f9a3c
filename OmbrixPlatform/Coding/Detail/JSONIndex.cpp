#include "OmbrixPlatform/Coding/Detail/JSONIndex.hpp"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <simdjson.h>
#pragma GCC diagnostic pop

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <utility>

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kSmallestCapacity = 4096;
constexpr std::size_t kLargestKeptCapacity = 1 << 20;

const char* messageFor(simdjson::error_code error) {
  switch (error) {
    case simdjson::EMPTY:
      return "it is empty";
    case simdjson::UTF8_ERROR:
      return "it is not UTF-8";
    case simdjson::UNCLOSED_STRING:
      return "a text is not closed";
    case simdjson::UNESCAPED_CHARS:
      return "a text holds a control character";
    case simdjson::CAPACITY:
      return "it is too long";
    case simdjson::MEMALLOC:
      return "there is not enough memory";
    default:
      return "it cannot be read";
  }
}

using Stages = std::unique_ptr<simdjson::internal::dom_parser_implementation>;

simdjson::error_code makeStagesNow(std::size_t capacity, Stages& stages) {
  return simdjson::get_active_implementation()->create_dom_parser_implementation(capacity, 1,
                                                                                 stages);
}

/// Keeps background threads from the library's objects once they are destroyed, at exit: a thread
/// that begins to parse then waits for the end of the process.
class ExitGate {
 public:
  static simdjson::error_code makeStages(std::size_t capacity, Stages& stages) {
    static const ExitGate gate;
    State& state = ExitGate::state();
    if (state.exitingThread == std::this_thread::get_id()) return simdjson::UNINITIALIZED;
    const std::shared_lock lock(state.mutex);
    return makeStagesNow(capacity, stages);
  }

  ExitGate(const ExitGate&) = delete;
  ExitGate& operator=(const ExitGate&) = delete;

 private:
  struct State {
    std::shared_mutex mutex;
    std::atomic<std::thread::id> exitingThread;
  };

  // What is destroyed at exit was made before this, so it is destroyed after this.
  ExitGate() {
    Stages unused;
    static_cast<void>(makeStagesNow(1, unused));
  }
  ~ExitGate() {
    state().exitingThread = std::this_thread::get_id();
    state().mutex.lock();
  }

  static State& state() {
    static State& instance = *new State;
    return instance;
  }
};

}  // namespace

struct JSONIndex::Parser {
  Stages stages;

  // One parser of each thread waits here between uses: its buffers cost more than a small text.
  static std::unique_ptr<Parser>& kept() {
    thread_local std::unique_ptr<Parser> parser;
    return parser;
  }

  simdjson::error_code prepare(std::size_t size) {
    const std::size_t capacity = std::max(size, kSmallestCapacity);
    if (stages == nullptr) {
      return ExitGate::makeStages(capacity, stages);
    }
    return stages->capacity() < size ? stages->allocate(capacity, 1) : simdjson::SUCCESS;
  }
};

JSONIndex::JSONIndex(std::string_view text) : parser_(std::move(Parser::kept())) {
  if (parser_ == nullptr) parser_ = std::make_unique<Parser>();
  simdjson::error_code error = simdjson::EMPTY;
  if (text.size() > std::numeric_limits<std::uint32_t>::max() - 64) {
    error = simdjson::CAPACITY;
  } else if (!text.empty()) {
    error = parser_->prepare(text.size());
    if (error == simdjson::SUCCESS) {
      error = parser_->stages->stage1(reinterpret_cast<const std::uint8_t*>(text.data()),
                                      text.size(), simdjson::stage1_mode::regular);
    }
  }
  if (error != simdjson::SUCCESS) {
    error_ = messageFor(error);
    return;
  }
  tokens_ = parser_->stages->structural_indexes.get();
  count_ = parser_->stages->n_structural_indexes;
}

JSONIndex::~JSONIndex() {
  const bool isSmall =
      parser_->stages != nullptr && parser_->stages->capacity() <= kLargestKeptCapacity;
  if (isSmall) Parser::kept() = std::move(parser_);
}

}  // namespace ombrix::platform::detail
