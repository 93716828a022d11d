#include "tools/mpi/ParallelFile.h"

#include "tools/terminal/Text.h"

#include <algorithm>
#include <exception>
#include <vector>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::Format;
using tool::ToolError;

/// The description of the failed call that HDF5 met first.
std::string Reason() {
  std::string reason = "no reason given";
  H5Ewalk2(
      H5E_DEFAULT, H5E_WALK_DOWNWARD,
      [](unsigned, H5E_error2_t const* error, void* to) {
        if (error->desc != nullptr) *static_cast<std::string*>(to) = error->desc;
        return herr_t{0};
      },
      &reason);
  return reason;
}

[[noreturn]] void Refuse(std::string const& name, std::string const& fault) {
  throw ToolError(ExitCode::UnusableInput, name + ": " + fault);
}

hid_t Checked(hid_t id, std::string const& name) {
  if (id < 0) Refuse(name, "cannot be read: " + Reason());
  return id;
}

void RequireNumbersOfItsOwn(hid_t dataset, std::string const& name) {
  StoredObject const type(Checked(H5Dget_type(dataset), name), H5Tclose);
  H5T_class_t const kind = H5Tget_class(type.Get());
  if (kind != H5T_FLOAT && kind != H5T_INTEGER) Refuse(name, "does not hold numbers");
  StoredObject const creation(Checked(H5Dget_create_plist(dataset), name), H5Pclose);
  if (H5Pget_layout(creation.Get()) == H5D_VIRTUAL || H5Pget_external_count(creation.Get()) > 0)
    Refuse(name, "its values are in other files, expected in this one");
}

std::vector<std::int64_t> ShapeOf(hid_t dataset, int dimensions, std::string const& name) {
  StoredObject const space(Checked(H5Dget_space(dataset), name), H5Sclose);
  int const found = H5Sget_simple_extent_ndims(space.Get());
  if (found != dimensions) Refuse(name, Format("has %d dimensions, expected %d", found, dimensions));
  std::vector<hsize_t> shape(static_cast<std::size_t>(dimensions));
  H5Sget_simple_extent_dims(space.Get(), shape.data(), nullptr);
  return {shape.begin(), shape.end()};
}

std::optional<std::uint64_t> ChecksumOf(hid_t dataset, std::string const& name) {
  if (H5Aexists(dataset, "checksum") <= 0) return {};
  StoredObject const attribute(Checked(H5Aopen(dataset, "checksum", H5P_DEFAULT), name), H5Aclose);
  StoredObject const space(Checked(H5Aget_space(attribute.Get()), name), H5Sclose);
  std::uint64_t value = 0;
  if (H5Sget_simple_extent_npoints(space.Get()) != 1 ||
      H5Aread(attribute.Get(), H5T_NATIVE_UINT64, &value) < 0)
    Refuse(name, "its attribute checksum is not one number");
  return value;
}

} // namespace

StoredObject::~StoredObject() {
  if (m_id >= 0 && std::uncaught_exceptions() == 0) m_close(m_id);
}

StoredArray::StoredArray(StoredObject dataset, std::string name, int dimensions)
    : m_dataset(std::move(dataset)), m_name(std::move(name)) {
  RequireNumbersOfItsOwn(m_dataset.Get(), m_name);
  m_shape = ShapeOf(m_dataset.Get(), dimensions, m_name);
  m_checksum = ChecksumOf(m_dataset.Get(), m_name);
}

void StoredArray::Read(std::int64_t first, std::int64_t count, std::int32_t* to) const {
  Read(first, count, H5T_NATIVE_INT32, to);
}

void StoredArray::Read(std::int64_t first, std::int64_t count, double* to) const {
  Read(first, count, H5T_NATIVE_DOUBLE, to);
}

void StoredArray::Read(std::int64_t first, std::int64_t count, hid_t type, void* to) const {
  if (count == 0) return;
  hsize_t const start[] = {static_cast<hsize_t>(first)}, length[] = {static_cast<hsize_t>(count)};
  StoredObject const cells(Checked(H5Screate_simple(1, length, nullptr), m_name), H5Sclose);
  StoredObject const space(Checked(H5Dget_space(m_dataset.Get()), m_name), H5Sclose);
  Checked(H5Sselect_hyperslab(space.Get(), H5S_SELECT_SET, start, nullptr, length, nullptr), m_name);
  // Independent transfers: long contiguous runs gain nothing from ranks that gather and pass on each other's
  // bytes, and a rank that fails leaves no other one waiting.
  Checked(H5Dread(m_dataset.Get(), type, cells.Get(), space.Get(), H5P_DEFAULT, to), m_name);
}

void StoredArray::Read(StoredRectangle const& r, double* to, std::int64_t distance) const {
  if (r.count == 0 || r.length == 0) return;
  std::vector<hsize_t> const first(r.first.begin(), r.first.end());
  std::vector<hsize_t> counts(first.size(), 1);
  hsize_t const inMemory[] = {static_cast<hsize_t>(r.count), static_cast<hsize_t>(distance)};
  hsize_t const zero[] = {0, 0};
  hsize_t const taken[] = {inMemory[0], static_cast<hsize_t>(r.length)};
  std::copy_n(taken, 2, counts.end() - 2);
  StoredObject const cells(Checked(H5Screate_simple(2, inMemory, nullptr), m_name), H5Sclose);
  StoredObject const space(Checked(H5Dget_space(m_dataset.Get()), m_name), H5Sclose);
  Checked(H5Sselect_hyperslab(cells.Get(), H5S_SELECT_SET, zero, nullptr, taken, nullptr), m_name);
  Checked(H5Sselect_hyperslab(space.Get(), H5S_SELECT_SET, first.data(), nullptr, counts.data(), nullptr),
          m_name);
  Checked(H5Dread(m_dataset.Get(), H5T_NATIVE_DOUBLE, cells.Get(), space.Get(), H5P_DEFAULT, to), m_name);
}

ParallelFile::ParallelFile(std::string path, Ranks const& ranks) : m_path(std::move(path)), m_ranks(ranks) {
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
  StoredObject const access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
  H5Pset_fapl_mpio(access.Get(), ranks.Communicator(), MPI_INFO_NULL);
  H5Pset_all_coll_metadata_ops(access.Get(), true);
  hid_t const file = H5Fopen(m_path.c_str(), H5F_ACC_RDONLY, access.Get());
  ranks.OnEach([&] { Checked(file, m_path); });
  m_file = std::make_unique<StoredObject>(file, H5Fclose);
}

StoredArray ParallelFile::Open(std::string const& object, int dimensions) const {
  std::string const name = m_path + ": " + object;
  StoredObject dataset(H5Dopen2(m_file->Get(), object.c_str(), H5P_DEFAULT), H5Dclose);
  std::optional<StoredArray> array;
  m_ranks.OnEach([&] {
    Checked(dataset.Get(), name);
    array.emplace(StoredArray(std::move(dataset), name, dimensions));
  });
  return std::move(*array);
}

} // namespace orx::mpi
