#pragma once

#include "bench/Process.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <vector>

// What the contenders in the claims about sparse products have in common.

namespace bench {

/// An array on 2 MB pages, as the library's own arrays of this size are. Not cleared.
template<class T>
class LargeArray {
public:
  explicit LargeArray(std::size_t size)
      : m_values(static_cast<T*>(std::aligned_alloc(pageBytes, Bytes(size))), std::free), m_size(size) {
    if (m_values == nullptr) throw std::bad_alloc();
    madvise(m_values.get(), Bytes(size), MADV_HUGEPAGE);
  }
  T* Data() { return m_values.get(); }
  T const* Data() const { return m_values.get(); }
  std::size_t Size() const { return m_size; }

private:
  static constexpr std::size_t pageBytes = std::size_t{2} << 20;
  static std::size_t Bytes(std::size_t size) { return (size * sizeof(T) / pageBytes + 1) * pageBytes; }

  std::unique_ptr<T, void (*)(void*)> m_values;
  std::size_t m_size;
};

/// Vectors one after the other, all of one length.
class BlockOfVectors {
public:
  BlockOfVectors(int length, int count)
      : m_length(length), m_values(static_cast<std::size_t>(length) * static_cast<std::size_t>(count)) {
    Clear();
  }
  void Clear() { std::fill_n(m_values.Data(), m_values.Size(), 0.0); }

  /// Small integers: with the matrices of the claims, which have multiples of 1/1024, all products and their
  /// checksums are exact, whatever the order of the additions.
  static BlockOfVectors Factors(int length, int count) {
    BlockOfVectors x(length, count);
    for (std::ptrdiff_t v = 0; v < count; ++v)
      for (std::ptrdiff_t i = 0; i < length; ++i)
        x.Data()[v * length + i] = static_cast<double>((7 * i + 3 * v) % 11 - 5);
    return x;
  }
  double Checksum() const {
    double sum = 0.0;
    for (std::size_t k = 0; k < m_values.Size(); ++k) {
      std::size_t const i = k % static_cast<std::size_t>(m_length);
      std::size_t const v = k / static_cast<std::size_t>(m_length);
      sum += m_values.Data()[k] * static_cast<double>((i % 7 + 1) * (v + 1));
    }
    return sum;
  }
  double* Data() { return m_values.Data(); }
  double const* Data() const { return m_values.Data(); }
  std::size_t Size() const { return m_values.Size(); }

private:
  std::ptrdiff_t m_length;
  LargeArray<double> m_values;
};

/// The median of three runs after one that warms up.
template<class Task>
double MedianSeconds(Task const& task) {
  task();
  std::vector<double> seconds(3);
  for (double& s : seconds) {
    double const start = Now();
    task();
    s = Now() - start;
  }
  std::nth_element(seconds.begin(), seconds.begin() + 1, seconds.end());
  return seconds[1];
}

} // namespace bench
