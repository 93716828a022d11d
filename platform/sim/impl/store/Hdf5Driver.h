#pragma once

#include <hdf5.h>

namespace orx::file {
class TransactionalFile;
}

namespace orx::store {

/// A file access list for H5Fcreate and H5Fopen that makes HDF5 use an open file, whatever name they are
/// given. H5Fcreate needs one that is empty. HDF5 must have closed the file before its owner lets go of it.
/// Closing never commits. Negative on failure; the caller closes the list.
hid_t MakeFileAccess(file::TransactionalFile& file);

/// The file creation list that goes with it. Negative on failure; the caller closes the list.
hid_t MakeFileCreation();

} // namespace orx::store
