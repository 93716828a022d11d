#pragma once

#include <initializer_list>
#include <vector>

/// The database library's growable array. It owns its elements; copying the array copies them. Indices are
/// zero-based and not checked. Memory that cannot be had is a std::bad_alloc, and the array is as before.
template<class T>
class ORXSimArray {
public:
  ORXSimArray() noexcept = default;
  /// `size` elements with the default value of T (0 for numbers); size >= 0.
  explicit ORXSimArray(int size) : m_elements(static_cast<std::size_t>(size)) {}
  ORXSimArray(std::initializer_list<T> elements) : m_elements(elements) {}

  int Size() const noexcept { return static_cast<int>(m_elements.size()); }
  bool IsEmpty() const noexcept { return m_elements.empty(); }
  T& operator[](int index) noexcept { return m_elements[static_cast<std::size_t>(index)]; }
  T const& operator[](int index) const noexcept { return m_elements[static_cast<std::size_t>(index)]; }

  /// Adds an element at the end. Pointers into the array are not valid any more, as after Resize.
  void Append(T const& element) { m_elements.push_back(element); }
  /// Keeps the leading elements; new ones have the default value of T. size >= 0.
  void Resize(int size) { m_elements.resize(static_cast<std::size_t>(size)); }
  void Clear() noexcept { m_elements.clear(); }

  /// The elements, contiguous; they belong to the array.
  T* Data() noexcept { return m_elements.data(); }
  T const* Data() const noexcept { return m_elements.data(); }
  auto begin() noexcept { return m_elements.begin(); }
  auto end() noexcept { return m_elements.end(); }
  auto begin() const noexcept { return m_elements.begin(); }
  auto end() const noexcept { return m_elements.end(); }

private:
  std::vector<T> m_elements;
};
