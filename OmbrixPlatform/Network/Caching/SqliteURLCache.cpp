#include "OmbrixPlatform/Network/Caching/Detail/SqliteURLCache.hpp"

#include <algorithm>
#include <ranges>
#include <utility>

namespace ombrix::platform::detail {
namespace {

// A caller waits for the answer. But only opening waits for other connections, and giving up too
// soon costs a request.
constexpr int kReaderBusyMilliseconds = 1000;
constexpr int kWriterBusyMilliseconds = 5000;
constexpr auto kDistrust = std::chrono::seconds(60);
constexpr std::int64_t kMostPendingBytes = 32 << 20;
constexpr std::size_t kMostChangesAtOnce = 256;
constexpr std::size_t kMostUses = 256;

std::int64_t bytesOf(const CachedAnswerPointer& answer) {
  return answer ? static_cast<std::int64_t>(answer->memoryBytes()) : 0;
}

}  // namespace

SqliteURLCache::SqliteURLCache(const std::string& folder, std::int64_t capacity,
                               KeysInUse keysInUse)
    : budget_(capacity),
      keysInUse_(std::move(keysInUse)),
      queue_(DispatchQueue::serial("URLCache", QualityOfService::utility)),
      reader_(folder, budget_, kReaderBusyMilliseconds),
      writer_(folder, budget_, kWriterBusyMilliseconds) {}

// Called by sessions.

CachedAnswerPointer SqliteURLCache::find(const std::string& key, const HTTPHeaders& request) {
  {
    const LockGuard lock(mutex_);
    if (clearing_ > 0 || !isTrusted()) return nullptr;
    if (const auto known = pendingAnswer(key, request)) return *known;
  }
  CachedAnswerPointer answer;
  SqliteURLCacheFile::Use use{};
  {
    const LockGuard lock(readerMutex_);
    try {
      answer = reader_.find(key, request, use);
    } catch (const SqliteFailure& failure) {
      handle(reader_, failure);
      if (!failure.isBusy() && !failure.isDamage()) {
        const LockGuard stateLock(mutex_);
        distrust(false);
      }
    }
  }
  if (!answer) return nullptr;
  const LockGuard lock(mutex_);
  // It may have been replaced or dropped meanwhile.
  if (clearing_ > 0 || !isTrusted()) return nullptr;
  if (const auto known = pendingAnswer(key, request)) return *known;
  uses_.push_back(use);
  if (uses_.size() >= kMostUses) schedule();
  return answer;
}

void SqliteURLCache::put(CachedAnswerPointer answer, const HTTPHeaders& request) {
  // The answers that it replaces must go even when it cannot be kept itself.
  if (bytesOf(answer) > budget_.entry || !fitsRecord(*answer)) return remove(answer->key);
  std::string key = answer->key;
  enqueue(std::make_shared<const Change>(Change{std::move(key), std::move(answer), request}));
}

void SqliteURLCache::remove(const std::string& key) {
  // In this order: a change that is being written stays pending until it is on disk.
  if (!isUnsettled(key) && isMissing(key)) return;
  enqueue(std::make_shared<const Change>(Change{key, nullptr, {}}));
}

/// Whether changes to the key may still be missing on disk.
bool SqliteURLCache::isUnsettled(const std::string& key) {
  const LockGuard lock(mutex_);
  return clearing_ > 0 || !isTrusted() || pending_.contains(key);
}

/// Whether there is certainly no answer on disk, also of another process.
bool SqliteURLCache::isMissing(const std::string& key) {
  const LockGuard lock(readerMutex_);
  try {
    return !reader_.mayContain(key);
  } catch (const SqliteFailure& failure) {
    handle(reader_, failure);
    return false;
  }
}

void SqliteURLCache::enqueue(ChangePointer change) {
  const LockGuard lock(mutex_);
  if (!isTrusted()) return loseChange();
  const std::int64_t bytes = bytesOf(change->answer);
  if (pendingBytes_ + bytes > kMostPendingBytes) {
    // The disk cannot keep up: for now the URL gets no answer there.
    change = std::make_shared<const Change>(Change{change->key, nullptr, {}});
  } else {
    pendingBytes_ += bytes;
  }
  pending_[change->key].push_back(change);
  changes_.push_back(std::move(change));
  schedule();
}

void SqliteURLCache::removeAll() {
  {
    const LockGuard lock(mutex_);
    changes_.clear();
    pending_.clear();
    pendingBytes_ = 0;
    uses_.clear();
    ++clearing_;
  }
  bool isCleared = false;
  queue_->sync([&] { isCleared = clearFiles(true); });
  const LockGuard lock(mutex_);
  --clearing_;
  if (isCleared) {
    distrustedUntil_.reset();
  } else {
    distrust(true);
  }
  idle_.notify_all();
}

std::int64_t SqliteURLCache::usage() {
  std::int64_t bytes = 0;
  {
    const LockGuard lock(mutex_);
    if (clearing_ > 0 || !isTrusted()) return 0;
    bytes = pendingBytes_;
  }
  const LockGuard lock(readerMutex_);
  try {
    bytes += reader_.usage();
  } catch (const SqliteFailure& failure) {
    handle(reader_, failure);
  }
  return bytes;
}

void SqliteURLCache::flush() {
  {
    const LockGuard lock(mutex_);
    if (!uses_.empty()) schedule();
    idle_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return !isScheduled_; });
  }
  queue_->sync([] {});  // what failed may be about to be removed
}

// Writing behind.

/// What the pending changes hold for the request: an answer, null for a dropped one, empty when
/// they hold nothing about it.
std::optional<CachedAnswerPointer> SqliteURLCache::pendingAnswer(const std::string& key,
                                                                 const HTTPHeaders& request) const {
  const auto found = pending_.find(key);
  if (found == pending_.end()) return std::nullopt;
  for (const auto& change : std::views::reverse(found->second)) {
    const auto& answer = change->answer;
    if (!answer || selects(answer->selecting, request)) return answer;
  }
  return std::nullopt;
}

void SqliteURLCache::schedule() {
  if (std::exchange(isScheduled_, true)) return;
  queue_->async([self = shared_from_this()] { self->writeBatch(); });
}

/// Whether the disk is in use; after a pause that was long enough it is tried again.
bool SqliteURLCache::isTrusted() {
  if (!distrustedUntil_) return true;
  const auto now = std::chrono::steady_clock::now();
  if (now < *distrustedUntil_) return false;
  if (!hasLostChanges_) {
    distrustedUntil_.reset();
    return true;
  }
  distrustedUntil_ = now + kDistrust;
  queue_->async([self = shared_from_this()] {
    if (!self->clearFiles(false)) return;
    const LockGuard lock(self->mutex_);
    self->distrustedUntil_.reset();
  });
  return false;
}

void SqliteURLCache::distrust(bool hasLostChanges) {
  if (!distrustedUntil_) hasLostChanges_ = isGivenUp_ = false;
  distrustedUntil_ = std::chrono::steady_clock::now() + kDistrust;
  hasLostChanges_ = hasLostChanges_ || hasLostChanges;
  if (!pending_.empty()) loseChange();
  changes_.clear();
  pending_.clear();
  pendingBytes_ = 0;
  uses_.clear();
}

/// A change that does not reach the disk makes the answers there outdated. They are removed at the
/// first such change, and after later ones before the disk is used again: other processes may keep
/// answers there.
void SqliteURLCache::loseChange() {
  hasLostChanges_ = true;
  if (std::exchange(isGivenUp_, true)) return;
  queue_->async([self = shared_from_this()] {
    if (!self->clearFiles(false)) return;
    const LockGuard lock(self->mutex_);
    self->hasLostChanges_ = false;
  });
}

// On the queue.

void SqliteURLCache::writeBatch() {
  std::vector<ChangePointer> batch;
  std::vector<SqliteURLCacheFile::Use> uses;
  {
    const LockGuard lock(mutex_);
    uses = std::exchange(uses_, {});
    std::int64_t bytes = 0;
    while (!changes_.empty() && batch.size() < kMostChangesAtOnce && bytes <= budget_.batch) {
      bytes += bytesOf(changes_.front()->answer);
      batch.push_back(std::move(changes_.front()));
      changes_.pop_front();
    }
  }
  try {
    if (!uses.empty() && writer_.openExisting()) {
      writer_.begin();
      for (const auto& use : uses) writer_.touch(use);
      writer_.commit();
    }
  } catch (const SqliteFailure& failure) {
    handle(writer_, failure);
  }
  const bool isWritten = batch.empty() || write(batch, false) || write(batch, true);
  if (std::exchange(writerOpenings_, writer_.openings()) != writer_.openings()) {
    // There is another file now, and the reader might not notice.
    const LockGuard lock(readerMutex_);
    reader_.close();
  }
  // The answers there may be outdated. They are removed now: other processes would serve them, and
  // so would this program after a restart. Removing works on a full disk as well.
  const bool isCleared = !isWritten && clearFiles(false);
  const LockGuard lock(mutex_);
  if (isWritten || isCleared) forget(batch);
  if (!isWritten) {
    distrust(!isCleared);
    isGivenUp_ = true;
  }
  isScheduled_ = false;
  if (!changes_.empty()) schedule();
  if (!isScheduled_) idle_.notify_all();
}

/// Writes the changes in one transaction. Where that fails, a second attempt only removes: no older
/// answer may stay because a newer one could not be written.
bool SqliteURLCache::write(const std::vector<ChangePointer>& batch, bool isRemovalOnly) {
  try {
    const bool isOnlyRemoved =
        isRemovalOnly || std::ranges::none_of(batch, [](auto& change) { return !!change->answer; });
    if (isOnlyRemoved && !writer_.openExisting()) return true;
    if (!isOnlyRemoved) {
      std::int64_t bytes = 0;
      for (const auto& change : batch) bytes += bytesOf(change->answer);
      writer_.makeRoom(bytes, keysInUse_);
    }
    writer_.begin();
    for (const auto& change : batch) {
      if (change->answer && !isRemovalOnly) {
        writer_.put(*change->answer, change->request);
      } else {
        writer_.remove(change->key);
      }
    }
    writer_.commit();
    return true;
  } catch (const SqliteFailure& failure) {
    handle(writer_, failure);
    return false;
  }
}

void SqliteURLCache::forget(const std::vector<ChangePointer>& batch) {
  for (const auto& change : batch) {
    const auto found = pending_.find(change->key);
    if (found == pending_.end() || std::erase(found->second, change) == 0) continue;
    pendingBytes_ -= bytesOf(change->answer);
    if (found->second.empty()) pending_.erase(found);
  }
}

/// True when none of our answers is left on disk.
bool SqliteURLCache::clearFiles(bool alsoOfLaterRelease) {
  try {
    if (!alsoOfLaterRelease && isOfLaterRelease()) return true;
    writer_.clear();
    const LockGuard lock(readerMutex_);
    reader_.close();
    return true;
  } catch (const SqliteFailure&) {
    return false;
  }
}

bool SqliteURLCache::isOfLaterRelease() {
  try {
    (void)writer_.openExisting();
    return false;
  } catch (const SqliteFailure& failure) {
    return failure.code == SqliteFailure::kIsOfLaterRelease;
  }
}

/// Leaves the file so that the next use can start over.
void SqliteURLCache::handle(SqliteURLCacheFile& file, const SqliteFailure& failure) {
  if (!failure.isDamage()) {
    file.close();
    if (failure.isBusy() && &file == &reader_) file.hurry();  // callers stand behind it
    return;
  }
  try {
    file.setAside();
  } catch (const SqliteFailure&) {
    file.close();
  }
}

}  // namespace ombrix::platform::detail
