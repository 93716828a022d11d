#pragma once

#include "file/PageOverlay.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace orx::file {

class PositionedFile;

/// The pages of a commit, written behind everything else in the same file before they go to their places.
///
///     | the file, its end rounded up to a page | page images | page numbers | trailer |  end of the file
///     0                              position ^                                       ^ position + bytes
///
/// Page numbers are 64-bit, ascending, the last page of them padded with zeros; 0 is the first number.
/// Numbers and trailer are little-endian, that is, in this machine's order. The trailer is a
/// Journal::Trailer, padded with zeros to a page. Any change of these bytes needs another magic.
///
/// A journal is whole when its checksum is right. Values that happen to look like one may lie in its place,
/// so whether there is a journal at all is said elsewhere, see TransactionalFile.
class Journal {
public:
  struct Trailer {
    std::uint64_t magic;
    std::uint64_t sequence; ///< of the commit, from 1 on in each session
    std::uint64_t pages;    ///< at least 1
    std::uint64_t end;      ///< size of the file once the pages are in their places; at most `position`
    std::uint64_t position;
    std::uint64_t bytes;
    std::uint64_t bodyChecksum; ///< of images and numbers
    std::uint64_t checksum;     ///< of the fields before
  };

  static std::uint64_t BytesFor(std::uint64_t pages) noexcept;

  /// Writes a journal at `position`, a multiple of the page size. The file must end behind it for it to be
  /// found.
  static Trailer Write(PositionedFile& file, std::uint64_t position,
                       std::span<PageOverlay::Page const* const> pages, std::uint64_t end,
                       std::uint64_t sequence);

  /// The whole journal at the file's end, if there is one. Nothing in it is believed before it was checked,
  /// and no memory is taken that grows with what it says.
  static std::optional<Trailer> Find(PositionedFile const& file);

  /// Calls visit(page number, image) for each page of a whole journal, the last page first.
  static void ForEachPageFromLast(PositionedFile const& file, Trailer const& trailer,
                                  std::function<void(std::uint64_t, std::byte const*)> const& visit);
};

} // namespace orx::file
