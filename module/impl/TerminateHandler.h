#pragma once

namespace orx {

/// From here to the matching restoration, an exception of the library that nobody catches prints its number
/// and text on standard error before the process ends as the host has it: the terminate handler that was
/// there is called next.
void InstallTerminateHandler() noexcept;
/// Puts the former handler back, unless the host has set another one meanwhile.
void RestoreTerminateHandler() noexcept;

} // namespace orx
