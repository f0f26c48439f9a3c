#pragma once

// Included ahead of every changed file in the build that `scripts/mutate` makes.

/// Whether the process runs with this change of the code: the number in OMBRIX_MUTANT. With
/// OMBRIX_MUTANTS_REACHED set it notes instead, as an empty file in that folder, that the change
/// was reached. Any thread.
bool ombrixMutantRuns(int number) noexcept;

/// The same where it may also be asked while compiling: then no change is made.
constexpr bool ombrixMutant(int number) noexcept {
  if (__builtin_is_constant_evaluated()) return false;
  return ombrixMutantRuns(number);
}
