#pragma once

#include <cstdint>

namespace orx::store {

/// True when every commit runs CheckLinks first: in debug builds, and where tests ask for it. CheckLinks
/// visits all objects of the file, which is slow.
extern bool checksEveryCommit;

/// Checks the file with this identifier of HDF5; to be called inside Guarded. Raises an Hdf5Failure when an
/// object does not have exactly one link, or when two objects or the raw data of two datasets share bytes of
/// the file, of which one would be overwritten.
void CheckLinks(std::int64_t file);

} // namespace orx::store
