#pragma once

#include <cstdint>

namespace orx {

/// Counts the blocks of one operation and reports them to the host, see ORXSrvProgress.
class BlockProgress {
public:
  /// `operation` is lent.
  BlockProgress(char const* operation, std::int64_t total) noexcept
      : m_operation(operation), m_total(total) {}

  /// Counts a block. Raises ORXSrvMtxStopped when the host asks to stop and blocks are left.
  void BlockDone();

private:
  char const* m_operation;
  std::int64_t m_done = 0;
  std::int64_t m_total;
};

} // namespace orx
