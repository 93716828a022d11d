#pragma once

#include "sim/ORXSimIdentifiers.h"

class ORXSrvSparseMatrix;
class ORXSrvSystemDofDefinition;

namespace orx {
struct SparseView;
}

/// Moves sparse matrices from and to files, by format code, and the database. Holds no state: made for one
/// call. A failed import leaves the matrix as it was.
class ORXSrvSparseImExPorter {
public:
  void Import(ORXSrvSparseMatrix& matrix, char const* path, int format) const;
  void Import(ORXSrvSparseMatrix& matrix, ORXSimDistributionID const& id) const;
  /// `dofs` is used by format 4 only.
  void Export(ORXSrvSparseMatrix const& matrix, char const* path, int format,
              ORXSrvSystemDofDefinition const* dofs) const;
  void Export(ORXSrvSparseMatrix const& matrix, ORXSimCSetID const& rows, ORXSimCSetID const& columns,
              ORXSimDistributionID const& id) const;

private:
  /// The arrays, which lack nothing: error 206 unless the matrix is assembled and nothing was added since.
  static orx::SparseView WholeOf(ORXSrvSparseMatrix const& matrix);
  static void ExportNodeDofText(ORXSrvSparseMatrix const& matrix, char const* path,
                                ORXSrvSystemDofDefinition const* dofs);
  static void ExportChunkedBinary(ORXSrvSparseMatrix const& matrix, char const* path);
};
