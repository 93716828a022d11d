#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orx::store {

class DatabaseFile;

/// Rows of 32-bit integers in a contiguous dataset, with unused space behind them. The attribute `rows` of
/// the dataset has their number. Rows are metadata of the file: a commit writes all changes of them or none.
/// To be used inside Guarded.
///
///     dataset   row 0   row 1   ...   row rows-1   zeros, up to the capacity
class RecordTable {
public:
  /// Names of the columns; empty for a table of plain integers, one in each row.
  using Columns = std::span<char const* const>;

  /// Makes an empty table at a path, with space for `capacity` rows.
  static RecordTable Create(DatabaseFile& file, std::string const& path, Columns columns,
                            std::int64_t capacity);
  /// Opens the table at a path; returns nothing when the path does not exist. Raises DamageFound when the
  /// dataset has another type, or more rows than fit in the file.
  static std::optional<RecordTable> Open(DatabaseFile& file, std::string const& path, Columns columns);

  std::int64_t Rows() const noexcept { return m_rows; }
  std::int64_t Capacity() const noexcept { return m_capacity; }
  std::vector<int> ReadRows(std::int64_t first, std::int64_t count) const;

  /// Adds rows behind the last one. REQUIRES that the capacity suffices.
  void AppendRows(std::span<int const> rows);
  void OverwriteRows(std::int64_t first, std::span<int const> rows);
  /// Removes the rows from `rows` on.
  void CutToRows(std::int64_t rows);
  /// Notes that the dataset has another path.
  void SetPath(std::string const& path) { m_path = path; }
  /// Drops rows that are not in the file yet; to be called before the dataset is removed.
  void DropHeldRows() const noexcept;

private:
  RecordTable(DatabaseFile& file, std::string path, int width)
      : m_file(&file), m_path(std::move(path)), m_width(width) {}
  std::uint64_t BytesOf(std::int64_t rows) const noexcept {
    return static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(m_width) * sizeof(int);
  }
  void SetRows(std::int64_t rows);

  DatabaseFile* m_file;
  std::string m_path;
  int m_width;                ///< integers in each row
  std::uint64_t m_offset = 0; ///< file offset of row 0
  std::int64_t m_rows = 0;
  std::int64_t m_capacity = 0; ///< in rows
};

} // namespace orx::store
