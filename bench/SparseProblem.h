#pragma once

#include "bench/BlockOfVectors.h"
#include "bench/TemporaryFolder.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <memory>
#include <string>

// The matrices of the claims about sparse matrices: square, values of multiples of 1/1024, entries in every
// row.

namespace bench {

struct ProblemKind {
  char const* name;
  int rounds; ///< how often each contestant has its turn
  void (*assemble)(ORXSrvSparseMatrix&);
};

/// A cube of hexahedral elements with three unknowns a node, 24 million entries; symmetric.
extern ProblemKind const elasticity;
/// A plane grid of a million nodes, each with entries for its neighbours; symmetric.
extern ProblemKind const planeGrid;
/// A million rows with ten entries each, anywhere.
extern ProblemKind const random;

struct Problem {
  std::unique_ptr<ORXSrvSparseMatrix> matrix;
  int rows;
  LargeArray<int> ia, ja; ///< the same in compressed rows, for the others
  LargeArray<double> a;

  explicit Problem(ProblemKind const& kind) : Problem(NewAssembled(kind)) {}
  explicit Problem(std::unique_ptr<ORXSrvSparseMatrix> assembled);

private:
  static std::unique_ptr<ORXSrvSparseMatrix> NewAssembled(ProblemKind const& kind);
};

/// The compressed rows as files ia.bin, ja.bin and a.bin, for contestants that are programs of their own.
class MatrixFiles {
public:
  explicit MatrixFiles(Problem const& problem);
  std::string const& Folder() const { return m_folder.Path(); }

private:
  TemporaryFolder m_folder;
};

} // namespace bench
