#include "module/impl/TerminateHandler.h"

#include "core/ORXBasException.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

namespace orx {

namespace {

std::terminate_handler hosts = nullptr;

void PrintUncaughtError() noexcept {
  if (!std::current_exception()) return;
  try {
    throw;
  } catch (ORXBasException const& e) {
    std::fprintf(stderr, "Error %d, which nothing caught: %s\n", e.ErrorCode(), e.AsString().AsText());
  } catch (...) {
    return; // the host's handler, or the runtime's, knows other exceptions
  }
}

[[noreturn]] void PrintAndGoOn() {
  // Whoever comes back here, a handler that calls this one or a text that cannot be made, finds nothing to go
  // on with.
  std::terminate_handler const next = std::exchange(hosts, nullptr);
  if (next != nullptr) {
    PrintUncaughtError();
    next();
  }
  std::abort(); // a handler that returns breaks its contract
}

} // namespace

void InstallTerminateHandler() noexcept {
  std::terminate_handler const former = std::set_terminate(PrintAndGoOn);
  // When ours is still there, under a handler that the host has taken back since, the one below it is known.
  if (former != PrintAndGoOn) hosts = former;
}

void RestoreTerminateHandler() noexcept {
  if (std::get_terminate() == PrintAndGoOn) std::set_terminate(hosts);
}

} // namespace orx
