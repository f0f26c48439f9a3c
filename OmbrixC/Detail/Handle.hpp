#pragma once

namespace ombrix::c {

/// Counts what C callers hold; see `ombrix_Library_liveHandles`. Any thread.
void countHandle() noexcept;
void uncountHandle() noexcept;

/// Remembers that the shared client was made, since ending the library must not make it. Any
/// thread.
void noteClient() noexcept;

/// An object that a C caller holds and releases; the last member of a handle's struct.
struct Handle {
  Handle() noexcept { countHandle(); }
  ~Handle() { uncountHandle(); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
};

/// A pointer that a C caller holds from now on; NULL does not count.
template <class T>
T* counted(T* pointer) noexcept {
  if (pointer != nullptr) countHandle();
  return pointer;
}

/// The same for a pointer that the caller gives back.
template <class T>
T* uncounted(T* pointer) noexcept {
  if (pointer != nullptr) uncountHandle();
  return pointer;
}

}  // namespace ombrix::c
