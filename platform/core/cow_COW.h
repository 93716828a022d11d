#pragma once

#include "core/cow_CountedHld.h"

#include <new>

/// Copies an object, whose class must be T and not a derived class, by its copy constructor.
template<class T>
struct cow_Direct {
  static T* Copy(T const& object) {
    void* const place = mem_OperatorNewThrow(sizeof(T));
    try {
      return new (place) T(object);
    } catch (...) {
      mem_Free(place);
      throw;
    }
  }
};

/// A copy-on-write holder: copies of the holder share the object until Get is called on one of them.
template<class T, class Copier = cow_Direct<T>>
class cow_COW : private cow_CountedHld<T> {
public:
  using cow_CountedHld<T>::cow_CountedHld;
  using cow_CountedHld<T>::operator=;
  using cow_CountedHld<T>::IsNull;
  using cow_CountedHld<T>::UseCount;

  /// The object for reading; null when the holder is empty.
  T const* ConstGet() const noexcept { return this->GetPtr(); }
  /// The object for changing: a shared object is copied first, and this holder takes the copy. When copying
  /// raises an error, the holder keeps the shared object.
  T* Get() {
    if (UseCount() != 1 && !IsNull()) {
      T* const copy = Copier::Copy(*this->GetPtr());
      try {
        *this = copy;
      } catch (...) {
        copy->~T();
        mem_Free(copy);
        throw;
      }
    }
    return this->GetPtr();
  }
};
