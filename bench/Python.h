#pragma once

#include <map>
#include <string>

namespace bench {

/// A Python interpreter that has these modules ("numpy, h5py"), or "".
std::string PythonWith(std::string const& modules);
/// A Python interpreter that has SciPy, or "".
std::string PythonWithSciPy();
/// The commands that run text_peers.py and kernel_peers.py, without their arguments.
std::string TextPeersCommand(std::string const& python);
std::string KernelPeersCommand(std::string const& python);

} // namespace bench
