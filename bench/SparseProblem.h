#pragma once

#include "bench/BlockOfVectors.h"
#include "bench/TemporaryFolder.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

// The matrices of the claims about sparse matrices: square, values of multiples of 1/1024, entries in every
// row.

namespace bench {

struct ProblemKind {
  char const* name;
  int rounds; ///< how often each contender has its turn
  std::array<int, 4> vectorCounts;
  void (*assemble)(ORXSrvSparseMatrix&);
};

/// A cube of hexahedral elements with three unknowns a node, 24 million entries; symmetric.
extern ProblemKind const elasticity;
/// A plane grid of a million nodes, each with entries for its neighbours; symmetric.
extern ProblemKind const planeGrid;
/// A million rows with ten entries each, anywhere.
extern ProblemKind const random;
/// Unstructured meshes, one or three unknowns a node, numbered by reverse Cuthill-McKee or at random;
/// symmetric.
extern std::vector<ProblemKind> const meshes;

struct Problem {
  std::array<int, 4> vectorCounts;
  std::unique_ptr<ORXSrvSparseMatrix> matrix;
  int rows;
  LargeArray<int> ia, ja; ///< the same in compressed rows, for the others
  LargeArray<double> a;

  explicit Problem(ProblemKind const& kind);

  struct Vectors {
    BlockOfVectors x, y;
  };
  /// The same for everybody; y holds what the one before has left there.
  Vectors& VectorsFor(int count) const;

private:
  static std::unique_ptr<ORXSrvSparseMatrix> NewAssembled(ProblemKind const& kind);

  mutable std::map<int, Vectors> m_vectors;
};

/// The compressed rows as files ia.bin, ja.bin and a.bin, for contenders that are programs of their own.
class MatrixFiles {
public:
  explicit MatrixFiles(Problem const& problem);
  std::string const& Folder() const { return m_folder.Path(); }
  std::array<int, 4> const& VectorCounts() const { return m_vectorCounts; }

private:
  std::array<int, 4> m_vectorCounts;
  TemporaryFolder m_folder;
};

} // namespace bench
