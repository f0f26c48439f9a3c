#include "OmbrixPlatform/Network/Caching/Detail/SqliteURLCache.hpp"

#include <algorithm>
#include <ranges>
#include <utility>

namespace ombrix::platform::detail {
namespace {

// Somebody waits for the answer; but only opening waits for others, and to give up too soon costs a
// request.
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

// What callers ask.

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
  // What it replaces must go even when it cannot be kept itself.
  if (bytesOf(answer) > budget_.entry || !fitsRecord(*answer)) return remove(answer->key);
  std::string key = answer->key;
  enqueue(std::make_shared<const Change>(Change{std::move(key), std::move(answer), request}));
}

void SqliteURLCache::remove(const std::string& key) {
  // In this order: what is written meanwhile is pending until it is on disk.
  if (!isUnsettled(key) && isMissing(key)) return;
  enqueue(std::make_shared<const Change>(Change{key, nullptr, {}}));
}

/// Whether what is on disk may not be the whole truth about the key.
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
    // The disk is too slow for what comes in: the URL has no answer there for now.
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
  queue_->sync([] {});  // what was refused may be on its way out
}

// Writing behind.

/// What the changes that are not on disk yet say of the request; null for a dropped answer, nothing
/// when they do not say.
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

/// Whether the disk is used; when it was left alone for long enough it is tried again.
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

/// What the disk does not get to know makes what stands there outdated. It is removed at the first
/// such change, and after later ones before the disk is used again: others may keep answers there.
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
    // Another file lies there now, which the reader might not notice.
    const LockGuard lock(readerMutex_);
    reader_.close();
  }
  // What stands there may be outdated. It is removed now: others would serve it, and so would this
  // program when it starts again. A full disk lets files go.
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

/// Writes the changes in one transaction; where that failed, a second attempt only removes: what
/// cannot be written must not leave an older answer standing.
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

/// True when no answer of ours is on the disk any more.
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

/// Leaves the file such that the next use can begin anew.
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
