#pragma once

#include "core/mem_Allocator.h"
#include "core/orx_export.h"

#include <new>

/// Base of a class with one instance in the process: constructing the object registers it.
/// The module that owns T instantiates this template explicitly and exports it: all shared libraries then see
/// the same pointer.
template<class T>
class ORX_EXPORT omi_SingletonBase {
public:
  static T* instance; ///< null while there is none

protected:
  omi_SingletonBase() noexcept { instance = static_cast<T*>(this); }
};

template<class T>
T* omi_SingletonBase<T>::instance = nullptr;

template<class T>
struct omi_Singleton {
  /// Returns the instance, and makes it first when it does not exist.
  static T& Instance() {
    if (omi_SingletonBase<T>::instance == nullptr) {
      void* const place = mem_OperatorNewThrow(sizeof(T));
      new (place) T;
    }
    return *omi_SingletonBase<T>::instance;
  }

  /// Destroys and frees the instance, if it exists.
  static void Destroy() noexcept {
    T* const instance = omi_SingletonBase<T>::instance;
    if (instance == nullptr) return;
    instance->~T();
    mem_Free(instance);
    omi_SingletonBase<T>::instance = nullptr;
  }
};
