#pragma once

#include "tools/mpi/Ranks.h"

#include "tools/terminal/Interruption.h"

#include <list>

namespace orx::mpi {

/// Has the other ranks of the root's machine remove the unfinished files of the root when they are
/// interrupted too. A root that is killed, as by the system when memory runs out, cannot do that itself, but
/// mpirun then interrupts the others.
class RootsFiles {
public:
  /// Of the files that the root would remove by now. Collective.
  explicit RootsFiles(Ranks const& ranks);

private:
  std::list<tool::RemovedWhenInterrupted> m_removals; ///< none on the root
};

} // namespace orx::mpi
