#pragma once

#include "file/PageOverlay.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace orx::file {

class PositionedFile;

/// The pages of a commit, which are written behind everything else in the same file before they are written
/// to their own file offsets.
///
///     | the file, its end rounded up to a page | page images | page numbers | trailer |  end of the file
///     0                              position ^                                       ^ position + bytes
///
/// Page numbers are 64-bit and ascending, and begin with 0; zeros pad them to whole pages. Numbers and
/// trailer are little-endian, which is this machine's order. The trailer is a Journal::Trailer, padded with
/// zeros to a page. Any change of these bytes needs another magic.
///
/// A journal is whole when its checksums are right. Raw data at the end of a file may look like a journal;
/// whether a journal is there is therefore marked at the file's start, see TransactionalFile.
class Journal {
public:
  struct Trailer {
    std::uint64_t magic;
    std::uint64_t sequence;     ///< of the commit, from 1 on in each session
    std::uint64_t pages;        ///< at least 1
    std::uint64_t end;          ///< size of the file without the journal; at most `position`
    std::uint64_t position;     ///< file offset of the journal
    std::uint64_t bytes;        ///< of the journal
    std::uint64_t bodyChecksum; ///< of images and numbers
    std::uint64_t checksum;     ///< of the fields above
  };

  /// Size of a journal with `pages` pages, in bytes.
  static std::uint64_t BytesFor(std::uint64_t pages) noexcept;

  /// Writes a journal at `position`, a multiple of the page size. Find sees the journal only when the file
  /// ends with it.
  static Trailer Write(PositionedFile& file, std::uint64_t position,
                       std::span<PageOverlay::Page const* const> pages, std::uint64_t end,
                       std::uint64_t sequence);

  /// Returns the trailer of the journal at the file's end; nothing when there is none or it is not whole. A
  /// damaged trailer does no harm: every field is checked before it is used, and memory does not grow with
  /// the sizes that it gives.
  static std::optional<Trailer> Find(PositionedFile const& file);

  /// Calls visit(page number, image) for each page of a whole journal, the last page first.
  static void ForEachPageFromLast(PositionedFile const& file, Trailer const& trailer,
                                  std::function<void(std::uint64_t, std::byte const*)> const& visit);
};

} // namespace orx::file
