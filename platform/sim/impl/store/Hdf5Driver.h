#pragma once

#include "sim/impl/store/TransactionalFile.h"

#include <hdf5.h>

namespace store {

/// A property list with which H5Fcreate and H5Fopen work on this file, which must outlive what they open. The
/// file is open and recovered already, so its errors do not have to pass through HDF5. Negative on failure.
hid_t MakeFileAccess(TransactionalFile& file);
/// The property list for H5Fcreate.
hid_t MakeFileCreation();

} // namespace store
