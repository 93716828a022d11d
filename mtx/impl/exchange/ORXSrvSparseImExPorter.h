#pragma once

#include "mtx/CompressedRows.h"
#include "sim/ORXSimIdentifiers.h"

class ORXSrvSystemDofDefinition;

/// Reads the arrays of sparse matrices from files and from the database, and writes them there. Files are
/// chosen by format code. Has no state.
class ORXSrvSparseImExPorter {
public:
  /// The content of a sparse drawer, and the member sets of its rows and columns.
  struct Drawer {
    orx::CompressedRows content;
    ORXSimCSetID rows;
    ORXSimCSetID columns;
  };

  orx::CompressedRows Import(char const* path, int format) const;
  Drawer Import(ORXSimDistributionID const& id) const;
  /// Raises an error for a format that the matrix cannot be exported to, whatever its entries are.
  /// `hasTriangle`: the matrix is in symmetric form.
  void RequireExportable(int format, bool hasTriangle, ORXSrvSystemDofDefinition const* dofs) const;
  /// REQUIRES a format that RequireExportable passes. `dofs` is used by format 4 only.
  void Export(orx::CompressedRowsView const& matrix, char const* path, int format,
              ORXSrvSystemDofDefinition const* dofs) const;
  void Export(orx::CompressedRowsView const& matrix, ORXSimCSetID const& rows, ORXSimCSetID const& columns,
              ORXSimDistributionID const& id) const;
};
