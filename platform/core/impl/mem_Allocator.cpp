#include "core/mem_Allocator.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sys/mman.h>

// Small objects are cells of slabs:
//
//     slab (2 MB, aligned to 2 MB)   | SlabHeader | cell | cell | cell | ...          all cells of one size
//     slabBits                       one bit for each 2 MB of address space, 1 where a slab lies
//
// With one load from slabBits mem_Free tells a cell from a block of malloc. The array takes memory only
// around bits of slabs: its other pages are never touched. A slab whose cells are all free moves to a pool,
// from which it serves cells of any size.

namespace {

constexpr std::size_t slabBytes = std::size_t{2} << 20;
constexpr std::size_t cellStep = 16;
constexpr std::size_t largestCell = 1024;
constexpr std::size_t cellSizes = largestCell / cellStep;
/// Requests of fewer bytes get cells.
#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t cellLimit = 0; // the sanitizer finds faults in blocks of malloc only
#else
constexpr std::size_t cellLimit = largestCell + 1;
#endif
constexpr std::size_t hugePageBytes = slabBytes;
/// From this size on a block of malloc is a mapping of its own, which is aligned to huge pages.
constexpr std::size_t largeArrayBytes = std::size_t{4} << 20;
/// Most empty slabs that the pool keeps for reuse; further ones are given back to the system.
constexpr std::size_t pooledSlabs = 16;

struct FreeCell {
  FreeCell* next;
};

struct Slab {
  std::size_t cellBytes;
  std::size_t used;   ///< cells given out
  FreeCell* returned; ///< cells given back
  char* untouched;    ///< cells from here on were never given out
  char* end;          ///< behind the last whole cell
  Slab* previous;     ///< in the list of slabs of this cell size with free cells
  Slab* next;         ///< in the same list, or in the pool
  bool listed;        ///< true when the slab is in that list
};
constexpr std::size_t slabHeaderBytes = (sizeof(Slab) + 63) / 64 * 64;

Slab* slabsWithFreeCells[cellSizes]; ///< lists by cell size; new cells come from the first slab of a list
std::size_t slabsOfSize[cellSizes];  ///< number of slabs with cells of each size
Slab* pool;
std::size_t poolCount;
std::uint64_t slabBits[(std::uint64_t{1} << 48) / slabBytes / 64]; ///< 48 bits of address space

std::uint64_t SlabNumber(void const* address) noexcept {
  return reinterpret_cast<std::uintptr_t>(address) / slabBytes;
}
bool IsInSlab(void const* address) noexcept {
  std::uint64_t const number = SlabNumber(address);
  return number / 64 < std::size(slabBits) && (slabBits[number / 64] >> (number % 64) & 1) != 0;
}
Slab* SlabOf(void* cell) noexcept {
  return reinterpret_cast<Slab*>(static_cast<char*>(cell) -
                                 reinterpret_cast<std::uintptr_t>(cell) % slabBytes);
}

/// Maps memory for a slab, aligned to its size; returns null when there is none. The caller unmaps it.
void* MapSlab() noexcept {
  void* const map = mmap(nullptr, 2 * slabBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (map == MAP_FAILED) return nullptr;
  auto* const begin = static_cast<char*>(map);
  std::size_t const head = (slabBytes - reinterpret_cast<std::uintptr_t>(begin) % slabBytes) % slabBytes;
  if (head != 0) munmap(begin, head);
  munmap(begin + head + slabBytes, slabBytes - head);
  return begin + head;
}

Slab* NewSlab(std::size_t sizeIndex) {
  std::size_t const cellBytes = (sizeIndex + 1) * cellStep;
  Slab* slab = pool;
  if (slab != nullptr) {
    pool = slab->next;
    --poolCount;
  } else {
    slab = static_cast<Slab*>(MapSlab());
    if (slab == nullptr || SlabNumber(slab) / 64 >= std::size(slabBits)) throw mem_OutOfMemory(cellBytes);
    // The first slab of a size has small pages: a program with a handful of small objects would not fill a
    // huge page.
    if (slabsOfSize[sizeIndex] > 0) madvise(slab, slabBytes, MADV_HUGEPAGE);
    slabBits[SlabNumber(slab) / 64] |= std::uint64_t{1} << (SlabNumber(slab) % 64);
  }
  char* const cells = reinterpret_cast<char*>(slab) + slabHeaderBytes;
  std::size_t const count = (slabBytes - slabHeaderBytes) / cellBytes;
  ++slabsOfSize[sizeIndex];
  return new (slab) Slab{cellBytes, 0, nullptr, cells, cells + count * cellBytes, nullptr, nullptr, false};
}

void ListSlab(Slab* slab, std::size_t sizeIndex) noexcept {
  Slab*& first = slabsWithFreeCells[sizeIndex];
  slab->previous = nullptr;
  slab->next = first;
  if (first != nullptr) first->previous = slab;
  first = slab;
  slab->listed = true;
}

void UnlistSlab(Slab* slab, std::size_t sizeIndex) noexcept {
  (slab->previous != nullptr ? slab->previous->next : slabsWithFreeCells[sizeIndex]) = slab->next;
  if (slab->next != nullptr) slab->next->previous = slab->previous;
  slab->listed = false;
}

void* NewCell(std::size_t sizeIndex) {
  if (slabsWithFreeCells[sizeIndex] == nullptr) ListSlab(NewSlab(sizeIndex), sizeIndex);
  Slab* const slab = slabsWithFreeCells[sizeIndex];
  void* cell = slab->returned;
  if (cell != nullptr) {
    slab->returned = slab->returned->next;
  } else {
    cell = slab->untouched;
    slab->untouched += slab->cellBytes;
  }
  ++slab->used;
  if (slab->returned == nullptr && slab->untouched == slab->end) UnlistSlab(slab, sizeIndex);
  return cell;
}

/// Moves an empty slab from the list of its cell size to the pool, or unmaps it when the pool is full.
void RetireSlab(Slab* slab, std::size_t sizeIndex) noexcept {
  UnlistSlab(slab, sizeIndex);
  --slabsOfSize[sizeIndex];
  if (poolCount < pooledSlabs) {
    slab->next = pool;
    pool = slab;
    ++poolCount;
    return;
  }
  slabBits[SlabNumber(slab) / 64] &= ~(std::uint64_t{1} << (SlabNumber(slab) % 64));
  munmap(slab, slabBytes);
}

void FreeOfSlab(void* block) noexcept {
  Slab* const slab = SlabOf(block);
  std::size_t const sizeIndex = slab->cellBytes / cellStep - 1;
  slab->returned = new (block) FreeCell{slab->returned};
  --slab->used;
  if (!slab->listed) ListSlab(slab, sizeIndex);
  // The last slab of a size stays: a single object that is made and freed in turn would map and unmap it.
  bool const onlyOne = slab->previous == nullptr && slab->next == nullptr;
  if (slab->used == 0 && !onlyOne) RetireSlab(slab, sizeIndex);
}

void* RequireBlock(void* block, std::size_t bytes) {
  if (block == nullptr) throw mem_OutOfMemory(bytes);
  return block;
}

/// Returns the number of bytes to ask malloc for, at least 1. Raises mem_OutOfMemory for a number that
/// overflows when it is rounded up.
std::size_t RequirePlausible(std::size_t bytes) {
  if (bytes > static_cast<std::size_t>(PTRDIFF_MAX) - hugePageBytes) throw mem_OutOfMemory(bytes);
  return std::max<std::size_t>(bytes, 1);
}

void AskForHugePages(void* block, std::size_t bytes) noexcept {
  std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(block);
  std::uintptr_t const from = (begin + hugePageBytes - 1) / hugePageBytes * hugePageBytes;
  std::uintptr_t const to = (begin + bytes) / hugePageBytes * hugePageBytes;
  if (from < to) madvise(static_cast<char*>(block) + (from - begin), to - from, MADV_HUGEPAGE);
}

} // namespace

mem_OutOfMemory::mem_OutOfMemory(std::size_t bytes) noexcept : m_bytes(bytes) {
  std::snprintf(m_text, sizeof m_text, "out of memory: %zu bytes wanted", bytes);
}

void* mem_OperatorNewThrow(std::size_t bytes) {
  return RequireBlock(std::malloc(RequirePlausible(bytes)), bytes);
}

void* mem_OperatorNewTinyThrow(std::size_t bytes) {
  if (bytes < cellLimit) return NewCell(bytes == 0 ? 0 : (bytes - 1) / cellStep);
  return mem_OperatorNewThrow(bytes);
}

void* mem_OperatorNewThrowBuiltin(std::size_t bytes) {
  std::size_t const plausible = RequirePlausible(bytes);
  if (plausible < largeArrayBytes) return RequireBlock(std::malloc(plausible), bytes);
  std::size_t const rounded = (plausible + hugePageBytes - 1) / hugePageBytes * hugePageBytes;
  void* const block = RequireBlock(std::aligned_alloc(hugePageBytes, rounded), bytes);
  AskForHugePages(block, rounded);
  return block;
}

void* mem_ReallocThrowBuiltin(void* block, std::size_t bytes) {
  if (block == nullptr) return mem_OperatorNewThrowBuiltin(bytes);
  void* const moved = RequireBlock(std::realloc(block, RequirePlausible(bytes)), bytes);
  if (bytes >= largeArrayBytes) AskForHugePages(moved, bytes);
  return moved;
}

void mem_Free(void* block) noexcept {
  if (block == nullptr) return;
  if (IsInSlab(block)) {
    FreeOfSlab(block);
  } else {
    std::free(block);
  }
}
