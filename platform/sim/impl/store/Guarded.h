#pragma once

#include "sim/impl/store/DatabaseFile.h"
#include "sim/impl/store/Handle.h"

namespace orx::store {

/// Runs work that calls HDF5. Failures of the file system and of HDF5, and damage that was found, become
/// ORXSimExceptions that name the file.
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

/// Does the same for work that accesses the file without HDF5.
template<class Work>
void GuardedBytes(DatabaseFile const& file, Work&& work) {
  try {
    work();
  } catch (...) {
    file.RaiseTranslated();
  }
}

} // namespace orx::store
