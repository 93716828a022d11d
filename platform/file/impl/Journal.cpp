#include "file/Journal.h"

#include "file/Checksum.h"
#include "file/PositionedFile.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

namespace orx::file {

namespace {

using Trailer = Journal::Trailer;

constexpr std::uint64_t pageBytes = PageOverlay::pageBytes;
constexpr std::uint64_t numbersInPage = pageBytes / sizeof(std::uint64_t);
constexpr std::uint64_t magic = 0x316c6e726a78726f; // "orxjrnl1"

using NumberPage = std::array<std::uint64_t, numbersInPage>;
using BytePage = std::array<std::byte, pageBytes>;

static_assert(sizeof(Trailer) == 64 && sizeof(Trailer) <= pageBytes);

std::uint64_t NumberPages(std::uint64_t pages) { return (pages + numbersInPage - 1) / numbersInPage; }

std::uint64_t ChecksumOf(Trailer const& trailer) {
  return Checksum(&trailer, offsetof(Trailer, checksum), 1);
}

/// Writes consecutive pages, many with one call, and computes the checksum over all of them.
class PageWriter {
public:
  PageWriter(PositionedFile& file, std::uint64_t position) : m_file(file), m_position(position) {
    m_pending.reserve(atOnce);
  }

  void AddPage(void const* page) {
    if (m_pending.size() == atOnce) Flush();
    auto const* const bytes = static_cast<std::byte const*>(page);
    m_pending.insert(m_pending.end(), bytes, bytes + pageBytes);
    m_checksum = Checksum(page, pageBytes, m_checksum);
  }
  void Flush() {
    m_file.WriteAt(m_position, m_pending.data(), m_pending.size());
    m_position += m_pending.size();
    m_pending.clear();
  }
  std::uint64_t ChecksumSoFar() const noexcept { return m_checksum; }

private:
  static constexpr std::size_t atOnce = 256 * pageBytes;

  PositionedFile& m_file;
  std::uint64_t m_position;
  std::vector<std::byte> m_pending;
  std::uint64_t m_checksum = 1;
};

NumberPage ReadNumbers(PositionedFile const& file, Trailer const& trailer, std::uint64_t page) {
  NumberPage numbers;
  file.ReadAt(trailer.position + (trailer.pages + page) * pageBytes, numbers.data(), pageBytes);
  return numbers;
}

/// True when a commit can have these page numbers: they begin with 0, ascend, and lie before the
/// journal.
bool HasSoundNumbers(PositionedFile const& file, Trailer const& trailer) {
  std::uint64_t const journalPage = trailer.position / pageBytes;
  std::uint64_t smallest = 0;
  for (std::uint64_t page = 0; page < NumberPages(trailer.pages); ++page) {
    NumberPage const numbers = ReadNumbers(file, trailer, page);
    if (page == 0 && numbers[0] != 0) return false;
    std::uint64_t const here = std::min(numbersInPage, trailer.pages - page * numbersInPage);
    for (std::uint64_t k = 0; k < here; ++k) {
      if (numbers[k] < smallest || numbers[k] >= journalPage) return false;
      smallest = numbers[k] + 1;
    }
  }
  return true;
}

std::uint64_t BodyChecksum(PositionedFile const& file, Trailer const& trailer) {
  std::uint64_t sum = 1;
  BytePage page;
  std::uint64_t const pages = trailer.pages + NumberPages(trailer.pages);
  for (std::uint64_t k = 0; k < pages; ++k) {
    file.ReadAt(trailer.position + k * pageBytes, page.data(), pageBytes);
    sum = Checksum(page.data(), pageBytes, sum);
  }
  return sum;
}

/// True when Write can have written these fields to a file of this size.
bool IsSound(Trailer const& trailer, std::uint64_t size) {
  return trailer.magic == magic && trailer.checksum == ChecksumOf(trailer) && trailer.pages > 0 &&
         trailer.pages <= size / pageBytes && trailer.bytes == Journal::BytesFor(trailer.pages) &&
         trailer.position < size && trailer.bytes == size - trailer.position &&
         trailer.position % pageBytes == 0 && trailer.end <= trailer.position;
}

} // namespace

std::uint64_t Journal::BytesFor(std::uint64_t pages) noexcept {
  return (pages + NumberPages(pages) + 1) * pageBytes;
}

Trailer Journal::Write(PositionedFile& file, std::uint64_t position,
                       std::span<PageOverlay::Page const* const> pages, std::uint64_t end,
                       std::uint64_t sequence) {
  PageWriter writer(file, position);
  for (PageOverlay::Page const* const page : pages)
    writer.AddPage(page->bytes.data());
  for (std::size_t first = 0; first < pages.size(); first += numbersInPage) {
    NumberPage numbers{};
    std::size_t const here = std::min<std::size_t>(numbersInPage, pages.size() - first);
    for (std::size_t k = 0; k < here; ++k)
      numbers[k] = pages[first + k]->number;
    writer.AddPage(numbers.data());
  }
  Trailer trailer{.magic = magic,
                  .sequence = sequence,
                  .pages = pages.size(),
                  .end = end,
                  .position = position,
                  .bytes = BytesFor(pages.size()),
                  .bodyChecksum = writer.ChecksumSoFar(),
                  .checksum = 0};
  trailer.checksum = ChecksumOf(trailer);
  BytePage last{};
  std::memcpy(last.data(), &trailer, sizeof trailer);
  writer.AddPage(last.data());
  writer.Flush();
  return trailer;
}

std::optional<Trailer> Journal::Find(PositionedFile const& file) {
  std::uint64_t const size = file.Size();
  if (size < BytesFor(1) || size % pageBytes != 0) return {};
  Trailer trailer;
  file.ReadAt(size - pageBytes, &trailer, sizeof trailer);
  if (!IsSound(trailer, size)) return {};
  bool const isWhole = HasSoundNumbers(file, trailer) && BodyChecksum(file, trailer) == trailer.bodyChecksum;
  return isWhole ? std::optional(trailer) : std::nullopt;
}

void Journal::ForEachPageFromLast(PositionedFile const& file, Trailer const& trailer,
                                  std::function<void(std::uint64_t, std::byte const*)> const& visit) {
  BytePage image;
  for (std::uint64_t numberPage = NumberPages(trailer.pages); numberPage-- > 0;) {
    NumberPage const numbers = ReadNumbers(file, trailer, numberPage);
    std::uint64_t const first = numberPage * numbersInPage;
    for (std::uint64_t k = std::min(numbersInPage, trailer.pages - first); k-- > 0;) {
      file.ReadAt(trailer.position + (first + k) * pageBytes, image.data(), pageBytes);
      visit(numbers[k], image.data());
    }
  }
}

} // namespace orx::file
