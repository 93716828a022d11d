#pragma once

#include "core/cow_CountedHld.h"

#include <new>

/// Copies an object of exactly class T by its copy constructor.
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

/// A copy-on-write holder: copies share the object until one of them asks to change it.
template<class T, class Copier = cow_Direct<T>>
class cow_COW : private cow_CountedHld<T> {
public:
  using cow_CountedHld<T>::cow_CountedHld;
  using cow_CountedHld<T>::operator=;
  using cow_CountedHld<T>::IsNull;
  using cow_CountedHld<T>::UseCount;

  /// The object for reading.
  T const* ConstGet() const noexcept { return this->GetPtr(); }
  /// The object for changing: a shared one is copied first, and this holder takes the copy.
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
