#pragma once

#include <initializer_list>
#include <vector>

/// The database library's growable array; a copy is a copy of the elements. Indices are zero-based and not
/// checked.
template<class T>
class ORXSimArray {
public:
  ORXSimArray() noexcept = default;
  /// `size` elements with their default value; size >= 0.
  explicit ORXSimArray(int size) : m_elements(static_cast<std::size_t>(size)) {}
  ORXSimArray(std::initializer_list<T> elements) : m_elements(elements) {}

  int Size() const noexcept { return static_cast<int>(m_elements.size()); }
  bool IsEmpty() const noexcept { return m_elements.empty(); }
  T& operator[](int index) noexcept { return m_elements[static_cast<std::size_t>(index)]; }
  T const& operator[](int index) const noexcept { return m_elements[static_cast<std::size_t>(index)]; }

  void Append(T const& element) { m_elements.push_back(element); }
  void Resize(int size) { m_elements.resize(static_cast<std::size_t>(size)); }
  void Clear() noexcept { m_elements.clear(); }

  T* Data() noexcept { return m_elements.data(); }
  T const* Data() const noexcept { return m_elements.data(); }
  auto begin() noexcept { return m_elements.begin(); }
  auto end() noexcept { return m_elements.end(); }
  auto begin() const noexcept { return m_elements.begin(); }
  auto end() const noexcept { return m_elements.end(); }

private:
  std::vector<T> m_elements;
};
