#include "examples/support/ModeTable.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

std::vector<TabledMode> ReadModeTable(std::string const& path, int count) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + ": cannot be opened; run `orxmtx modes` first");
  std::vector<TabledMode> modes;
  for (std::string line; std::ssize(modes) < count && std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    int number = 0;
    double frequency = 0.0, eigenvalue = 0.0, residual = 0.0, error = 0.0;
    if (!(std::istringstream(line) >> number >> frequency >> eigenvalue >> residual >> error) ||
        number != std::ssize(modes) + 1)
      throw std::runtime_error((std::ostringstream() << path << ": expected mode " << modes.size() + 1
                                                     << " and its values, found \"" << line << "\"")
                                   .str());
    modes.push_back({frequency, error});
  }
  if (std::ssize(modes) < count)
    throw std::runtime_error(
        (std::ostringstream() << path << ": expected " << count << " modes, found " << modes.size()).str());
  return modes;
}

} // namespace support
