#include "sim/impl/store/Journal.h"

#include "sim/impl/store/Checksum.h"

#include <cstring>

namespace store {

namespace {

constexpr char mark[8] = {'O', 'r', 'x', 'J', 'r', 'n', 'l', '1'};
constexpr char wipedSignature[8] = {'O', 'r', 'x', 'A', 'p', 'p', 'l', 'y'};
constexpr std::size_t signatureBytes = 8;

struct Trailer {
  char mark[8];
  std::uint64_t sequence;
  std::uint64_t pageCount;
  std::uint64_t endOfAllocation;
  std::uint64_t position;
  std::uint64_t size;
  std::uint64_t checksum; ///< with 0 in its own place
};

std::uint64_t ListBytes(std::uint64_t pages) { return (pages * 8 + pageBytes - 1) / pageBytes * pageBytes; }
std::uint64_t SizeFor(std::uint64_t pages) { return pages * pageBytes + ListBytes(pages) + pageBytes; }

std::uint64_t ChecksumOf(Trailer trailer, Journal const& journal) {
  trailer.checksum = 0;
  std::uint64_t sum = Checksum(&trailer, sizeof trailer, 1);
  sum = Checksum(journal.images.data(), journal.images.size(), sum);
  return Checksum(journal.pages.data(), journal.pages.size() * 8, sum);
}

/// Whether the numbers fit the file and each other; nothing is allocated by them before.
bool IsPlausible(Trailer const& trailer, std::uint64_t fileSize) {
  return std::memcmp(trailer.mark, mark, sizeof mark) == 0 && trailer.pageCount >= 1 &&
         trailer.pageCount <= fileSize / pageBytes && trailer.size == SizeFor(trailer.pageCount) &&
         trailer.size <= fileSize && trailer.position == fileSize - trailer.size &&
         trailer.endOfAllocation <= trailer.position;
}

bool AreOrderedBelow(std::vector<std::uint64_t> const& pages, std::uint64_t end) {
  for (std::size_t k = 0; k < pages.size(); ++k)
    if (pages[k] >= end || (k > 0 && pages[k] <= pages[k - 1])) return false;
  return pages.empty() || pages[0] == 0;
}

} // namespace

Journal Journal::Of(PageOverlay const& overlay, PositionedFile const& file) {
  Journal journal;
  journal.pages = overlay.PageNumbers();
  if (journal.pages.empty() || journal.pages[0] != 0) journal.pages.insert(journal.pages.begin(), 0);
  journal.images.resize(journal.pages.size() * pageBytes);
  for (std::size_t k = 0; k < journal.pages.size(); ++k) {
    std::byte* const image = journal.images.data() + k * pageBytes;
    file.ReadZeroFilled(journal.pages[k] * pageBytes, image, pageBytes);
    overlay.Cover(journal.pages[k] * pageBytes, image, pageBytes);
  }
  return journal;
}

std::optional<Journal> Journal::ReadFrom(PositionedFile const& file) {
  std::uint64_t const fileSize = file.Size();
  if (fileSize < 3 * pageBytes || fileSize % pageBytes != 0) return std::nullopt;
  Trailer trailer;
  file.ReadAt(fileSize - pageBytes, &trailer, sizeof trailer);
  if (!IsPlausible(trailer, fileSize)) return std::nullopt;
  Journal journal;
  journal.endOfAllocation = trailer.endOfAllocation;
  journal.sequence = trailer.sequence;
  journal.images.resize(trailer.pageCount * pageBytes);
  journal.pages.resize(trailer.pageCount);
  file.ReadAt(trailer.position, journal.images.data(), journal.images.size());
  file.ReadAt(trailer.position + journal.images.size(), journal.pages.data(), journal.pages.size() * 8);
  if (ChecksumOf(trailer, journal) != trailer.checksum) return std::nullopt;
  if (!AreOrderedBelow(journal.pages, trailer.position / pageBytes)) return std::nullopt;
  return journal;
}

std::uint64_t Journal::Size() const noexcept { return SizeFor(pages.size()); }

void Journal::WriteTo(PositionedFile& file, std::uint64_t position) const {
  Trailer trailer{.mark = {},
                  .sequence = sequence,
                  .pageCount = pages.size(),
                  .endOfAllocation = endOfAllocation,
                  .position = position,
                  .size = Size(),
                  .checksum = 0};
  std::memcpy(trailer.mark, mark, sizeof mark);
  trailer.checksum = ChecksumOf(trailer, *this);
  std::vector<std::byte> tail(ListBytes(pages.size()) + pageBytes);
  std::memcpy(tail.data(), pages.data(), pages.size() * 8);
  std::memcpy(tail.data() + ListBytes(pages.size()), &trailer, sizeof trailer);
  file.Resize(position + Size());
  file.WriteAt(position, images.data(), images.size());
  file.WriteAt(position + images.size(), tail.data(), tail.size());
}

void Journal::Apply(PositionedFile& file) const {
  file.WriteAt(0, wipedSignature, signatureBytes);
  for (std::size_t k = pages.size(); k-- > 1;) {
    // Neighbouring pages go in one call.
    std::size_t first = k;
    while (first > 1 && pages[first - 1] + 1 == pages[first])
      --first;
    file.WriteAt(pages[first] * pageBytes, Image(first), (k - first + 1) * pageBytes);
    k = first;
  }
  file.WriteAt(signatureBytes, Image(0) + signatureBytes, pageBytes - signatureBytes);
  file.WriteAt(0, Image(0), signatureBytes);
}

} // namespace store
