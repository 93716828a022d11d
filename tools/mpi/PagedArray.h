#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace orx::mpi {

/// An array of zeros, pages of which take memory when they are written to, and give it back with the array:
/// what the allocator keeps of a freed array for the next one would count twice. REQUIRES plain data.
template<class T>
class PagedArray {
public:
  static_assert(std::is_trivially_copyable_v<T>);

  PagedArray() noexcept = default;
  explicit PagedArray(std::int64_t length) : m_length(length) {
    if (length == 0) return;
    void* const pages = mmap(nullptr, Bytes(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    m_values = static_cast<T*>(pages);
  }
  PagedArray(PagedArray&& other) noexcept
      : m_values(std::exchange(other.m_values, nullptr)), m_length(std::exchange(other.m_length, 0)) {}
  PagedArray& operator=(PagedArray&& other) noexcept {
    std::swap(m_values, other.m_values);
    std::swap(m_length, other.m_length);
    return *this;
  }
  ~PagedArray() {
    if (m_values != nullptr) munmap(m_values, Bytes());
  }

  std::int64_t Length() const noexcept { return m_length; }
  T* Data() noexcept { return m_values; }
  T const* Data() const noexcept { return m_values; }
  T& operator[](std::int64_t k) noexcept { return m_values[k]; }
  T const& operator[](std::int64_t k) const noexcept { return m_values[k]; }

private:
  std::size_t Bytes() const noexcept { return static_cast<std::size_t>(m_length) * sizeof(T); }

  T* m_values = nullptr;
  std::int64_t m_length = 0;
};

} // namespace orx::mpi
