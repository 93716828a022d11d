#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>
#include <new>

/// A shared holder of one object: copies share the object and a use count; the last holder destroys the
/// object. The object comes from the suite allocator (class-level operator new, or mem_OperatorNewThrow and
/// placement).
template<class T>
class cow_CountedHld {
public:
  /// Takes ownership of `object` (null: an empty holder), and destroys it when the constructor raises an
  /// error.
  explicit cow_CountedHld(T* object = nullptr) try : m_useCount(NewCount()), m_object(object) {
  } catch (...) {
    Destroy(object);
    throw;
  }
  cow_CountedHld(cow_CountedHld const& other) noexcept
      : m_useCount(other.m_useCount), m_object(other.m_object) {
    ++*m_useCount;
  }
  // Counting up first makes self-assignment safe.
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
  cow_CountedHld& operator=(cow_CountedHld const& other) noexcept {
    ++*other.m_useCount;
    Release();
    m_useCount = other.m_useCount;
    m_object = other.m_object;
    return *this;
  }
  /// Takes ownership of another object, in this holder alone: copies keep the former object. On an error
  /// nothing changes, and `object` is still the caller's.
  cow_CountedHld& operator=(T* object) {
    if (*m_useCount != 1) {
      std::int32_t* const count = NewCount();
      --*m_useCount;
      m_useCount = count;
    } else if (m_object != object) {
      Destroy(m_object);
    }
    m_object = object;
    return *this;
  }
  ~cow_CountedHld() { Release(); }

  T* GetPtr() const noexcept { return m_object; }
  bool IsNull() const noexcept { return m_object == nullptr; }
  int UseCount() const noexcept { return *m_useCount; }

private:
  static std::int32_t* NewCount() {
    return new (mem_OperatorNewTinyThrow(sizeof(std::int32_t))) std::int32_t(1);
  }
  static void Destroy(T* object) noexcept {
    if (object == nullptr) return;
    object->~T();
    mem_Free(object);
  }
  void Release() noexcept {
    if (--*m_useCount != 0) return;
    Destroy(m_object);
    mem_Free(m_useCount);
  }

  std::int32_t* m_useCount; ///< never null
  T* m_object;
};
