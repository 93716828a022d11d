#include "sim/impl/store/PageOverlay.h"

#include <algorithm>
#include <cstring>

namespace store {

namespace {

/// Calls visit(page number, first byte inside it, bytes, bytes before) for each page that a range touches.
template<class Visit>
void ForEachPage(std::uint64_t offset, std::size_t bytes, Visit&& visit) {
  for (std::size_t done = 0; done < bytes;) {
    std::uint64_t const at = offset + done;
    std::size_t const first = at % pageBytes;
    std::size_t const count = std::min(pageBytes - first, bytes - done);
    visit(at / pageBytes, first, count, done);
    done += count;
  }
}

/// Bits first ... first + count - 1 of a word; count is at least 1.
std::uint64_t Bits(std::size_t first, std::size_t count) {
  return (count == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1) << first;
}

/// Calls visit(word, first bit, count) for each word of a mask that a range of bits touches.
template<class Visit>
void ForEachWord(std::size_t first, std::size_t count, Visit&& visit) {
  for (std::size_t const end = first + count; first < end;) {
    std::size_t const bit = first % 64;
    std::size_t const here = std::min(64 - bit, end - first);
    visit(first / 64, bit, here);
    first += here;
  }
}

} // namespace

std::vector<std::uint64_t> PageOverlay::PageNumbers() const {
  std::vector<std::uint64_t> numbers;
  numbers.reserve(m_pages.size());
  for (auto const& page : m_pages)
    numbers.push_back(page.first);
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

void PageOverlay::Write(std::uint64_t offset, void const* from, std::size_t bytes) {
  auto const* source = static_cast<std::byte const*>(from);
  ForEachPage(offset, bytes,
              [&](std::uint64_t number, std::size_t first, std::size_t count, std::size_t done) {
                auto& page = m_pages[number];
                if (page == nullptr) page = std::make_unique<Page>();
                std::memcpy(page->bytes.data() + first, source + done, count);
                ForEachWord(first, count, [&](std::size_t word, std::size_t bit, std::size_t here) {
                  page->written[word] |= Bits(bit, here);
                });
              });
}

void PageOverlay::Cover(std::uint64_t offset, void* onto, std::size_t bytes) const {
  if (IsEmpty()) return;
  auto* target = static_cast<std::byte*>(onto);
  ForEachPage(offset, bytes,
              [&](std::uint64_t number, std::size_t first, std::size_t count, std::size_t done) {
                auto const found = m_pages.find(number);
                if (found == m_pages.end() || found->second == nullptr) return;
                Page const& page = *found->second;
                ForEachWord(first, count, [&](std::size_t word, std::size_t bit, std::size_t here) {
                  std::size_t const at = word * 64 + bit;
                  std::uint64_t const wanted = Bits(bit, here);
                  if ((page.written[word] & wanted) == wanted) {
                    std::memcpy(target + done + (at - first), page.bytes.data() + at, here);
                    return;
                  }
                  for (std::size_t k = 0; k < here; ++k)
                    if ((page.written[word] >> (bit + k) & 1) != 0)
                      target[done + (at - first) + k] = page.bytes[at + k];
                });
              });
}

} // namespace store
