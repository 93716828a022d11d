#pragma once

namespace orx {

/// Keeps the text of the exception that is being handled for ORXSRVLASTERROR; returns its number, -1 for one
/// that is not the library's. REQUIRES: called from a handler.
int KeepError() noexcept;

/// Does the work of an entry point; what leaves it is kept.
template<class Work>
auto Reporting(Work&& work) {
  try {
    return work();
  } catch (...) {
    KeepError();
    throw;
  }
}

} // namespace orx
