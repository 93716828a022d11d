#pragma once

#include "core/ORXBasException.h"
#include "core/atr_String.h"
#include "core/orx_export.h"

#include <cstdint>

/// Lets the host watch the long operations of block matrices and stop them between two blocks.
///
///     bool Show(void* window, char const* operation, std::int64_t done, std::int64_t total) {
///       return static_cast<Window*>(window)->ShowShare(operation, double(done) / total); // false: stop
///     }
///     ORXSrvProgress::Set(Show, &window);
///     try { a.Multiply(b, c); }
///     catch (ORXSrvMtxStopped const& e) { ... }
///
/// There is one function for the whole library; null, the initial state, costs nothing. The function is
/// called on the caller's thread after each block of an operation, with 1 <= done <= total; its exceptions
/// pass through the operation. When it returns false and blocks are left, the operation ends with
/// ORXSrvMtxStopped; its result then holds the blocks that were finished, and everything else is as it was
/// or, for results in memory, partly summed.
class ORX_EXPORT ORXSrvProgress {
public:
  /// Returns true to go on, false to stop. `operation` is a name such as "ORXSrvDenseMatrix::Multiply".
  using Function = bool (*)(void* context, char const* operation, std::int64_t done, std::int64_t total);

  /// `context` is passed to each call. A null function ends the calls.
  static void Set(Function function, void* context) noexcept;
  /// Calls the function, for an operation that has done `done` of its `total` blocks. Raises ORXSrvMtxStopped
  /// when it says stop and blocks are left. Operations of other libraries report through it too.
  static void Report(char const* operation, std::int64_t done, std::int64_t total);
};

/// The host has stopped an operation.
class ORX_EXPORT ORXSrvMtxStopped : public ORXBasException {
public:
  ORXSrvMtxStopped(char const* operation, std::int64_t done, std::int64_t total);

  /// "ORXSrvDenseMatrix::Multiply stopped by the host after 3 of 8 blocks."
  atr_String AsString() const override;
  [[noreturn]] void Raise() const override;
  int ErrorCode() const override { return 301; }

  std::int64_t BlocksDone() const noexcept { return m_done; }
  std::int64_t BlocksInAll() const noexcept { return m_total; }

private:
  atr_String m_operation;
  std::int64_t m_done;
  std::int64_t m_total;
};
