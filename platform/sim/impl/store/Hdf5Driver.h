#pragma once

#include <hdf5.h>

namespace orx::file {
class TransactionalFile;
}

namespace orx::store {

/// A file access list with which H5Fcreate and H5Fopen use an open file, whatever path they are given.
/// H5Fcreate needs an empty file. HDF5 must close the file before the TransactionalFile is destroyed. Closing
/// never commits. Returns a negative number on failure; the caller closes the list.
hid_t MakeFileAccess(file::TransactionalFile& file);

/// The file creation list for H5Fcreate. Returns a negative number on failure; the caller closes the list.
hid_t MakeFileCreation();

} // namespace orx::store
