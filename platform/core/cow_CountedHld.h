#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>
#include <new>

/// A shared holder of one object: copies share the object and a use count, the last one destroys it.
/// The object comes from the suite allocator (class-level operator new, or mem_OperatorNewThrow and
/// placement).
template<class T>
class cow_CountedHld {
public:
  /// Holds `object` (null: nothing yet) and takes ownership of it, also when the constructor fails.
  explicit cow_CountedHld(T* object = nullptr) try : m_useCount(NewCount()), m_object(object) {
  } catch (...) {
    Destroy(object);
    throw;
  }
  cow_CountedHld(cow_CountedHld const& other) noexcept
      : m_useCount(other.m_useCount), m_object(other.m_object) {
    ++*m_useCount;
  }
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): it counts up before it counts down
  cow_CountedHld& operator=(cow_CountedHld const& other) noexcept {
    ++*other.m_useCount;
    Release();
    m_useCount = other.m_useCount;
    m_object = other.m_object;
    return *this;
  }
  /// Installs another object in this holder alone: copies keep what they share.
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
