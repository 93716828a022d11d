#pragma once

#include "sim/impl/store/DatabaseFile.h"
#include "sim/impl/store/Hdf5.h"

namespace orx::store {

/// Runs what calls HDF5 or touches the file. Failures of the file system and of HDF5, and what was read and
/// did not make sense, become ORXSimExceptions that name the file.
template<class Work>
auto Guarded(DatabaseFile const& file, Work&& work) {
  QuietErrors const quiet;
  file.ForgetFailure();
  try {
    return work();
  } catch (...) {
    file.RaiseTranslated();
  }
}

/// The same for what only touches the file.
template<class Work>
void GuardedBytes(DatabaseFile const& file, Work&& work) {
  try {
    work();
  } catch (...) {
    file.RaiseTranslated();
  }
}

} // namespace orx::store
