#include "sim/impl/store/RecordTable.h"

#include "file/TransactionalFile.h"
#include "sim/impl/store/DatabaseFile.h"
#include "sim/impl/store/Hdf5.h"

namespace orx::store {

namespace {

constexpr std::uint64_t metadataAllowance = 16 << 10;
/// Larger appends are written at once, behind the committed rows, instead of being held in memory until the
/// commit.
constexpr std::size_t heldBytes = 256 << 10;

Handle RowType(RecordTable::Columns columns) {
  if (columns.empty()) return CheckedId(H5Tcopy(H5T_STD_I32LE), "describing a table");
  Handle type = CheckedId(H5Tcreate(H5T_COMPOUND, columns.size() * sizeof(int)), "describing a table");
  for (std::size_t k = 0; k < columns.size(); ++k)
    Checked(H5Tinsert(type.Get(), columns[k], k * sizeof(int), H5T_STD_I32LE), "describing a table");
  return type;
}

int Width(RecordTable::Columns columns) { return columns.empty() ? 1 : static_cast<int>(columns.size()); }

bool IsExternal(hid_t dataset) {
  Handle const creation = CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of a table");
  return H5Pget_layout(creation.Get()) != H5D_CONTIGUOUS || H5Pget_external_count(creation.Get()) != 0;
}

std::int64_t RowsAttribute(Handle const& dataset, std::string const& path) {
  std::vector<std::uint64_t> const words = ReadWords(dataset, "rows");
  if (words.size() != 1) throw DamageFound{path + " does not say how many rows it has"};
  return static_cast<std::int64_t>(words[0]);
}

} // namespace

RecordTable RecordTable::Create(DatabaseFile& file, std::string const& path, Columns columns,
                                std::int64_t capacity) {
  RecordTable table(file, path, Width(columns));
  std::string const what = "creating " + path;
  file::TransactionalFile& bytes = file.Bytes();
  bytes.ReserveGrowth(table.BytesOf(capacity) + metadataAllowance);
  std::uint64_t const freshFrom = bytes.FreshFrom();
  Handle const type = RowType(columns);
  Handle const dataset = CreateContiguous(file.Id(), path.c_str(), type.Get(), capacity, what);
  table.m_offset = Checked(H5Dget_offset(dataset.Get()), what);
  table.m_capacity = capacity;
  bytes.WillWriteRawData();
  if (table.m_offset < freshFrom) bytes.File().ZeroRange(table.m_offset, table.BytesOf(capacity));
  WriteAttribute(dataset, "rows", std::int64_t{0});
  return table;
}

std::optional<RecordTable> RecordTable::Open(DatabaseFile& file, std::string const& path, Columns columns) {
  if (!file.HasObject(path)) return {};
  RecordTable table(file, path, Width(columns));
  Handle const dataset = CheckedReadId(H5Dopen2(file.Id(), path.c_str(), H5P_DEFAULT), "opening " + path);
  Handle const type = CheckedReadId(H5Dget_type(dataset.Get()), "reading the type of " + path);
  Handle const space = CheckedReadId(H5Dget_space(dataset.Get()), "reading the shape of " + path);
  if (CheckedRead(H5Tequal(type.Get(), RowType(columns).Get()), "reading the type of " + path) == 0 ||
      H5Sget_simple_extent_ndims(space.Get()) != 1 || IsExternal(dataset.Get()))
    throw DamageFound{path + " is not a table as it was written"};
  table.m_capacity = CheckedRead(H5Sget_simple_extent_npoints(space.Get()), "reading the shape of " + path);
  table.m_rows = RowsAttribute(dataset, path);
  table.m_offset = H5Dget_offset(dataset.Get());
  std::uint64_t const end = file.Bytes().EndOfAllocation();
  bool const isInside =
      table.m_offset != HADDR_UNDEF && table.m_offset <= end &&
      static_cast<std::uint64_t>(table.m_capacity) <=
          (end - table.m_offset) / (static_cast<std::uint64_t>(table.m_width) * sizeof(int));
  if (!isInside || table.m_rows < 0 || table.m_rows > table.m_capacity)
    throw DamageFound{path + " has " + std::to_string(table.m_rows) +
                      " rows, more than there are in the file"};
  return table;
}

std::vector<int> RecordTable::ReadRows(std::int64_t first, std::int64_t count) const {
  std::vector<int> rows(static_cast<std::size_t>(count) * static_cast<std::size_t>(m_width));
  if (count > 0)
    m_file->Bytes().ReadMetadata(m_offset + BytesOf(first), rows.data(), rows.size() * sizeof(int));
  return rows;
}

void RecordTable::AppendRows(std::span<int const> rows) {
  std::uint64_t const offset = m_offset + BytesOf(m_rows);
  if (rows.size_bytes() > heldBytes) {
    m_file->Bytes().WriteRawData(offset, rows.data(), rows.size_bytes());
  } else {
    m_file->Bytes().WriteMetadata(offset, rows.data(), rows.size_bytes());
  }
  SetRows(m_rows + static_cast<std::int64_t>(rows.size()) / m_width);
}

void RecordTable::OverwriteRows(std::int64_t first, std::span<int const> rows) {
  m_file->Bytes().WriteMetadata(m_offset + BytesOf(first), rows.data(), rows.size_bytes());
}

void RecordTable::CutToRows(std::int64_t rows) { SetRows(rows); }

void RecordTable::SetRows(std::int64_t rows) {
  Handle const dataset =
      CheckedReadId(H5Dopen2(m_file->Id(), m_path.c_str(), H5P_DEFAULT), "opening " + m_path);
  Handle const attribute = CheckedReadId(H5Aopen(dataset.Get(), "rows", H5P_DEFAULT), "opening " + m_path);
  Checked(H5Awrite(attribute.Get(), H5T_NATIVE_INT64, &rows), "writing the attribute rows");
  m_rows = rows;
}

void RecordTable::DropHeldRows() const noexcept {
  m_file->Bytes().ReleaseMetadata(m_offset, BytesOf(m_capacity));
}

} // namespace orx::store
