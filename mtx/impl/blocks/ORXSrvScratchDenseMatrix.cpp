#include "mtx/ORXSrvScratchDenseMatrix.h"

#include "mtx/ORXSrvUtilities.h"
#include "mtx/impl/blocks/MemberLabels.h"
#include "mtx/impl/blocks/ORXSrvSimFileHandleNames.h"
#include "mtx/impl/blocks/ORXSrvUtilitiesChunks.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimTransaction.h"

#include <algorithm>
#include <vector>

using namespace orx;

// Creation and destruction

ORXSrvScratchDenseMatrix::ORXSrvScratchDenseMatrix() = default;

ORXSrvScratchDenseMatrix::ORXSrvScratchDenseMatrix(int rows, int columns, int rowChunk, int columnChunk)
    : ORXSrvScratchDenseMatrix(rows, columns, nullptr, nullptr, rowChunk, columnChunk) {}

ORXSrvScratchDenseMatrix::ORXSrvScratchDenseMatrix(int rows, int columns, int const* rowLabels,
                                                   int const* columnLabels, int rowChunk, int columnChunk) {
  Build(rows, columns, rowLabels, columnLabels, rowChunk, columnChunk);
}

ORXSrvScratchDenseMatrix::ORXSrvScratchDenseMatrix(ORXSimCSetID rowSet, ORXSimCSetID columnSet, int rowChunk,
                                                   int columnChunk)
    : m_externalRowCSetID(rowSet), m_externalColumnCSetID(columnSet) {
  std::vector<int> const rowLabels = ReadLabels(ORXSimCSet(rowSet));
  std::vector<int> const columnLabels = ReadLabels(ORXSimCSet(columnSet));
  Build(static_cast<int>(rowLabels.size()), static_cast<int>(columnLabels.size()), rowLabels.data(),
        columnLabels.data(), rowChunk, columnChunk);
}

ORXSrvScratchDenseMatrix::ORXSrvScratchDenseMatrix(ORXSrvScratchDenseMatrix const& parent, int firstRow,
                                                   int lastRow, int firstColumn, int lastColumn)
    : ORXSrvDenseMatrix(parent, firstRow, lastRow, firstColumn, lastColumn),
      m_fileHandle(parent.m_fileHandle) {}

ORXSrvScratchDenseMatrix::~ORXSrvScratchDenseMatrix() = default;

ORXSimContextID ORXSrvScratchDenseMatrix::CreateFile(char const* className) {
  CreateUnderFreeName(className, this, [this](atr_String const& name) { m_fileHandle.Associate(name); });
  return m_fileHandle.ContextID();
}

void ORXSrvScratchDenseMatrix::ReportSets(ORXSimCSetID const& rows, ORXSimCSetID const& columns) noexcept {
  m_externalRowCSetID = rows;
  m_externalColumnCSetID = columns;
}

void ORXSrvScratchDenseMatrix::Build(int rows, int columns, int const* rowLabels, int const* columnLabels,
                                     int rowChunk, int columnChunk) {
  ORXSimContext const context(CreateFile("ORXSrvScratchDenseMatrix"));
  ORXSimTransaction transaction(context.ID());
  ORXSimCollectionID const rowCollection = context.CreateCollection(rows, ORXSimTypeID());
  ORXSimCollectionID const columnCollection = context.CreateCollection(columns, ORXSimTypeID());
  ORXSimCSetID const rowSet = MembersOf(rowCollection, rows, rowLabels);
  ORXSimCSetID const columnSet = MembersOf(columnCollection, columns, columnLabels);
  LimitChunks(rowChunk, columnChunk, rows, columns);
  ORXSimDistributionID const id =
      ORXSrvUtilities::Create2DDistribution(rowSet, columnSet, rowChunk, columnChunk);
  transaction.Commit();
  Attach(ORXSimDistribution(id));
}

// Queries and views

ORXSimCSetID ORXSrvScratchDenseMatrix::RowCSetID() const {
  return m_externalRowCSetID.IsNull() ? ORXSrvDenseMatrix::RowCSetID() : m_externalRowCSetID;
}

ORXSimCSetID ORXSrvScratchDenseMatrix::ColumnCSetID() const {
  return m_externalColumnCSetID.IsNull() ? ORXSrvDenseMatrix::ColumnCSetID() : m_externalColumnCSetID;
}

ORXSrvDenseMatrix* ORXSrvScratchDenseMatrix::Submatrix(int firstRow, int lastRow, int firstColumn,
                                                       int lastColumn) const {
  return new ORXSrvScratchDenseMatrix(*this, firstRow, lastRow, firstColumn, lastColumn);
}
