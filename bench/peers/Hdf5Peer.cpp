#include "bench/peers/Hdf5Peer.h"

#include <cstdio>
#include <hdf5.h>
#include <stdexcept>

namespace bench {
namespace {

hid_t Checked(hid_t result, char const* call) {
  if (result < 0) throw std::runtime_error(std::string(call) + " failed");
  return result;
}

} // namespace

Hdf5Blocks::Hdf5Blocks(std::string const& path, int order, int rows, int columns) : m_path(path) {
  hid_t const file = H5Pcreate(H5P_FILE_ACCESS);
  H5Pset_libver_bounds(file, H5F_LIBVER_V18, H5F_LIBVER_V18);
  m_file = Checked(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, file), "H5Fcreate");
  H5Pclose(file);
  hsize_t const extent[] = {static_cast<hsize_t>(order), static_cast<hsize_t>(order)};
  hsize_t const chunk[] = {static_cast<hsize_t>(columns), static_cast<hsize_t>(rows)};
  hid_t const space = H5Screate_simple(2, extent, nullptr);
  hid_t const creation = H5Pcreate(H5P_DATASET_CREATE);
  H5Pset_chunk(creation, 2, chunk);
  hid_t const access = H5Pcreate(H5P_DATASET_ACCESS);
  // All of it: the best that a cache can do.
  H5Pset_chunk_cache(access, 12421, std::size_t{8} * order * order, 0.75);
  m_dataset = Checked(H5Dcreate2(m_file, "values", H5T_IEEE_F64LE, space, H5P_DEFAULT, creation, access),
                      "H5Dcreate2");
  H5Pclose(access);
  H5Pclose(creation);
  H5Sclose(space);
}

Hdf5Blocks::~Hdf5Blocks() {
  H5Dclose(m_dataset);
  H5Fclose(m_file);
  std::remove(m_path.c_str());
}

void Hdf5Blocks::Transfer(bool isWrite, int r1, int r2, int c1, int c2, double* buffer) const {
  hsize_t const first[] = {static_cast<hsize_t>(c1), static_cast<hsize_t>(r1)};
  hsize_t const count[] = {static_cast<hsize_t>(c2 - c1 + 1), static_cast<hsize_t>(r2 - r1 + 1)};
  hid_t const fileSpace = H5Dget_space(m_dataset);
  H5Sselect_hyperslab(fileSpace, H5S_SELECT_SET, first, nullptr, count, nullptr);
  hid_t const memorySpace = H5Screate_simple(2, count, nullptr);
  herr_t const result =
      isWrite ? H5Dwrite(m_dataset, H5T_NATIVE_DOUBLE, memorySpace, fileSpace, H5P_DEFAULT, buffer)
              : H5Dread(m_dataset, H5T_NATIVE_DOUBLE, memorySpace, fileSpace, H5P_DEFAULT, buffer);
  H5Sclose(memorySpace);
  H5Sclose(fileSpace);
  Checked(result, isWrite ? "H5Dwrite" : "H5Dread");
}

void CreateHdf5Datasets(std::string const& path, int count, int order) {
  hid_t const access = H5Pcreate(H5P_FILE_ACCESS);
  H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_V18);
  hid_t const file = Checked(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access), "H5Fcreate");
  hsize_t const extent[] = {static_cast<hsize_t>(order), static_cast<hsize_t>(order)};
  hid_t const space = H5Screate_simple(2, extent, nullptr);
  hid_t const creation = H5Pcreate(H5P_DATASET_CREATE);
  H5Pset_alloc_time(creation, H5D_ALLOC_TIME_EARLY);
  for (int k = 0; k < count; ++k)
    H5Dclose(Checked(H5Dcreate2(file, std::to_string(k).c_str(), H5T_IEEE_F64LE, space, H5P_DEFAULT, creation,
                                H5P_DEFAULT),
                     "H5Dcreate2"));
  H5Pclose(creation);
  H5Sclose(space);
  H5Fclose(file);
  H5Pclose(access);
  std::remove(path.c_str());
}

} // namespace bench
