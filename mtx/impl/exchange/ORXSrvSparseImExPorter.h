#pragma once

#include "mtx/CompressedRows.h"
#include "sim/ORXSimIdentifiers.h"

class ORXSrvSystemDofDefinition;

/// Moves the arrays of sparse matrices from and to files, by format code, and the database. Holds no state:
/// made for one call.
class ORXSrvSparseImExPorter {
public:
  /// A sparse drawer, and the sets of its rows and columns.
  struct Drawer {
    orx::CompressedRows content;
    ORXSimCSetID rows;
    ORXSimCSetID columns;
  };

  orx::CompressedRows Import(char const* path, int format) const;
  Drawer Import(ORXSimDistributionID const& id) const;
  /// Raises what speaks against the format, whatever the matrix holds; `hasTriangle` says that the matrix is
  /// in symmetric form.
  void RequireExportable(int format, bool hasTriangle, ORXSrvSystemDofDefinition const* dofs) const;
  /// REQUIRES a format that RequireExportable passes. `dofs` is used by format 4 only.
  void Export(orx::CompressedRowsView const& matrix, char const* path, int format,
              ORXSrvSystemDofDefinition const* dofs) const;
  void Export(orx::CompressedRowsView const& matrix, ORXSimCSetID const& rows, ORXSimCSetID const& columns,
              ORXSimDistributionID const& id) const;
};
