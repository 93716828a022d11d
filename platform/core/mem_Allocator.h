#pragma once

#include "core/orx_export.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

// The suite allocator. Every block, whichever function gave it out, goes back through mem_Free.
//
//   small objects   cells of one size cut from slabs of 2 MB, no header per cell. A sparse matrix under
//                   assembly holds millions of them; from the second MB on, slabs ask for 2 MB pages,
//                   because page faults cost more than the writing does.
//   arrays          malloc up to 4 MB; from there aligned to 2 MB with 2 MB pages asked for.
//
// Blocks are aligned to 16 bytes and not cleared. A request for 0 bytes gives a block of its own.
// Used from one thread, as all of the suite.

/// Thrown when a request cannot be met; what() names the number of bytes.
class ORX_EXPORT mem_OutOfMemory : public std::bad_alloc {
public:
  explicit mem_OutOfMemory(std::size_t bytes) noexcept;
  char const* what() const noexcept override { return m_text; }
  std::size_t BytesWanted() const noexcept { return m_bytes; }

private:
  std::size_t m_bytes;
  char m_text[64];
};

/// For single objects of any size.
ORX_EXPORT void* mem_OperatorNewThrow(std::size_t bytes);
/// For small objects (use counts, links, list blocks); falls back to mem_OperatorNewThrow above 1 kB.
ORX_EXPORT void* mem_OperatorNewTinyThrow(std::size_t bytes);
/// For arrays of built-in types.
ORX_EXPORT void* mem_OperatorNewThrowBuiltin(std::size_t bytes);
/// Changes the size of a block of mem_OperatorNewThrowBuiltin (null: gives a new one), keeping the leading
/// bytes. Large blocks are remapped, not copied. On failure the block is as before.
ORX_EXPORT void* mem_ReallocThrowBuiltin(void* block, std::size_t bytes);
/// Gives a block back; null is ignored.
ORX_EXPORT void mem_Free(void* block) noexcept;

/// Bytes of `count` elements; a negative count or a product that overflows gives the largest size, which no
/// allocator can serve, so that the request fails instead of being too small.
constexpr std::size_t mem_ArrayBytes(std::int64_t count, std::size_t elementBytes) noexcept {
  constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();
  if (count < 0 || static_cast<std::size_t>(count) > largest / elementBytes) return largest;
  return static_cast<std::size_t>(count) * elementBytes;
}

/// An uncleared array of `count` values, to be freed with mem_Free.
template<class T>
T* mem_NewArray(std::int64_t count) {
  static_assert(std::is_trivially_copyable_v<T>);
  return static_cast<T*>(mem_OperatorNewThrowBuiltin(mem_ArrayBytes(count, sizeof(T))));
}

struct mem_Deleter {
  void operator()(void* block) const noexcept { mem_Free(block); }
};

/// An array of the suite allocator owned by a scope.
template<class T>
using mem_Array = std::unique_ptr<T[], mem_Deleter>;

template<class T>
mem_Array<T> mem_MakeArray(std::int64_t count) {
  return mem_Array<T>(mem_NewArray<T>(count));
}

/// Base of classes whose objects live in the suite allocator.
class ORX_EXPORT mem_AllocationOperators {
public:
  static void* operator new(std::size_t bytes) { return mem_OperatorNewThrow(bytes); }
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void* block) noexcept { mem_Free(block); }
  static void operator delete(void*, void*) noexcept {}
};
