#pragma once

namespace ombrix::platform {

/// Has a function called when the process ends normally (main returns, or `exit`), before those
/// that were handed in earlier. A process that is forked from this one does not call it. Any
/// thread.
void atExit(void (*function)());

/// Whether those functions run or have run: what is put off now is never done. Any thread.
[[nodiscard]] bool isProcessExiting() noexcept;

/// Has functions called around every fork of the process: one before it, then one in the parent or
/// one in the child, where the calling thread is the only one. Null for none. Any thread.
void atFork(void (*before)(), void (*inParent)(), void (*inChild)());

}  // namespace ombrix::platform
