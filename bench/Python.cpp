#include "bench/Python.h"

#include <cstdlib>

namespace bench {

std::string PythonWith(std::string const& modules) {
  // A python3 earlier in the path need not be the one that the system's packages belong to.
  for (char const* const python : {"python3", "/usr/bin/python3"}) {
    std::string const test = std::string(python) + " -c 'import " + modules + "' 2>/dev/null";
    if (std::system(test.c_str()) == 0)
      return python; // NOLINT(*-env33-c, bugprone-command-processor): own text
  }
  return "";
}

std::string PythonWithSciPy() { return PythonWith("scipy.io"); }

std::string TextPeersCommand(std::string const& python) { return python + " '" + ORX_BENCH_TEXT_PEERS + "'"; }

std::string KernelPeersCommand(std::string const& python) {
  return python + " '" + ORX_BENCH_KERNEL_PEERS + "'";
}

} // namespace bench
