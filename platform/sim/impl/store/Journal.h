#pragma once

#include "sim/impl/store/PageOverlay.h"
#include "sim/impl/store/PositionedFile.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace store {

/// What a commit changes in the file: whole pages, and where the file ends afterwards. Until it is applied it
/// stands behind the file's own bytes, and a reader of a file that ends so knows what was to be done:
///
///     ... the file | page images | page numbers, padded | trailer page | end of file
///
/// The trailer has a mark, the counts, the positions and a checksum of everything.
struct Journal {
  std::vector<std::uint64_t> pages; ///< numbers, increasing
  std::vector<std::byte> images;    ///< pageBytes for each
  std::uint64_t endOfAllocation = 0;
  std::uint64_t sequence = 0; ///< of the commit

  /// The pages that an overlay changes, as they will be. Page 0 is always among them: applying starts and
  /// ends with its first bytes.
  static Journal Of(PageOverlay const& overlay, PositionedFile const& file);
  /// The journal that a file ends in; nothing when there is none, or one that was not written to its end.
  static std::optional<Journal> ReadFrom(PositionedFile const& file);

  std::byte const* Image(std::size_t index) const noexcept { return images.data() + index * pageBytes; }
  /// Bytes that it takes at the end of the file.
  std::uint64_t Size() const noexcept;
  /// Writes it at `position`, a multiple of the page length, behind everything in use; the file ends there.
  void WriteTo(PositionedFile& file, std::uint64_t position) const;
  /// Writes the pages to their places. The signature of the file is wiped first and restored last, so that a
  /// tool that knows no journal refuses a file that is half changed.
  void Apply(PositionedFile& file) const;
};

} // namespace store
