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

/// Writes to a file that are held back in memory.
///
///     file       ........rrrrrrrr........rrrr....      r: values, which go straight to the file
///     overlay    mmmm............mmmm........mm        m: held bytes, each with a bit that it is held
///
/// Values are also written through a mapping, unseen by us. So a page that holds both kinds never keeps a
/// copy of values: they are taken from the file when the page's image is completed.
class PageOverlay {
public:
  static constexpr std::size_t pageBytes = 4096;

  struct Page {
    std::uint64_t number;                           ///< offset in the file / pageBytes
    std::array<std::uint64_t, pageBytes / 64> held; ///< bit per byte
    std::array<std::byte, pageBytes> bytes;         ///< where not held: anything, until completed
  };

  bool IsEmpty() const noexcept { return m_pages.empty(); }

  void Write(std::uint64_t offset, void const* from, std::size_t bytes);
  /// Puts the held ones of the bytes [offset, offset + bytes) over those in `buffer`.
  void LayOver(std::uint64_t offset, void* buffer, std::size_t bytes) const;
  /// The bytes are no longer held; they may become values.
  void Release(std::uint64_t offset, std::uint64_t bytes);
  void Clear() noexcept;

  /// Fills what the pages do not hold from the file, zero behind its end; returns the pages by number. They
  /// are whole images until the file or the overlay changes.
  std::vector<Page const*> CompleteImages(PositionedFile const& file);

private:
  Page* Find(std::uint64_t number) const noexcept;
  Page& FindOrAdd(std::uint64_t number);

  std::unordered_map<std::uint64_t, std::unique_ptr<Page>> m_pages; ///< by number
};

} // namespace orx::file
