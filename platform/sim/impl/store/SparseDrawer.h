#pragma once

#include "sim/impl/store/DrawerObject.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace orx::store {

/// The arrays of a sparse drawer, in the caller's memory. An array that does not exist or is not wanted is
/// null.
struct SparseArrays {
  double* values = nullptr;              ///< one for each stored entry
  std::int32_t* columnIndices = nullptr; ///< one for each stored entry, zero-based
  std::int32_t* rowPointers = nullptr;   ///< rows + 1, zero-based
  double* diagonal = nullptr;            ///< one for each row
};

/// A matrix in compressed rows: a group with the datasets data (values), ir (column indices), jc (row
/// pointers) and, for the symmetric form, diagonal. These are the arrays of MATLAB's sparse matrices, which
/// are stored by columns, so MATLAB reads the transpose. The matrix is written once, as a whole; each dataset
/// has a checksum of its bytes as an attribute.
class SparseDrawer : public DrawerObject {
public:
  /// Writes a new group, under a pending path until MoveTo. The diagonal may be null.
  static std::unique_ptr<SparseDrawer> Create(DatabaseFile& file, std::int64_t rows, std::int64_t columns,
                                              std::int64_t entries, SparseArrays const& arrays);
  static std::unique_ptr<SparseDrawer> Open(DatabaseFile& file, std::string const& path, std::int64_t rows,
                                            std::int64_t columns);

  std::int64_t Entries() const noexcept { return m_entries; }
  bool HasDiagonal() const noexcept { return m_hasDiagonal; }
  /// Reads the arrays that are not null.
  void Read(SparseArrays const& arrays);

private:
  SparseDrawer(DatabaseFile& file, std::int64_t rows, std::int64_t columns);
  Handle OpenOwnGroup() const;

  std::int64_t m_rows;
  std::int64_t m_columns;
  std::int64_t m_entries = 0;
  bool m_hasDiagonal = false;
};

} // namespace orx::store
