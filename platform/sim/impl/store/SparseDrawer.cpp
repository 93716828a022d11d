#include "sim/impl/store/SparseDrawer.h"

#include "file/Checksum.h"
#include "file/TransactionalFile.h"
#include "sim/impl/RaiseError.h"
#include "sim/impl/store/Guarded.h"
#include "sim/impl/store/Hdf5.h"

#include <limits>

namespace orx::store {

namespace {

constexpr std::int64_t metadataAllowance = 64 << 10;

template<class Value>
hid_t FileType() {
  return sizeof(Value) == 8 ? H5T_IEEE_F64LE : H5T_STD_I32LE;
}
template<class Value>
hid_t MemoryType() {
  return sizeof(Value) == 8 ? H5T_NATIVE_DOUBLE : H5T_NATIVE_INT32;
}

template<class Value>
std::uint64_t ChecksumOf(Value const* values, std::int64_t count) {
  return file::Checksum(values, static_cast<std::size_t>(count) * sizeof(Value), 1);
}

template<class Value>
void WriteArray(hid_t group, char const* name, Value const* values, std::int64_t count) {
  std::string const what = std::string("writing the sparse array ") + name;
  Handle const dataset = CreateContiguous(group, name, FileType<Value>(), count, what);
  if (count > 0)
    Checked(H5Dwrite(dataset.Get(), MemoryType<Value>(), H5S_ALL, H5S_ALL, H5P_DEFAULT, values), what);
  std::uint64_t const sum = ChecksumOf(values, count);
  WriteAttribute(dataset, "checksum", std::span<std::uint64_t const>(&sum, 1));
}

/// Raises DamageFound when a dataset is larger than its space in the file allows. Callers allocate as much
/// memory as the dataset claims to need.
void RequireStored(DatabaseFile const& file, hid_t dataset, std::int64_t bytes, std::string const& name) {
  if (static_cast<std::uint64_t>(bytes) <= MostStoredBytes(dataset, file.Bytes().EndOfAllocation())) return;
  throw DamageFound{name + " has " + std::to_string(bytes) + " bytes, more than the file can hold"};
}

/// Opens a dataset of the group and sets `count` to the number of its values.
Handle OpenArray(DatabaseFile const& file, hid_t group, char const* name, std::int64_t& count) {
  std::string const what = std::string("reading the sparse array ") + name;
  Handle const access = AccessInsideFile(H5P_DATASET_ACCESS, name);
  Handle dataset = CheckedReadId(H5Dopen2(group, name, access.Get()), what);
  Handle const creation = CheckedReadId(H5Dget_create_plist(dataset.Get()), what);
  RequireOwnRawData(creation.Get(), std::string("the sparse array ") + name);
  Handle const space = CheckedReadId(H5Dget_space(dataset.Get()), what);
  if (H5Sget_simple_extent_ndims(space.Get()) != 1)
    throw DamageFound{std::string("the sparse array ") + name + " has not one dimension"};
  count = CheckedRead(H5Sget_simple_extent_npoints(space.Get()), what);
  Handle const type = CheckedReadId(H5Dget_type(dataset.Get()), what);
  H5T_class_t const kind = H5Tget_class(type.Get());
  if (kind != H5T_FLOAT && kind != H5T_INTEGER)
    throw DamageFound{std::string("the sparse array ") + name + " does not hold numbers"};
  if (count > std::numeric_limits<int>::max())
    throw DamageFound{std::string("the sparse array ") + name + " has more elements than 32 bits count"};
  RequireStored(file, dataset.Get(), count * static_cast<std::int64_t>(H5Tget_size(type.Get())),
                std::string("the sparse array ") + name);
  return dataset;
}

template<class Value>
void ReadArray(DatabaseFile const& file, hid_t group, char const* name, Value* values,
               std::int64_t expected) {
  if (values == nullptr) return;
  std::int64_t count = 0;
  Handle const dataset = OpenArray(file, group, name, count);
  if (count != expected)
    throw DamageFound{std::string("the sparse array ") + name + " has " + std::to_string(count) +
                      " elements, expected " + std::to_string(expected)};
  if (count > 0)
    CheckedRead(H5Dread(dataset.Get(), MemoryType<Value>(), H5S_ALL, H5S_ALL, H5P_DEFAULT, values),
                std::string("reading the sparse array ") + name);
  if (!HasAttribute(dataset, "checksum")) return;
  auto const saved = ReadWords(dataset, "checksum");
  if (saved.size() != 1 || saved[0] != ChecksumOf(values, count))
    throw DamageFound{std::string("the sparse array ") + name +
                      " does not have the checksum it was written with"};
}

/// Describes the first fault of the row pointers and column indices; "" when there is none.
std::string FindFault(SparseArrays const& arrays, std::int64_t rows, std::int64_t columns,
                      std::int64_t entries) {
  std::int32_t const* const rowPointers = arrays.rowPointers;
  if (rowPointers != nullptr) {
    if (rowPointers[0] != 0)
      return "the first row start is " + std::to_string(rowPointers[0]) + ", expected 0";
    for (std::int64_t row = 0; row < rows; ++row)
      if (rowPointers[row + 1] < rowPointers[row])
        return "the row starts decrease from " + std::to_string(rowPointers[row]) + " to " +
               std::to_string(rowPointers[row + 1]) + " at row " + std::to_string(row);
    if (rowPointers[rows] != entries)
      return "the last row start is " + std::to_string(rowPointers[rows]) +
             ", expected the number of stored entries, " + std::to_string(entries);
  }
  if (arrays.columnIndices != nullptr) {
    for (std::int64_t k = 0; k < entries; ++k)
      if (arrays.columnIndices[k] < 0 || arrays.columnIndices[k] >= columns)
        return "entry " + std::to_string(k) + " has column " + std::to_string(arrays.columnIndices[k]) +
               ", expected 0 to " + std::to_string(columns - 1);
  }
  return "";
}

} // namespace

SparseDrawer::SparseDrawer(DatabaseFile& file, std::int64_t rows, std::int64_t columns)
    : DrawerObject(file), m_rows(rows), m_columns(columns) {}

std::unique_ptr<SparseDrawer> SparseDrawer::Create(DatabaseFile& file, std::int64_t rows,
                                                   std::int64_t columns, std::int64_t entries,
                                                   SparseArrays const& arrays) {
  if (std::string const fault = FindFault(arrays, rows, columns, entries); !fault.empty())
    sim::RaiseError(ORXSimException::invalidArgument,
                    "Writing a sparse matrix is not possible: " + fault + ".");
  std::unique_ptr<SparseDrawer> drawer(new SparseDrawer(file, rows, columns));
  drawer->m_entries = entries;
  drawer->m_hasDiagonal = arrays.diagonal != nullptr;
  Guarded(file, [&] {
    file.Bytes().ReserveGrowth(static_cast<std::uint64_t>(12 * entries + 12 * rows + 2 * metadataAllowance));
    drawer->m_pending = drawer->m_path = file.PendingPath();
    Handle const group =
        CheckedId(H5Gcreate2(file.Id(), drawer->m_path.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                  "creating a sparse drawer");
    WriteAttribute(group, "MATLAB_sparse", columns);
    WriteArray(group.Get(), "data", arrays.values, entries);
    WriteArray(group.Get(), "ir", arrays.columnIndices, entries);
    WriteArray(group.Get(), "jc", arrays.rowPointers, rows + 1);
    if (arrays.diagonal != nullptr) WriteArray(group.Get(), "diagonal", arrays.diagonal, rows);
  });
  return drawer;
}

std::unique_ptr<SparseDrawer> SparseDrawer::Open(DatabaseFile& file, std::string const& path,
                                                 std::int64_t rows, std::int64_t columns) {
  std::unique_ptr<SparseDrawer> drawer(new SparseDrawer(file, rows, columns));
  drawer->m_path = path;
  Guarded(file, [&] {
    Handle const group = drawer->OpenOwnGroup();
    OpenArray(file, group.Get(), "data", drawer->m_entries);
    drawer->m_hasDiagonal =
        CheckedRead(H5Lexists(group.Get(), "diagonal", H5P_DEFAULT), "looking for a diagonal") > 0;
  });
  return drawer;
}

Handle SparseDrawer::OpenOwnGroup() const {
  Handle const access = AccessInsideFile(H5P_GROUP_ACCESS, m_path);
  return CheckedReadId(H5Gopen2(m_file.Id(), m_path.c_str(), access.Get()), "opening " + m_path);
}

void SparseDrawer::Read(SparseArrays const& arrays) {
  Guarded(m_file, [&] {
    Handle const group = OpenOwnGroup();
    ReadArray(m_file, group.Get(), "data", arrays.values, m_entries);
    ReadArray(m_file, group.Get(), "ir", arrays.columnIndices, m_entries);
    ReadArray(m_file, group.Get(), "jc", arrays.rowPointers, m_rows + 1);
    ReadArray(m_file, group.Get(), "diagonal", arrays.diagonal, m_rows);
    if (std::string const fault = FindFault(arrays, m_rows, m_columns, m_entries); !fault.empty())
      throw DamageFound{fault};
  });
}

} // namespace orx::store
