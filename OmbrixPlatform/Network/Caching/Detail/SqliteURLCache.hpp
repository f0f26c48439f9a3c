#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswer.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/SqliteURLCacheFile.hpp"

namespace ombrix::platform::detail {

/// Answers on disk within a budget of bytes, in a folder that several processes may share. Changes
/// are seen at once and written later, on the cache's own queue; reading happens on the calling
/// thread. When the disk fails, the cache neither reads nor writes for a while, and then tries
/// again. Any thread; nothing is thrown.
class SqliteURLCache : public std::enable_shared_from_this<SqliteURLCache> {
 public:
  /// Keys in the order of their use in memory, the least recently used one first; called on the
  /// queue.
  using KeysInUse = std::function<std::vector<std::string>()>;

  SqliteURLCache(const std::string& folder, std::int64_t capacity, KeysInUse keysInUse);

  /// The answer that the request selects; it counts as used now.
  CachedAnswerPointer find(const std::string& key, const HTTPHeaders& request);

  /// Keeps an answer, which replaces those that the request selects.
  void put(CachedAnswerPointer answer, const HTTPHeaders& request);

  /// Drops all answers to a URL.
  void remove(const std::string& key);

  /// Drops everything and returns when it is gone.
  void removeAll();

  [[nodiscard]] std::int64_t usage();

  /// Waits until every change so far is on disk or has failed.
  void flush();

 private:
  /// A change: an answer to keep, or no answer where all of a URL's are dropped.
  struct Change {
    std::string key;
    CachedAnswerPointer answer;
    HTTPHeaders request;
  };
  using ChangePointer = std::shared_ptr<const Change>;

  void enqueue(ChangePointer change);
  [[nodiscard]] bool isUnsettled(const std::string& key);
  [[nodiscard]] bool isMissing(const std::string& key);
  [[nodiscard]] std::optional<CachedAnswerPointer> pendingAnswer(const std::string& key,
                                                                 const HTTPHeaders& request) const
      OMBRIX_REQUIRES(mutex_);
  void schedule() OMBRIX_REQUIRES(mutex_);
  void writeBatch();
  bool write(const std::vector<ChangePointer>& batch, bool isRemovalOnly);
  void forget(const std::vector<ChangePointer>& batch) OMBRIX_REQUIRES(mutex_);
  bool isTrusted() OMBRIX_REQUIRES(mutex_);
  void distrust(bool hasLostChanges) OMBRIX_REQUIRES(mutex_);
  void loseChange() OMBRIX_REQUIRES(mutex_);
  [[nodiscard]] bool clearFiles(bool alsoOfLaterRelease);
  [[nodiscard]] bool isOfLaterRelease();
  void handle(SqliteURLCacheFile& file, const SqliteFailure& failure);

  const DiskBudget budget_;
  const KeysInUse keysInUse_;
  const std::shared_ptr<DispatchQueue> queue_;

  Mutex mutex_;  // never held while the disk is used
  Condition idle_;
  std::deque<ChangePointer> changes_ OMBRIX_GUARDED_BY(mutex_);
  // Those being written too.
  std::unordered_map<std::string, std::vector<ChangePointer>> pending_ OMBRIX_GUARDED_BY(mutex_);
  std::int64_t pendingBytes_ OMBRIX_GUARDED_BY(mutex_) = 0;
  std::vector<SqliteURLCacheFile::Use> uses_ OMBRIX_GUARDED_BY(mutex_);
  bool isScheduled_ OMBRIX_GUARDED_BY(mutex_) = false;
  int clearing_ OMBRIX_GUARDED_BY(mutex_) = 0;
  std::optional<std::chrono::steady_clock::time_point> distrustedUntil_ OMBRIX_GUARDED_BY(mutex_);
  // While it was distrusted: its answers were removed, or could not be.
  bool isGivenUp_ OMBRIX_GUARDED_BY(mutex_) = false;
  // While it was distrusted: answers there may be out of date.
  bool hasLostChanges_ OMBRIX_GUARDED_BY(mutex_) = false;

  Mutex readerMutex_;
  SqliteURLCacheFile reader_ OMBRIX_GUARDED_BY(readerMutex_);
  SqliteURLCacheFile writer_;         // on the queue only
  std::uint64_t writerOpenings_ = 0;  // likewise: those that the reader knows of
};

}  // namespace ombrix::platform::detail
