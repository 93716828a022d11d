#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace orx::store {

class DatabaseFile;

/// What a sparse drawer holds, in the caller's memory; null: not there or not asked for.
struct SparseArrays {
  double* values = nullptr;        ///< one per stored entry
  std::int32_t* columns = nullptr; ///< one per stored entry, zero-based
  std::int32_t* starts = nullptr;  ///< rows + 1, zero-based
  double* diagonal = nullptr;      ///< one per row
};

/// A matrix in compressed rows: a group with the datasets data, ir, jc and, for the symmetric form, diagonal,
/// the arrays of MATLAB's sparse matrices, which are stored by columns: it reads the transpose. Written once,
/// as a whole; each dataset carries a checksum of its bytes.
class SparseDrawer {
public:
  /// A new group that waits for its place. The diagonal may be null.
  static std::unique_ptr<SparseDrawer> Create(DatabaseFile& file, std::int64_t rows, std::int64_t columns,
                                              std::int64_t entries, SparseArrays const& arrays);
  static std::unique_ptr<SparseDrawer> Open(DatabaseFile& file, std::string const& path, std::int64_t rows,
                                            std::int64_t columns);

  SparseDrawer(SparseDrawer const&) = delete;
  SparseDrawer& operator=(SparseDrawer const&) = delete;
  /// Space of a group that still waits is given back.
  ~SparseDrawer();

  std::int64_t Entries() const noexcept { return m_entries; }
  bool HasDiagonal() const noexcept { return m_hasDiagonal; }
  void Read(SparseArrays const& arrays);

  /// The group's hid_t.
  std::int64_t Group();
  /// Gives the group its place; TakeBack undoes it.
  void PutAt(std::string const& path);
  void TakeBack();
  void ReleaseHandle() noexcept;

private:
  struct Hdf5;

  SparseDrawer(DatabaseFile& file, std::int64_t rows, std::int64_t columns);

  DatabaseFile& m_file;
  std::int64_t m_rows;
  std::int64_t m_columns;
  std::int64_t m_entries = 0;
  bool m_hasDiagonal = false;
  std::string m_path;    ///< where it is now
  std::string m_pending; ///< path before it got its place; "" for one that was there
  std::unique_ptr<Hdf5> m_hdf5;
};

} // namespace orx::store
