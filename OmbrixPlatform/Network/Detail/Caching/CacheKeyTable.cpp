#include "OmbrixPlatform/Network/Detail/Caching/CacheKeyTable.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

namespace ombrix::platform::detail {
namespace {

using Boot = std::array<char, 36>;

constexpr std::array<char, 8> kMagic{'U', 'R', 'L', 'k', 'e', 'y', 's', '1'};
constexpr unsigned kLeastWidth = 14;
constexpr unsigned kMostWidth = 20;
constexpr unsigned kWordWidth = 6;
constexpr std::int64_t kHeaderBytes = 128;
constexpr std::int64_t kLookAgainNanoseconds = 1'000'000'000;

// A table is not ready before its header says so.
constexpr std::uint32_t kUnready = 0;
constexpr std::uint32_t kInUse = 1;
constexpr std::uint32_t kRetired = 2;

/// Which start of the machine this is; zeros when it does not say. After a power failure the
/// database may hold rows whose bits were lost.
const Boot& boot() noexcept {
  static const Boot read = [] {
    Boot id{};
    const Descriptor file = openFile("/proc/sys/kernel/random/boot_id", O_RDONLY);
    if (!file || readSome(file.get(), std::as_writable_bytes(std::span(id))) !=
                     static_cast<ssize_t>(id.size())) {
      id = {};
    }
    return id;
  }();
  return read;
}

constexpr std::int64_t bytesOf(unsigned width) noexcept {
  return kHeaderBytes + (std::int64_t{1} << (width - 3));
}

/// The width of the largest table that takes no more than so many bytes.
unsigned widthWithin(std::int64_t bytes) noexcept {
  unsigned width = kLeastWidth;
  while (width < kMostWidth && bytesOf(width + 1) <= bytes) ++width;
  return width;
}

std::int64_t now() noexcept {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

std::uint64_t bitOf(std::int64_t hash, unsigned width) noexcept {
  return std::bit_cast<std::uint64_t>(hash) >> (64 - width);
}

constexpr std::uint64_t maskOf(std::uint64_t bit) noexcept {
  return std::uint64_t{1} << (bit % (1U << kWordWidth));
}

}  // namespace

/// What a table starts with, in this machine's byte order: another one has another boot.
struct CacheKeyTable::Header {
  std::array<char, 8> magic{};
  Boot boot{};
  std::uint32_t width = 0;
  std::uint64_t device = 0, file = 0;  // of the database
  std::uint64_t crowdedAt = 0;         // so many bits that too few keys are excluded
  std::uint64_t bitsSet = 0;
  std::uint32_t state = kUnready;
  std::array<std::uint32_t, 11> unused{};

  /// What does not change while the table is there.
  [[nodiscard]] bool isLike(const Header& other) const noexcept {
    return magic == other.magic && boot == other.boot && width == other.width &&
           device == other.device && file == other.file;
  }
};

std::int64_t CacheKeyTable::bytesWithin(std::int64_t most) noexcept {
  return bytesOf(widthWithin(most));
}

CacheKeyTable::CacheKeyTable(std::string path, std::string databasePath,
                             std::int64_t bytes) noexcept
    : path_(std::move(path)), databasePath_(std::move(databasePath)), width_(widthWithin(bytes)) {
  static_assert(sizeof(Header) == kHeaderBytes && std::is_trivially_copyable_v<Header>);
  static_assert(std::atomic_ref<std::uint64_t>::is_always_lock_free);
  void* place = ::mmap(nullptr, static_cast<std::size_t>(bytesOf(width_)), PROT_READ,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  base_ = place == MAP_FAILED ? nullptr : static_cast<std::byte*>(place);
}

CacheKeyTable::~CacheKeyTable() {
  if (base_ != nullptr) {
    ::munmap(base_, static_cast<std::size_t>(bytesOf(width_)));
  }
}

CacheKeyTable::Header& CacheKeyTable::header() const noexcept {
  return *reinterpret_cast<Header*>(base_);
}

std::uint64_t& CacheKeyTable::word(std::uint64_t bit) const noexcept {
  return reinterpret_cast<std::uint64_t*>(base_ + sizeof(Header))[bit >> kWordWidth];
}

bool CacheKeyTable::isInUse() const noexcept {
  return shownWidth_.load(std::memory_order_acquire) != 0 &&
         std::atomic_ref(header().state).load(std::memory_order_acquire) == kInUse;
}

// Reading.

bool CacheKeyTable::excludes(std::int64_t hash) noexcept {
  const std::uint64_t sequence = sequence_.load(std::memory_order_acquire);
  const unsigned width = shownWidth_.load(std::memory_order_acquire);
  if (sequence % 2 != 0 || width == 0) return false;
  // The state first: a bit that is clear afterwards was so while the table was in use.
  if (std::atomic_ref(header().state).load(std::memory_order_acquire) != kInUse) return false;
  const std::uint64_t bit = bitOf(hash, width);
  const std::uint64_t bits = std::atomic_ref(word(bit)).load(std::memory_order_acquire);
  if (sequence_.load(std::memory_order_acquire) != sequence) return false;
  return (bits & maskOf(bit)) == 0 && isStillThere();
}

/// Sees after the table and its database once a second.
bool CacheKeyTable::isStillThere() noexcept {
  const std::int64_t time = now();
  if (time < lookAgain_.load(std::memory_order_relaxed)) return true;
  const std::lock_guard lock(mutex_);
  if (identityOf(path_) == file_ && identityOf(databasePath_) == database_) {
    lookAgain_.store(time + kLookAgainNanoseconds, std::memory_order_relaxed);
    return true;
  }
  hide();
  return false;
}

bool CacheKeyTable::map(const FileIdentity& database) {
  const std::lock_guard lock(mutex_);
  hide();
  lookAgain_.store(now() + kLookAgainNanoseconds, std::memory_order_relaxed);
  const Descriptor file = openFile(path_, O_RDWR | O_NOFOLLOW | O_NONBLOCK);
  Header found;
  struct stat status{};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      ::pread(file.get(), &found, sizeof found, 0) != static_cast<ssize_t>(sizeof found)) {
    return false;
  }
  const Header wanted{.magic = kMagic,
                      .boot = boot(),
                      .width = std::clamp(found.width, kLeastWidth, width_),
                      .device = database.device,
                      .file = database.file};
  return found.isLike(wanted) && found.boot != Boot{} && found.state == kInUse &&
         status.st_size == bytesOf(found.width) && show(file, found.width, database);
}

void CacheKeyTable::mapWhenDue(const FileIdentity& database) {
  if (isInUse() || now() < lookAgain_.load(std::memory_order_relaxed)) return;
  map(database);
}

void CacheKeyTable::dropRetired() noexcept {
  const std::lock_guard lock(mutex_);
  if (!isInUse()) hide();
}

// Writing.

bool CacheKeyTable::serves(const FileIdentity& database) noexcept {
  const std::lock_guard lock(mutex_);
  return isInUse() && database_ == database && identityOf(path_) == file_ &&
         std::atomic_ref(header().bitsSet).load(std::memory_order_relaxed) < header().crowdedAt;
}

bool CacheKeyTable::isNone() const noexcept {
  struct stat status{};
  return ::lstat(path_.c_str(), &status) != 0 ? errno == ENOENT : !S_ISREG(status.st_mode);
}

bool CacheKeyTable::make(const FileIdentity& database, const std::vector<std::int64_t>& hashes) {
  const std::lock_guard lock(mutex_);
  if (!retireLocked() || base_ == nullptr || boot() == Boot{}) return false;

  const auto size = static_cast<std::size_t>(bytesOf(width_));
  const std::uint64_t bits = std::uint64_t{1} << width_;
  std::vector<std::uint64_t> words(bits >> kWordWidth);
  for (const std::int64_t hash : hashes) {
    const std::uint64_t bit = bitOf(hash, width_);
    words[bit >> kWordWidth] |= maskOf(bit);
  }
  Header made{.magic = kMagic,
              .boot = boot(),
              .width = width_,
              .device = database.device,
              .file = database.file};
  for (const std::uint64_t each : words) {
    made.bitsSet += static_cast<std::uint64_t>(std::popcount(each));
  }
  // Where there are very many keys it is not made over and over again.
  made.crowdedAt = std::max(bits / 2, made.bitsSet + bits / 8);
  std::vector<std::byte> bytes(size);
  std::memcpy(bytes.data(), &made, sizeof made);
  std::memcpy(bytes.data() + sizeof made, words.data(), size - sizeof made);

  // Written as a whole: a page of a mapping that the disk has no room for would end the program.
  const Descriptor file =
      openFile(path_, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (!file) return false;
  if (writeAll(file.get(), bytes) != 0 || !show(file, width_, database)) {
    ::unlink(path_.c_str());
    return false;
  }
  lookAgain_.store(now() + kLookAgainNanoseconds, std::memory_order_relaxed);
  std::atomic_ref(header().state).store(kInUse, std::memory_order_release);
  return true;
}

void CacheKeyTable::add(std::int64_t hash) noexcept {
  const std::lock_guard lock(mutex_);
  const unsigned width = shownWidth_.load(std::memory_order_relaxed);
  if (width == 0) return;
  const std::uint64_t bit = bitOf(hash, width);
  const std::uint64_t before = std::atomic_ref(word(bit)).fetch_or(maskOf(bit));
  if ((before & maskOf(bit)) == 0) std::atomic_ref(header().bitsSet).fetch_add(1);
}

bool CacheKeyTable::retire() noexcept {
  const std::lock_guard lock(mutex_);
  return retireLocked();
}

bool CacheKeyTable::retireLocked() noexcept {
  hide();
  const Descriptor file = openFile(path_, O_RDWR | O_NOFOLLOW | O_NONBLOCK);
  if (!file) return isNone();
  // Written to the file, whoever made it, it is seen in every mapping.
  const std::uint32_t state = kRetired;
  if (::pwrite(file.get(), &state, sizeof state, offsetof(Header, state)) != sizeof state) {
    return isNone();
  }
  return ::unlink(path_.c_str()) == 0 || isNone();
}

// Mapping. The mutex is held by the caller of these.

bool CacheKeyTable::show(const Descriptor& file, unsigned width,
                         const FileIdentity& database) noexcept {
  struct stat status{};
  if (base_ == nullptr || ::fstat(file.get(), &status) != 0) return false;
  const auto size = static_cast<std::size_t>(bytesOf(width));
  const auto mapped = [&](void* place, int flags) {
    return ::mmap(place, size, PROT_READ | PROT_WRITE, MAP_SHARED | flags, file.get(), 0);
  };
  // Tried elsewhere first: in the place that readers look at, a failure would leave a hole.
  void* trial = mapped(nullptr, 0);
  if (trial == MAP_FAILED) return false;
  ::munmap(trial, size);
  sequence_.fetch_add(1);
  const bool isMapped = mapped(base_, MAP_FIXED) != MAP_FAILED;
  if (isMapped) {
    file_ = {status.st_dev, status.st_ino};
    database_ = database;
    shownWidth_.store(width);
  }
  sequence_.fetch_add(1);
  return isMapped;
}

void CacheKeyTable::hide() noexcept {
  if (shownWidth_.load(std::memory_order_relaxed) == 0) return;
  sequence_.fetch_add(1);
  shownWidth_.store(0);
  // Where that fails the old one stays, which nobody looks at any more.
  std::ignore = ::mmap(base_, static_cast<std::size_t>(bytesOf(width_)), PROT_READ,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
  sequence_.fetch_add(1);
}

}  // namespace ombrix::platform::detail
