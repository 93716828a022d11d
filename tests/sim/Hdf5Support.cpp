#include "Hdf5Support.h"

#include "sim/impl/store/Hdf5Driver.h"

#include <cstring>
#include <filesystem>
#include <numeric>
#include <vector>

using orx::store::Checked;
using orx::store::CheckedId;
using orx::store::Handle;

Session::Session(std::unique_ptr<orx::file::TransactionalFile> file, std::string const& path)
    : m_path(path), m_file(std::move(file)) {}

namespace {

/// With smaller blocks of metadata than programs have, so that most pages hold values too.
Handle MixingAccess(orx::file::TransactionalFile& file) {
  Handle access = CheckedId(orx::store::MakeFileAccess(file), "access");
  Checked(H5Pset_meta_block_size(access.Get(), 700), "access");
  return access;
}

} // namespace

Session Session::Create(std::string const& path, bool isScratch) {
  Session session(orx::file::TransactionalFile::Create(path, isScratch, true), path);
  orx::store::QuietErrors const quiet;
  Handle const access = MixingAccess(session.File());
  Handle const creation(orx::store::MakeFileCreation());
  session.m_hdf5 =
      CheckedId(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, creation.Get(), access.Get()), "creating");
  return session;
}

Session Session::Open(std::string const& path, bool readOnly) {
  Session session(orx::file::TransactionalFile::Open(path, readOnly), path);
  session.File().File().PrepareMapping();
  session.Reopen();
  return session;
}

void Session::Reopen() {
  orx::store::QuietErrors const quiet;
  m_hdf5.Close();
  Handle const access = MixingAccess(File());
  unsigned const mode = File().IsReadOnly() ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
  m_hdf5 = CheckedId(H5Fopen(m_path.c_str(), mode, access.Get()), "opening");
}

Session::~Session() {
  if (m_file != nullptr) m_file->Discard();
}

void Session::Flush() const {
  orx::store::QuietErrors const quiet;
  Checked(H5Fflush(Id(), H5F_SCOPE_LOCAL), "flushing");
}

void Session::Commit() const {
  Flush();
  File().Commit();
}

std::optional<orx::file::FileError> Session::Failure() const {
  if (File().LastFailure() == nullptr) return {};
  try {
    std::rethrow_exception(File().LastFailure());
  } catch (orx::file::FileError const& error) {
    return error;
  }
}

namespace {

constexpr hsize_t chunkCells = 2048;

/// A set of integers that is stored in its header.
void WriteCompact(hid_t group, std::string const& name, int first) {
  std::vector<int> values(5);
  std::iota(values.begin(), values.end(), first);
  hsize_t const size = values.size();
  Handle const space = CheckedId(H5Screate_simple(1, &size, nullptr), name);
  Handle const creation = CheckedId(H5Pcreate(H5P_DATASET_CREATE), name);
  Checked(H5Pset_layout(creation.Get(), H5D_COMPACT), name);
  Handle const set = CheckedId(
      H5Dcreate2(group, name.c_str(), H5T_STD_I32LE, space.Get(), H5P_DEFAULT, creation.Get(), H5P_DEFAULT),
      name);
  Checked(H5Dwrite(set.Get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), name);
}

/// The cells [first, first + count) become `value`.
void WriteCells(hid_t dataset, hsize_t first, hsize_t count, double value) {
  std::vector<double> const cells(count, value);
  Handle const inFile = CheckedId(H5Dget_space(dataset), "cells");
  Handle const inMemory = CheckedId(H5Screate_simple(1, &count, nullptr), "cells");
  Checked(H5Sselect_hyperslab(inFile.Get(), H5S_SELECT_SET, &first, nullptr, &count, nullptr), "cells");
  Checked(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, inMemory.Get(), inFile.Get(), H5P_DEFAULT, cells.data()),
          "cells");
}

/// Cells in chunks, which can be extended.
Handle WriteChunked(hid_t group, std::string const& name, hsize_t cells, double value) {
  hsize_t const unlimited = H5S_UNLIMITED;
  Handle const space = CheckedId(H5Screate_simple(1, &cells, &unlimited), name);
  Handle const creation = CheckedId(H5Pcreate(H5P_DATASET_CREATE), name);
  Checked(H5Pset_chunk(creation.Get(), 1, &chunkCells), name);
  Handle dataset = CheckedId(
      H5Dcreate2(group, name.c_str(), H5T_IEEE_F64LE, space.Get(), H5P_DEFAULT, creation.Get(), H5P_DEFAULT),
      name);
  WriteCells(dataset.Get(), 0, cells, value);
  return dataset;
}

/// A few values, small enough to lie on pages with metadata.
Handle WriteSmall(hid_t group, std::string const& name) {
  hsize_t const cells = 20;
  Handle const space = CheckedId(H5Screate_simple(1, &cells, nullptr), name);
  Handle dataset = CheckedId(
      H5Dcreate2(group, name.c_str(), H5T_IEEE_F64LE, space.Get(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
      name);
  WriteCells(dataset.Get(), 0, cells, -1.0);
  return dataset;
}

/// Writes past HDF5, through the mapping.
void MapCell(Session const& session, Handle const& dataset, int cell, double value) {
  std::uint64_t const offset = H5Dget_offset(dataset.Get()) + static_cast<std::uint64_t>(cell) * sizeof value;
  std::memcpy(session.File().File().Bytes(offset, sizeof value), &value, sizeof value);
  session.File().WillWriteRawData();
}

} // namespace

void Change(Session const& session, int number) {
  orx::store::QuietErrors const quiet;
  hid_t const file = session.Id();
  if (Checked(H5Lexists(file, "/trash", H5P_DEFAULT), "trash") > 0)
    Checked(H5Ldelete(file, "/trash", H5P_DEFAULT), "trash");
  std::string const path = std::string("/t") + std::to_string(number);
  Handle const group = CheckedId(H5Gcreate2(file, path.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), path);
  orx::store::WriteAttribute(group, "number", number);
  std::vector<Handle> small;
  for (int k = 0; k < 6; ++k) {
    WriteCompact(group.Get(), std::string("set") + std::to_string(k), 100 * number + k);
    small.push_back(WriteSmall(group.Get(), std::string("small") + std::to_string(k)));
  }
  WriteChunked(group.Get(), "values", 2 * chunkCells, number);
  session.Flush(); // now the metadata beside the small values is held
  for (Handle const& dataset : small)
    MapCell(session, dataset, 3, number);
  if (number == 0) {
    WriteChunked(file, "growing", chunkCells, 0);
    return;
  }
  Handle const growing = CheckedId(H5Dopen2(file, "growing", H5P_DEFAULT), "growing");
  hsize_t const cells = (static_cast<hsize_t>(number) + 1) * chunkCells;
  Checked(H5Dset_extent(growing.Get(), &cells), "growing");
  WriteCells(growing.Get(), cells - chunkCells, chunkCells, number);
  std::string const former = std::string("/t") + std::to_string(number - 1);
  Checked(H5Lmove(file, former.c_str(), file, "/trash", H5P_DEFAULT, H5P_DEFAULT), "moving");
}

namespace {

std::string DescribeValues(hid_t dataset) {
  Handle const space = CheckedId(H5Dget_space(dataset), "describing");
  auto const cells =
      static_cast<std::size_t>(Checked(H5Sget_simple_extent_npoints(space.Get()), "describing"));
  std::vector<double> values(cells);
  Checked(H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), "describing");
  std::string text = std::string(" ") + std::to_string(cells) + ":";
  for (std::size_t begin = 0; begin < cells;) {
    std::size_t end = begin + 1; // also if it is not a number
    while (end < cells && values[end] == values[begin])
      ++end;
    text += std::string(" ") + std::to_string(end - begin) + "x" +
            std::to_string(static_cast<int>(values[begin]));
    begin = end;
  }
  return text;
}

herr_t DescribeObject(hid_t from, char const* name, H5O_info_t const*, void* into) {
  std::string& text = *static_cast<std::string*>(into);
  // What is in the trash is no longer looked at; its space may be in use again.
  if (std::string(name).starts_with("trash")) return 0;
  try {
    Handle const object = CheckedId(H5Oopen(from, name, H5P_DEFAULT), "describing");
    text += name;
    if (orx::store::HasAttribute(object, "number"))
      text += " number " + std::to_string(orx::store::ReadInteger(object, "number"));
    if (H5Iget_type(object.Get()) == H5I_DATASET) text += DescribeValues(object.Get());
  } catch (orx::store::Hdf5Failure const& failure) {
    text += " unreadable: " + failure.cause;
  }
  text += "\n";
  return 0;
}

} // namespace

std::string Describe(hid_t file) {
  orx::store::QuietErrors const quiet;
  std::string text;
  if (H5Ovisit2(file, H5_INDEX_NAME, H5_ITER_INC, DescribeObject, &text, H5O_INFO_BASIC) < 0)
    text += "unreadable";
  return text;
}

std::string DescribeWithPlainHdf5(std::string const& path) {
  orx::store::QuietErrors const quiet;
  std::string const copy = path + ".copy";
  std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing);
  Handle const file(H5Fopen(copy.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
  return file.IsValid() ? Describe(file.Get()) : "refused";
}
