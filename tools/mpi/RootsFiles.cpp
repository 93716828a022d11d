#include "tools/mpi/RootsFiles.h"

#include <string>
#include <vector>

namespace orx::mpi {

RootsFiles::RootsFiles(Ranks const& ranks) {
  std::vector<std::string> paths = tool::PathsRemovedWhenInterrupted();
  std::size_t count = paths.size();
  ranks.Broadcast(count);
  paths.resize(count);
  for (std::string& path : paths) {
    ranks.Broadcast(path);
    if (!ranks.IsRoot()) m_removals.emplace_back().Remember(path);
  }
}

} // namespace orx::mpi
