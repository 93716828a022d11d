#include "mtx/impl/sparse/ORXSrvSparseImExPorter.h"

#include "mtx/ORXSrvSparseMatrix.h"
#include "mtx/impl/exchange/DenseBinary.h"
#include "mtx/impl/exchange/FortranRecords.h"
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

SparseContent ReadFile(char const* path, int format) {
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

// The buffers of a sparse transfer.
constexpr int valuesBuffer = 0;
constexpr int columnsBuffer = 1;
constexpr int startsBuffer = 2;
constexpr int diagonalBuffer = 3;

bool IsSymmetric(ORXSimSerializationType const& type) {
  return type.Kind() == ORXSimSerializationType::Layout::SparseSym;
}

} // namespace

// ---- files

void ORXSrvSparseImExPorter::Import(ORXSrvSparseMatrix& matrix, char const* path, int format) const {
  matrix.Replace(ReadFile(path, format));
}

SparseView ORXSrvSparseImExPorter::WholeOf(ORXSrvSparseMatrix const& matrix) {
  matrix.RequireAllAssembled("Export");
  return matrix.View();
}

void ORXSrvSparseImExPorter::Export(ORXSrvSparseMatrix const& matrix, char const* path, int format,
                                    ORXSrvSystemDofDefinition const* dofs) const {
  switch (format) {
  case 3:
    return WriteOneBasedText(path, WholeOf(matrix));
  case 4:
    return ExportNodeDofText(matrix, path, dofs);
  case 5:
    return WriteZeroBasedText(path, WholeOf(matrix));
  case 6:
    return ExportChunkedBinary(matrix, path);
  case 7:
    return WriteDenseBinary(path, WholeOf(matrix));
  default:
    ORXSrvMtxUnsupportedExpFmt().Throw(sourceFile, __LINE__);
  }
}

void ORXSrvSparseImExPorter::ExportNodeDofText(ORXSrvSparseMatrix const& matrix, char const* path,
                                               ORXSrvSystemDofDefinition const* dofs) {
  if (dofs == nullptr)
    ORXSrvMtxIllegalInput("Export(format 4), a definition of degrees of freedom expected, found none")
        .Throw(sourceFile, __LINE__);
  WriteNodeDofText(path, WholeOf(matrix), *dofs);
}

void ORXSrvSparseImExPorter::ExportChunkedBinary(ORXSrvSparseMatrix const& matrix, char const* path) {
  // A general form that was found to be symmetric has no diagonal to be written.
  if (matrix.m_symmetryState != ORXSrvSparseMatrix::symmetric || !matrix.IsSymmetricForm())
    ORXSrvMtxNoUnsymmetric().Throw(sourceFile, __LINE__);
  WriteChunkedBinary(path, WholeOf(matrix));
}

// ---- database

void ORXSrvSparseImExPorter::Export(ORXSrvSparseMatrix const& matrix, ORXSimCSetID const& rows,
                                    ORXSimCSetID const& columns, ORXSimDistributionID const& id) const {
  SparseView const view = WholeOf(matrix);
  ORXSimDistribution const distribution(id);
  ORXSimSerializationType type;
  view.diagonal != nullptr ? type.SetSparseSym() : type.SetSparse();
  ORXSimTransfer transfer(distribution);
  transfer.SetMakeNewDrawer()
      .SetWrite()
      .SetBufferPadding(false)
      .SetSparseNNonzero(view.Entries())
      .SetDim(0, rows)
      .SetDim(1, columns)
      .SetSerialization(type)
      .CheckView();
  transfer.SetBuffer(startsBuffer, view.starts, (std::int64_t{view.storedRows} + 1) * 4);
  transfer.SetBuffer(columnsBuffer, view.columnIndices, std::int64_t{view.Entries()} * 4);
  transfer.SetBuffer(valuesBuffer, view.values, std::int64_t{view.Entries()} * 8);
  if (IsSymmetric(type)) transfer.SetBuffer(diagonalBuffer, view.diagonal, std::int64_t{view.storedRows} * 8);
  transfer.ExecWrite().RelinquishBuffers();
}

void ORXSrvSparseImExPorter::Import(ORXSrvSparseMatrix& matrix, ORXSimDistributionID const& id) const {
  ORXSimDistribution const distribution(id);
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  distribution.QueryDrawers(drawers);
  ORXSimTransfer transfer(distribution);
  transfer.SetRead().SetBufferPadding(false);
  if (drawers.Size() == 0 || !drawers[0].Serialization().IsSparse())
    transfer.SetSerialization(ORXSimSerializationType().SetSparse()).CheckView(); // raises what is missing
  ORXSimPersistentDrawerDesc const& drawer = drawers[0];
  ORXSimCSetID const rowSet = drawer.DimensionCSetID(0);
  ORXSimCSetID const columnSet = drawer.DimensionCSetID(1);
  transfer.SetSerialization(drawer.Serialization()).SetDim(0, rowSet).SetDim(1, columnSet).CheckView();

  SparseContent content;
  content.rows = drawer.DimensionSize(0);
  content.columns = drawer.DimensionSize(1);
  bool const isSymmetric = IsSymmetric(drawer.Serialization());
  if (isSymmetric && content.rows != content.columns) {
    std::string const detail = "Import, a symmetric matrix with as many columns as rows expected, found " +
                               std::to_string(content.rows) + " rows and " + std::to_string(content.columns) +
                               " columns";
    ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
  }
  std::int64_t const count = drawer.DataSizeItems(valuesBuffer);
  content.entries.nonzeros = static_cast<std::int32_t>(count);
  content.entries.rowPointers = mem_MakeArray<std::int32_t>(std::int64_t{content.rows} + 1);
  content.entries.Resize(count);
  transfer.SetBuffer(startsBuffer, content.entries.rowPointers.get(), (std::int64_t{content.rows} + 1) * 4);
  transfer.SetBuffer(columnsBuffer, content.entries.columns.get(), count * 4);
  if (isSymmetric) {
    content.diagonal = mem_MakeArray<double>(content.rows);
    transfer.SetBuffer(diagonalBuffer, content.diagonal.get(), std::int64_t{content.rows} * 8);
  }
  transfer.SetBuffer(valuesBuffer, content.entries.values.get(), count * 8);
  transfer.ExecRead();
  transfer.RelinquishBuffers();
  // Other programs store the columns of a row in any order.
  if (!isSymmetric) content.entries.SortRows(content.rows);
  content.nonzeros = content.entries.nonzeros;

  matrix.Replace(std::move(content));
  matrix.m_rowCSetID = rowSet;
  matrix.m_columnCSetID = columnSet;
}
