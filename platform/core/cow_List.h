#pragma once

#include "core/mem_Allocator.h"
#include "core/orx_export.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <span>
#include <stdexcept>
#include <type_traits>

// A copy-on-write list of fixed-size records, stored in blocks of 2^blockShift records:
//
//     position p = first + i                 element i of the list
//     block    p >> blockShift               blocks[]  ->  | uses | record 0 | record 1 | ... |
//     slot     p & (2^blockShift - 1)
//
// Copies of a list share its block table by a use count. Before its first change a list detaches: it makes
// its own table of the same blocks. It copies a shared block when it writes to the block.

/// Reports an index outside a list, a fault of the caller, and ends the process.
[[noreturn]] ORX_EXPORT void cow_ListRangeFailure(int index, int count) noexcept;

/// A block of a list: a use count and the records behind it, in one allocation.
template<class T>
struct cow_ListBlock {
  static constexpr std::size_t recordsOffset = std::max(sizeof(std::int32_t), alignof(T));
  std::int32_t uses;

  T* Records() noexcept { return reinterpret_cast<T*>(reinterpret_cast<char*>(this) + recordsOffset); }
  static cow_ListBlock* New(std::size_t records) {
    return new (mem_OperatorNewTinyThrow(recordsOffset + records * sizeof(T))) cow_ListBlock{1};
  }
};

template<class T>
class cow_List {
  static_assert(std::is_trivially_copyable_v<T>, "records are moved as bytes");

public:
  /// An empty list. Blocks hold 16 records for an expected count of 0, and more for larger counts, which
  /// keeps the block table short.
  explicit cow_List(int expectedCount = 0);
  cow_List(cow_List const& other) noexcept;
  cow_List& operator=(cow_List const& other) noexcept;
  ~cow_List() { Release(); }

  int Count() const noexcept { return m_count; }
  int BlockShift() const noexcept { return m_blockShift; }
  int BlockTableSize() const noexcept { return m_blockTableSize; }
  int First() const noexcept { return m_first; }

  /// Element i, zero-based; an index outside the list ends the process.
  T const& ConstGet(int i) const noexcept {
    if (i < 0 || i >= m_count) cow_ListRangeFailure(i, m_count);
    return UncheckedConstGet(i);
  }
  T const& UncheckedConstGet(int i) const noexcept {
    std::int64_t const position = std::int64_t{m_first} + i;
    return m_blocks[position >> m_blockShift]->Records()[position & SlotMask()];
  }
  /// Element i for writing; copies of the list keep their records. The range is checked as in ConstGet.
  T& Get(int i);

  /// Adds a record at the end, in amortized constant time. A full list (2^31 - 1 positions) raises
  /// std::length_error.
  void Append(T const& record) {
    if (m_appendAt == m_appendEnd) OpenAppendRange();
    *m_appendAt++ = record;
    ++m_count;
  }

  /// Shortens the list to n records. A larger n makes the block table long enough for n records, and leaves
  /// the count as it is.
  void Resize(int n);
  /// Removes the n leading records and frees the blocks that held no other records.
  void DropFront(int n);

  /// The consecutive records from element i to the end of its block or of the list, for reading.
  std::span<T const> RunFrom(int i) const noexcept {
    std::int64_t const position = std::int64_t{m_first} + i;
    std::int64_t const inBlock = (std::int64_t{1} << m_blockShift) - (position & SlotMask());
    return {&UncheckedConstGet(i), static_cast<std::size_t>(std::min<std::int64_t>(inBlock, m_count - i))};
  }

private:
  using Block = cow_ListBlock<T>;
  static constexpr int smallestShift = 4;

  std::int64_t SlotMask() const noexcept { return (std::int64_t{1} << m_blockShift) - 1; }
  std::int64_t BlocksFor(std::int64_t positions) const noexcept {
    return (positions + SlotMask()) >> m_blockShift;
  }
  void CloseAppendRange() const noexcept { m_appendAt = m_appendEnd = nullptr; }
  void OpenAppendRange();
  void Detach();
  Block* WritableBlock(std::int64_t index);
  static void ReleaseBlock(Block*& block) noexcept {
    if (block != nullptr && --block->uses == 0) mem_Free(block);
    block = nullptr;
  }
  void SetTableSize(std::int64_t slots);
  void Release() noexcept;
  void ShareWith(cow_List const& other) noexcept;

  int m_count = 0;
  int m_blockTableSize = 0; ///< slots in use of the table, a multiple of 16 once the list has been resized
  int m_blockShift = smallestShift;
  int m_first = 0;      ///< position of element 0
  std::int32_t* m_uses; ///< number of lists that share the table
  Block** m_blocks = nullptr;
  /// Slots allocated. The capacity grows by half: a list that grows record by record moves its table a
  /// logarithmic number of times.
  std::int64_t m_tableCapacity = 0;
  /// Free slots behind the last record, in a block that no other list uses; an empty range when that is not
  /// known. Copying a list empties the range of its source, hence mutable.
  mutable T* m_appendAt = nullptr;
  mutable T* m_appendEnd = nullptr;
};

template<class T>
cow_List<T>::cow_List(int expectedCount)
    : m_uses(new (mem_OperatorNewTinyThrow(sizeof(std::int32_t))) std::int32_t(1)) {
  if (expectedCount <= 0) return;
  // 8 to 15 blocks, by the leading bits of the expected count, and 16 slots to spare.
  int const exponent = std::ilogb(expectedCount) - 3;
  m_blockShift = std::max(smallestShift, exponent);
  try {
    SetTableSize(static_cast<std::int64_t>(std::ldexp(expectedCount, -exponent)) + 16);
  } catch (...) {
    mem_Free(m_uses);
    throw;
  }
}

template<class T>
cow_List<T>::cow_List(cow_List const& other) noexcept {
  ShareWith(other);
}

template<class T>
cow_List<T>& cow_List<T>::operator=(cow_List const& other) noexcept {
  if (this == &other) return *this;
  Release();
  ShareWith(other);
  return *this;
}

template<class T>
void cow_List<T>::ShareWith(cow_List const& other) noexcept {
  other.CloseAppendRange();
  CloseAppendRange();
  m_count = other.m_count;
  m_blockTableSize = other.m_blockTableSize;
  m_blockShift = other.m_blockShift;
  m_first = other.m_first;
  m_uses = other.m_uses;
  m_blocks = other.m_blocks;
  m_tableCapacity = other.m_tableCapacity;
  ++*m_uses;
}

template<class T>
void cow_List<T>::Release() noexcept {
  if (--*m_uses != 0) return;
  for (int b = 0; b < m_blockTableSize; ++b)
    ReleaseBlock(m_blocks[b]);
  mem_Free(m_blocks);
  mem_Free(m_uses);
}

template<class T>
void cow_List<T>::Detach() {
  if (*m_uses == 1) return;
  mem_Array<Block*> table = mem_MakeArray<Block*>(m_blockTableSize);
  auto* const uses = new (mem_OperatorNewTinyThrow(sizeof(std::int32_t))) std::int32_t(1);
  for (int b = 0; b < m_blockTableSize; ++b) {
    table[b] = m_blocks[b];
    if (table[b] != nullptr) ++table[b]->uses;
  }
  --*m_uses;
  m_uses = uses;
  m_blocks = table.release();
  m_tableCapacity = m_blockTableSize;
  CloseAppendRange();
}

template<class T>
void cow_List<T>::SetTableSize(std::int64_t slots) {
  if (slots == 0) {
    mem_Free(m_blocks);
    m_blocks = nullptr;
    m_tableCapacity = 0;
  } else if (slots > m_tableCapacity) {
    std::int64_t const capacity = std::max(slots, m_tableCapacity + m_tableCapacity / 2);
    m_blocks =
        static_cast<Block**>(mem_ReallocThrowBuiltin(m_blocks, mem_ArrayBytes(capacity, sizeof(Block*))));
    m_tableCapacity = capacity;
  }
  if (slots > m_blockTableSize) std::fill(m_blocks + m_blockTableSize, m_blocks + slots, nullptr);
  m_blockTableSize = static_cast<int>(slots);
}

template<class T>
typename cow_List<T>::Block* cow_List<T>::WritableBlock(std::int64_t index) {
  // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): the caller has sized the table
  Block*& block = m_blocks[index];
  if (block == nullptr) {
    block = Block::New(std::size_t{1} << m_blockShift);
  } else if (block->uses != 1) {
    Block* const copy = Block::New(std::size_t{1} << m_blockShift);
    // Only slots with records of this list are copied: the others may never have been written.
    std::int64_t const begin = index << m_blockShift;
    std::int64_t const from = std::max<std::int64_t>(begin, m_first);
    std::int64_t const to = std::min(begin + SlotMask() + 1, std::int64_t{m_first} + m_count);
    if (from < to)
      std::copy(block->Records() + (from - begin), block->Records() + (to - begin),
                copy->Records() + (from - begin));
    --block->uses;
    block = copy;
  }
  return block;
}

template<class T>
void cow_List<T>::OpenAppendRange() {
  std::int64_t const position = std::int64_t{m_first} + m_count;
  if (position >= INT32_MAX) throw std::length_error("cow_List: more than 2147483647 records");
  Resize(m_count + 1);
  Block* const block = WritableBlock(position >> m_blockShift);
  m_appendAt = block->Records() + (position & SlotMask());
  m_appendEnd = block->Records() +
                std::min<std::int64_t>(SlotMask() + 1, (position & SlotMask()) + INT32_MAX - position);
}

template<class T>
T& cow_List<T>::Get(int i) {
  if (i < 0 || i >= m_count) cow_ListRangeFailure(i, m_count);
  Detach();
  std::int64_t const position = std::int64_t{m_first} + i;
  return WritableBlock(position >> m_blockShift)->Records()[position & SlotMask()];
}

template<class T>
void cow_List<T>::Resize(int n) {
  Detach();
  std::int64_t const used = n == 0 ? 0 : std::int64_t{n} + m_first;
  std::int64_t const blocks = BlocksFor(used);
  bool const shrinks = n < m_count;
  if (shrinks) {
    CloseAppendRange();
    for (std::int64_t b = blocks; b < m_blockTableSize; ++b)
      ReleaseBlock(m_blocks[b]);
    m_count = n;
    if (blocks > 0 && m_blocks[blocks - 1]->uses != 1) WritableBlock(blocks - 1);
  }
  int const slotGroupShift = m_blockShift + 4;
  std::int64_t const slots = ((used + (std::int64_t{1} << slotGroupShift) - 1) >> slotGroupShift) * 16;
  if (slots != m_blockTableSize && (shrinks || slots > m_blockTableSize || n == 0)) SetTableSize(slots);
  if (n == 0) {
    m_first = 0;
    m_blockShift = smallestShift;
  }
}

template<class T>
void cow_List<T>::DropFront(int n) {
  if (n < 0 || n > m_count) cow_ListRangeFailure(n, m_count);
  if (n == m_count) return Resize(0);
  Detach();
  std::int64_t const firstBlock = std::int64_t{m_first} >> m_blockShift;
  m_first += n;
  m_count -= n;
  std::int64_t const keptBlock = std::int64_t{m_first} >> m_blockShift;
  for (std::int64_t b = firstBlock; b < keptBlock; ++b)
    ReleaseBlock(m_blocks[b]);
}
