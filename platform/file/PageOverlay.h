#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

namespace orx::file {

class PositionedFile;

/// Holds writes to the metadata of a file in memory, by pages.
///
///     file       ........rrrrrrrr........rrrr....      r: raw data, which is written to the file at once
///     overlay    mmmm............mmmm........mm        m: held bytes of metadata; a bit marks each of them
///
/// Raw data may also be written through a mapping, which the overlay does not see. A page with both kinds
/// therefore never keeps a copy of raw data: CompleteImages reads it from the file.
class PageOverlay {
public:
  static constexpr std::size_t pageBytes = 4096;

  struct Page {
    std::uint64_t number;                           ///< file offset / pageBytes
    std::array<std::uint64_t, pageBytes / 64> held; ///< a bit for each byte: the overlay holds the byte
    std::array<std::byte, pageBytes> bytes;         ///< bytes that are not held are undefined until completed
  };

  bool IsEmpty() const noexcept { return m_pages.empty(); }

  /// Holds copies of the bytes at a file offset.
  void Write(std::uint64_t offset, void const* from, std::size_t bytes);
  /// Copies the held bytes of the file range [offset, offset + bytes) to their positions in `buffer`, and
  /// leaves the others as they are there.
  void CopyHeldBytes(std::uint64_t offset, void* buffer, std::size_t bytes) const;
  /// Drops the held bytes of a file range, which may become raw data.
  void ReleaseBytes(std::uint64_t offset, std::uint64_t bytes);
  void Clear() noexcept;

  /// Reads the bytes that the pages do not hold from the file, as zeros behind its end, and returns the pages
  /// in ascending order. The pages stay complete until the file or the overlay changes, and are owned by the
  /// overlay.
  std::vector<Page const*> CompleteImages(PositionedFile const& file);

private:
  Page* Find(std::uint64_t number) const noexcept;
  Page& FindOrAdd(std::uint64_t number);

  std::unordered_map<std::uint64_t, std::unique_ptr<Page>> m_pages; ///< by number
};

} // namespace orx::file
