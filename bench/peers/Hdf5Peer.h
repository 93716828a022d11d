#pragma once

#include <cstdint>
#include <string>

namespace bench {

/// A square matrix of doubles in an HDF5 file of its own, read and written by HDF5: chunks of that shape, and
/// a chunk cache that holds all of the chunks that a row or a column of them needs.
class Hdf5Blocks {
public:
  Hdf5Blocks(std::string const& path, int order, int rows, int columns);
  Hdf5Blocks(Hdf5Blocks const&) = delete;
  Hdf5Blocks& operator=(Hdf5Blocks const&) = delete;
  ~Hdf5Blocks();

  /// Moves a rectangle, which has r1, r2, c1, c2 (inclusive), from or to a packed column-major buffer.
  template<bool isWrite, class Rectangle>
  void Move(Rectangle const& r, double* buffer) const {
    Transfer(isWrite, r.r1, r.r2, r.c1, r.c2, buffer);
  }

private:
  void Transfer(bool isWrite, int r1, int r2, int c1, int c2, double* buffer) const;

  std::string m_path;
  std::int64_t m_file;
  std::int64_t m_dataset;
};

/// Creates a file with `count` square datasets of zeros, closes and deletes it.
void CreateHdf5Datasets(std::string const& path, int count, int order);

} // namespace bench
