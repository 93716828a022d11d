#include "file/PageOverlay.h"

#include "file/PositionedFile.h"

#include <algorithm>
#include <cstring>
#include <ranges>

namespace orx::file {

namespace {

constexpr std::uint64_t allBits = ~std::uint64_t{0};

/// The bytes of a file range that lie in one page.
struct PageRange {
  std::uint64_t page;
  std::size_t inPage;
  std::size_t inRange;
  std::size_t bytes;
};

template<class Visit>
void ForEachPage(std::uint64_t offset, std::size_t bytes, Visit visit) {
  for (std::size_t done = 0; done < bytes;) {
    std::uint64_t const at = offset + done;
    std::size_t const inPage = at % PageOverlay::pageBytes;
    std::size_t const here = std::min(PageOverlay::pageBytes - inPage, bytes - done);
    visit(PageRange{.page = at / PageOverlay::pageBytes, .inPage = inPage, .inRange = done, .bytes = here});
    done += here;
  }
}

/// Calls visit(word, mask) for each 64-bit word of a page's bits that has bits of [begin, end); the mask has
/// these bits.
template<class Visit>
void ForEachWord(std::size_t begin, std::size_t end, Visit visit) {
  for (std::size_t word = begin / 64; word * 64 < end; ++word) {
    std::size_t const first = std::max(begin, word * 64) - word * 64;
    std::size_t const last = std::min(end, word * 64 + 64) - word * 64; // one past the last bit, at most 64
    visit(word, (allBits << first) & (allBits >> (64 - last)));
  }
}

/// Copies the held bytes of [begin, end) in a page (`isHeld`), or the bytes that are not held.
void CopyHeldOrOthers(bool isHeld, PageOverlay::Page const& page, std::size_t begin, std::size_t end,
                      std::byte const* from, std::byte* to) {
  ForEachWord(begin, end, [&](std::size_t word, std::uint64_t mask) {
    std::uint64_t const held = page.held[word];
    std::uint64_t const chosen = (isHeld ? held : ~held) & mask;
    if (chosen == 0) return;
    std::size_t const first = std::max(begin, word * 64);
    if (chosen == mask) {
      std::memcpy(to + first, from + first, std::min(end, word * 64 + 64) - first);
      return;
    }
    for (std::size_t bit = 0; bit < 64; ++bit)
      if ((chosen >> bit & 1) != 0) to[word * 64 + bit] = from[word * 64 + bit];
  });
}

/// Drops the held bytes of the file range [offset, end), which begins before the end of the page and ends
/// behind its start. Returns true when the page holds nothing any longer.
bool ReleaseRange(PageOverlay::Page& page, std::uint64_t offset, std::uint64_t end) {
  std::uint64_t const start = page.number * PageOverlay::pageBytes;
  std::size_t const first = std::max(offset, start) - start;
  std::size_t const last = std::min(end, start + PageOverlay::pageBytes) - start;
  ForEachWord(first, last, [&](std::size_t word, std::uint64_t mask) { page.held[word] &= ~mask; });
  return std::ranges::all_of(page.held, [](std::uint64_t word) { return word == 0; });
}

bool IsWhole(PageOverlay::Page const& page) {
  return std::ranges::all_of(page.held, [](std::uint64_t word) { return word == allBits; });
}

} // namespace

PageOverlay::Page* PageOverlay::Find(std::uint64_t number) const noexcept {
  auto const found = m_pages.find(number);
  return found == m_pages.end() ? nullptr : found->second.get();
}

PageOverlay::Page& PageOverlay::FindOrAdd(std::uint64_t number) {
  if (Page* const page = Find(number)) return *page;
  auto page = std::make_unique<Page>();
  page->number = number;
  return *m_pages.emplace(number, std::move(page)).first->second;
}

void PageOverlay::Write(std::uint64_t offset, void const* from, std::size_t bytes) {
  auto const* const source = static_cast<std::byte const*>(from);
  ForEachPage(offset, bytes, [&](PageRange const& range) {
    Page& page = FindOrAdd(range.page);
    std::memcpy(page.bytes.data() + range.inPage, source + range.inRange, range.bytes);
    ForEachWord(range.inPage, range.inPage + range.bytes,
                [&](std::size_t word, std::uint64_t mask) { page.held[word] |= mask; });
  });
}

void PageOverlay::CopyHeldBytes(std::uint64_t offset, void* buffer, std::size_t bytes) const {
  if (IsEmpty()) return;
  auto* const target = static_cast<std::byte*>(buffer);
  ForEachPage(offset, bytes, [&](PageRange const& range) {
    Page const* const page = Find(range.page);
    if (page == nullptr) return;
    std::array<std::byte, pageBytes> merged;
    std::memcpy(merged.data() + range.inPage, target + range.inRange, range.bytes);
    CopyHeldOrOthers(true, *page, range.inPage, range.inPage + range.bytes, page->bytes.data(),
                     merged.data());
    std::memcpy(target + range.inRange, merged.data() + range.inPage, range.bytes);
  });
}

void PageOverlay::ReleaseBytes(std::uint64_t offset, std::uint64_t bytes) {
  if (IsEmpty() || bytes == 0) return;
  std::uint64_t const end = offset + bytes;
  std::uint64_t const firstPage = offset / pageBytes;
  std::uint64_t const lastPage = (end - 1) / pageBytes;
  if (lastPage - firstPage < m_pages.size()) {
    for (std::uint64_t number = firstPage; number <= lastPage; ++number)
      if (Page* const page = Find(number); page != nullptr && ReleaseRange(*page, offset, end))
        m_pages.erase(number);
    return;
  }
  std::erase_if(m_pages, [&](auto const& entry) {
    return entry.first >= firstPage && entry.first <= lastPage && ReleaseRange(*entry.second, offset, end);
  });
}

void PageOverlay::Clear() noexcept { m_pages.clear(); }

std::vector<PageOverlay::Page const*> PageOverlay::CompleteImages(PositionedFile const& file) {
  std::vector<Page const*> pages;
  pages.reserve(m_pages.size());
  std::array<std::byte, pageBytes> inFile;
  for (auto const& entry : m_pages) {
    Page& page = *entry.second;
    if (!IsWhole(page)) {
      file.ReadZeroFilled(page.number * pageBytes, inFile.data(), pageBytes);
      CopyHeldOrOthers(false, page, 0, pageBytes, inFile.data(), page.bytes.data());
    }
    pages.push_back(&page);
  }
  std::ranges::sort(pages, {}, &Page::number);
  return pages;
}

} // namespace orx::file
