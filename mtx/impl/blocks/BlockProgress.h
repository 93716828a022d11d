#pragma once

#include <cstdint>

namespace orx {

/// Counts the blocks of one operation and tells the host, see ORXSrvProgress.
class BlockProgress {
public:
  /// `operation` is lent.
  BlockProgress(char const* operation, std::int64_t total) noexcept
      : m_operation(operation), m_total(total) {}

  /// Raises ORXSrvMtxStopped when the host wants it and blocks are left.
  void BlockDone();

private:
  char const* m_operation;
  std::int64_t m_done = 0;
  std::int64_t m_total;
};

} // namespace orx
