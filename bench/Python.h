#pragma once

#include <map>
#include <string>

namespace bench {

/// A Python interpreter that has these modules ("numpy, h5py"), or "".
std::string PythonWith(std::string const& modules);
/// A Python interpreter that has SciPy, or "".
std::string PythonWithSciPy();
/// The command that runs text_peers.py, without its arguments.
std::string TextPeersCommand(std::string const& python);

} // namespace bench
