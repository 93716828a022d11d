#pragma once

#include "core/orx_export.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

// The suite allocator. Every block, whichever function allocated it, is freed by mem_Free.
//
//   small objects   cells of one size cut from slabs of 2 MB, no header per cell. A sparse matrix under
//                   assembly holds millions of them; from the second MB on, slabs ask for 2 MB pages,
//                   because page faults cost more than writing the cells does.
//   arrays          malloc up to 4 MB; from there aligned to 2 MB with 2 MB pages asked for.
//
// Blocks are aligned to 16 bytes and not cleared. A request for 0 bytes gives a block of its own.
// All calls come from one thread, as everywhere in the suite.

/// Thrown when memory for a request cannot be had; what() names the number of bytes.
class ORX_EXPORT mem_OutOfMemory : public std::bad_alloc {
public:
  explicit mem_OutOfMemory(std::size_t bytes) noexcept;
  char const* what() const noexcept override { return m_text; }
  std::size_t BytesWanted() const noexcept { return m_bytes; }

private:
  std::size_t m_bytes;
  char m_text[64];
};

// Allocation; each raises mem_OutOfMemory on failure

/// Allocates a single object of any size.
ORX_EXPORT void* mem_OperatorNewThrow(std::size_t bytes);
/// Allocates a small object (use count, link, list block); above 1 kB it calls mem_OperatorNewThrow.
ORX_EXPORT void* mem_OperatorNewTinyThrow(std::size_t bytes);
/// Allocates an array of a built-in type.
ORX_EXPORT void* mem_OperatorNewThrowBuiltin(std::size_t bytes);
/// Changes the size of a block of mem_OperatorNewThrowBuiltin and keeps its leading bytes; null gives a new
/// block. The block may move; large blocks are remapped, not copied. On failure the block is as before.
ORX_EXPORT void* mem_ReallocThrowBuiltin(void* block, std::size_t bytes);
/// Frees a block; null is ignored.
ORX_EXPORT void mem_Free(void* block) noexcept;

/// Number of bytes of `count` elements. A negative count, or a product that overflows, gives the largest
/// size, which no allocator can serve: the request fails instead of being too small.
constexpr std::size_t mem_ArrayBytes(std::int64_t count, std::size_t elementBytes) noexcept {
  constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();
  if (count < 0 || static_cast<std::size_t>(count) > largest / elementBytes) return largest;
  return static_cast<std::size_t>(count) * elementBytes;
}

/// Allocates an uncleared array of `count` values, which the caller frees with mem_Free.
template<class T>
T* mem_NewArray(std::int64_t count) {
  static_assert(std::is_trivially_copyable_v<T>);
  return static_cast<T*>(mem_OperatorNewThrowBuiltin(mem_ArrayBytes(count, sizeof(T))));
}

struct mem_Deleter {
  void operator()(void* block) const noexcept { mem_Free(block); }
};

/// An array of the suite allocator with one owner, which frees it.
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
