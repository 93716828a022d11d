#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orx::store {

class DatabaseFile;

/// Rows of 32-bit integers in a dataset of the file, with room for more behind them; its attribute `rows`
/// says how many there are. Rows count as structure: they are seen in the file once a commit has put them
/// there, all or none. To be used inside Guarded.
///
///     dataset   row 0   row 1   ...   row rows-1   room, zeros
class RecordTable {
public:
  /// Names of the columns; none: plain integers, one a row.
  using Columns = std::span<char const* const>;

  /// A new one at a path, with room for so many rows.
  static RecordTable Create(DatabaseFile& file, std::string const& path, Columns columns, std::int64_t room);
  /// The one at a path, if there is one. What says that it has more rows than the file has bytes is damaged.
  static std::optional<RecordTable> Open(DatabaseFile& file, std::string const& path, Columns columns);

  std::int64_t Rows() const noexcept { return m_rows; }
  std::int64_t Room() const noexcept { return m_room; }
  std::vector<int> Read(std::int64_t first, std::int64_t count) const;

  /// Behind the last row, where there is room.
  void Append(std::span<int const> rows);
  void Overwrite(std::int64_t first, std::span<int const> rows);
  /// Takes the last rows back.
  void CutTo(std::int64_t rows);
  /// Its dataset has another path now.
  void MovedTo(std::string const& path) { m_path = path; }
  /// Nothing of it is written any more; to be called before it is removed.
  void Forget() const noexcept;

private:
  RecordTable(DatabaseFile& file, std::string path, int width)
      : m_file(&file), m_path(std::move(path)), m_width(width) {}
  std::uint64_t BytesOf(std::int64_t rows) const noexcept {
    return static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(m_width) * sizeof(int);
  }
  void SetRows(std::int64_t rows);

  DatabaseFile* m_file;
  std::string m_path;
  int m_width; ///< integers a row
  std::uint64_t m_place = 0;
  std::int64_t m_rows = 0;
  std::int64_t m_room = 0;
};

} // namespace orx::store
