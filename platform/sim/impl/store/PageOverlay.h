#pragma once

#include "sim/impl/store/PositionedFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace store {

/// Bytes that were written but are held back from the file, in pages with a mask of what was written. Bytes
/// of a page that were not belong to the file alone: values lie there too and are changed behind our back.
class PageOverlay {
public:
  bool IsEmpty() const noexcept { return m_pages.empty(); }
  void Clear() noexcept { m_pages.clear(); }
  /// Page numbers in increasing order.
  std::vector<std::uint64_t> PageNumbers() const;

  void Write(std::uint64_t offset, void const* from, std::size_t bytes);
  /// Puts what is held back over bytes that were read from the file.
  void Cover(std::uint64_t offset, void* onto, std::size_t bytes) const;

private:
  struct Page {
    std::array<std::byte, pageBytes> bytes;
    std::array<std::uint64_t, pageBytes / 64> written{}; ///< one bit per byte
  };

  std::unordered_map<std::uint64_t, std::unique_ptr<Page>> m_pages;
};

} // namespace store
