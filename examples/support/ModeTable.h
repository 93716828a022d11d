#pragma once

#include <string>
#include <vector>

namespace support {

/// A line of the table that `orxmtx modes` prints.
struct TabledMode {
  double frequency; ///< Hz
  double error;     ///< of the eigenvalue, relative; that of the frequency is half of it
};

/// Reads the first `count` modes: lines "mode frequency eigenvalue residual error", '#' starts a remark.
/// Raises std::runtime_error for another file, or one of fewer modes.
std::vector<TabledMode> ReadModeTable(std::string const& path, int count);

} // namespace support
