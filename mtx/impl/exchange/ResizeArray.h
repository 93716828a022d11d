#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>

namespace orx {

/// Changes the length of an array; the leading values stay. On failure the array is as before.
template<class T>
void ResizeArray(mem_Array<T>& array, std::int64_t count) {
  void* const resized = mem_ReallocThrowBuiltin(array.get(), mem_ArrayBytes(count, sizeof(T)));
  static_cast<void>(array.release());
  array.reset(static_cast<T*>(resized));
}

} // namespace orx
