#include "mtx/impl/exchange/ORXSrvSparseImExPorter.h"

#include "mtx/impl/exchange/DenseBinary.h"
#include "mtx/impl/exchange/FortranRecords.h"
#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/exchange/SparseBlocks.h"
#include "mtx/impl/exchange/TextExport.h"
#include "mtx/impl/exchange/TextTriplets.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimTransfer.h"

#include <string>
#include <utility>

using namespace orx;

namespace {

constexpr auto& sourceFile = orx::exchangeSource;

CompressedRows ReadFile(char const* path, int format) {
  switch (format) {
  case 0:
    return ReadFortranRecords(path);
  case 1:
    return ReadBlockBinary(path);
  case 2:
    return ReadTextTriplets(path, "rb");
  case 3:
    return ReadTextTriplets(path, "r");
  case 6:
    return ReadChunkedBinary(path);
  case 7:
    return ReadDenseBinary(path);
  default:
    ORXSrvMtxUnsupportedImpFmt().Throw(sourceFile, __LINE__);
  }
}

// Indices of the buffers of a sparse transfer.
constexpr int valuesBuffer = 0;
constexpr int columnsBuffer = 1;
constexpr int rowPointersBuffer = 2;
constexpr int diagonalBuffer = 3;

bool IsSymmetric(ORXSimSerializationType const& type) {
  return type.Kind() == ORXSimSerializationType::Layout::SparseSym;
}

void RequireSquare(std::int32_t rows, std::int32_t columns) {
  if (rows == columns) return;
  std::string const detail = "Import, a symmetric matrix with as many columns as rows expected, found " +
                             std::to_string(rows) + " rows and " + std::to_string(columns) + " columns";
  ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
}

/// Allocates the arrays for the values of a sparse drawer; the diagonal for one in symmetric form only.
CompressedRows AllocateFor(ORXSimPersistentDrawerDesc const& drawer) {
  bool const isSymmetric = IsSymmetric(drawer.Serialization());
  if (isSymmetric) RequireSquare(drawer.DimensionSize(0), drawer.DimensionSize(1));
  CompressedRows content;
  AllocateRowPointers(content, drawer.DimensionSize(0), drawer.DimensionSize(1));
  content.entries = static_cast<std::int32_t>(drawer.DataSizeItems(valuesBuffer));
  ResizeEntries(content, content.entries);
  if (isSymmetric) content.diagonal = mem_MakeArray<double>(content.rows);
  return content;
}

void ReadArrays(ORXSimTransfer& transfer, CompressedRows& content) {
  std::int64_t const rows = content.rows;
  std::int64_t const entries = content.entries;
  transfer.SetBuffer(rowPointersBuffer, content.rowPointers.get(), (rows + 1) * 4);
  transfer.SetBuffer(columnsBuffer, content.columnIndices.get(), entries * 4);
  transfer.SetBuffer(valuesBuffer, content.values.get(), entries * 8);
  if (content.diagonal != nullptr) transfer.SetBuffer(diagonalBuffer, content.diagonal.get(), rows * 8);
  transfer.ExecRead();
  transfer.RelinquishBuffers();
}

} // namespace

// Files

CompressedRows ORXSrvSparseImExPorter::Import(char const* path, int format) const {
  return ReadFile(path, format);
}

void ORXSrvSparseImExPorter::RequireExportable(int format, bool hasTriangle,
                                               ORXSrvSystemDofDefinition const* dofs) const {
  if (format < 3 || format > 7) ORXSrvMtxUnsupportedExpFmt().Throw(sourceFile, __LINE__);
  if (format == 4 && dofs == nullptr)
    ORXSrvMtxIllegalInput("Export(format 4), a definition of degrees of freedom expected, found none")
        .Throw(sourceFile, __LINE__);
  if (format == 6 && !hasTriangle) ORXSrvMtxNoUnsymmetric().Throw(sourceFile, __LINE__);
}

void ORXSrvSparseImExPorter::Export(CompressedRowsView const& matrix, char const* path, int format,
                                    ORXSrvSystemDofDefinition const* dofs) const {
  switch (format) {
  case 3:
    return WriteOneBasedText(path, matrix);
  case 4:
    return WriteNodeDofText(path, matrix, *dofs);
  case 5:
    return WriteZeroBasedText(path, matrix);
  case 6:
    return WriteChunkedBinary(path, matrix);
  default:
    return WriteDenseBinary(path, matrix);
  }
}

// Database

void ORXSrvSparseImExPorter::Export(CompressedRowsView const& matrix, ORXSimCSetID const& rows,
                                    ORXSimCSetID const& columns, ORXSimDistributionID const& id) const {
  ORXSimDistribution const distribution(id);
  ORXSimSerializationType type;
  matrix.diagonal != nullptr ? type.SetSparseSym() : type.SetSparse();
  ORXSimTransfer transfer(distribution);
  transfer.SetMakeNewDrawer()
      .SetWrite()
      .SetBufferPadding(false)
      .SetSparseNNonzero(matrix.Entries())
      .SetDim(0, rows)
      .SetDim(1, columns)
      .SetSerialization(type)
      .CheckView();
  transfer.SetBuffer(rowPointersBuffer, matrix.rowPointers, (std::int64_t{matrix.rows} + 1) * 4);
  transfer.SetBuffer(columnsBuffer, matrix.columnIndices, std::int64_t{matrix.Entries()} * 4);
  transfer.SetBuffer(valuesBuffer, matrix.values, std::int64_t{matrix.Entries()} * 8);
  if (IsSymmetric(type)) transfer.SetBuffer(diagonalBuffer, matrix.diagonal, std::int64_t{matrix.rows} * 8);
  transfer.ExecWrite().RelinquishBuffers();
}

ORXSrvSparseImExPorter::Drawer ORXSrvSparseImExPorter::Import(ORXSimDistributionID const& id) const {
  ORXSimDistribution const distribution(id);
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  distribution.QueryDrawers(drawers);
  ORXSimTransfer transfer(distribution);
  transfer.SetRead().SetBufferPadding(false);
  if (drawers.Size() == 0 || !drawers[0].Serialization().IsSparse())
    transfer.SetSerialization(ORXSimSerializationType().SetSparse()).CheckView(); // raises the error
  ORXSimPersistentDrawerDesc const& drawer = drawers[0];
  ORXSimCSetID const rows = drawer.DimensionCSetID(0);
  ORXSimCSetID const columns = drawer.DimensionCSetID(1);
  transfer.SetSerialization(drawer.Serialization()).SetDim(0, rows).SetDim(1, columns).CheckView();
  CompressedRows content = AllocateFor(drawer);
  ReadArrays(transfer, content);
  // Other programs store the columns of a row in any order.
  if (content.diagonal == nullptr) SortRows(content);
  content.numberOfNonzeros = content.entries;
  return {std::move(content), rows, columns};
}
