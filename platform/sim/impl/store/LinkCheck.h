#pragma once

#include <cstdint>

namespace orx::store {

/// Whether every commit runs CheckLinks first: in debug builds, and where tests ask for it. It looks at all
/// objects of the file.
extern bool checksEveryCommit;

/// For a file's hid_t; inside Guarded. Raises an Hdf5Failure when an object has other than one link, or when
/// two objects, or the cells of two datasets, share bytes of the file: one of them will be overwritten.
void CheckLinks(std::int64_t file);

} // namespace orx::store
