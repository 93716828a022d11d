#include "mtx/ORXSrvDenseMatrix.h"

#include "core/mem_Allocator.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/impl/blocks/BlockRanges.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "sim/ORXSimCSet.h"
#include "sim/ORXSimException.h"
#include "sim/ORXSimTransfer.h"

#include <algorithm>
#include <string>
#include <vector>

using namespace orx;

// Access to the values. GetValues and SetValues copy a rectangle between the database and memory; all other
// functions call them.

namespace {

constexpr auto& sourceFile = orx::denseMatrixSource;

std::int64_t BufferBytes(ORXSrvMatrix const& matrix) {
  return matrix.BufferSize() * static_cast<std::int64_t>(sizeof(double));
}

/// Handles a failed write: raises error 208 when the file cannot be written, 204 for values that do not suit
/// a symmetric matrix, and ignores other failures.
void ReportWriteFailure(ORXSimException const& failure) {
  if (failure.Code() == ORXSimException::mirrorsDiffer)
    ORXSrvMtxMirrorsDiffer(failure.AsString().AsText()).Throw(sourceFile, __LINE__);
  if (failure.Code() != ORXSimException::writeFailed) return;
  ORXSimDebugOutString text;
  text.Write("ORXSrvDenseMatrix::SetValues");
  text.Write("\n");
  failure.Write(text);
  ORXSrvMtxFileWriteFailure(text.AsText()).Throw(sourceFile, __LINE__);
}

} // namespace

// Rectangles

bool ORXSrvDenseMatrix::Contains(Rectangle const& range) const noexcept {
  return range.firstRow >= 0 && range.firstColumn >= 0 && range.lastRow < NumberOfRows() &&
         range.lastColumn < NumberOfColumns() && range.lastRow >= range.firstRow &&
         range.lastColumn >= range.firstColumn;
}

/// Returns a transfer for one access to the rectangle. m_transfer itself never has a selection or a buffer.
ORXSimTransfer ORXSrvDenseMatrix::TransferOf(Rectangle const& range) const {
  ORXSimTransfer transfer(*m_transfer);
  bool const isColumn = m_distribution.NumDimensions() == 1;
  if (!isColumn)
    transfer.SetDimOrdinalRange(0, m_columnCSetID.Collection(), m_first[columnDirection] + range.firstColumn,
                                m_first[columnDirection] + range.lastColumn);
  transfer.SetDimOrdinalRange(isColumn ? 0 : 1, m_rowCSetID.Collection(),
                              m_first[rowDirection] + range.firstRow, m_first[rowDirection] + range.lastRow);
  transfer.CheckView();
  return transfer;
}

void ORXSrvDenseMatrix::GetValues(int firstRow, int lastRow, int firstColumn, int lastColumn,
                                  ORXSrvMatrix& target) const {
  Rectangle const range{firstRow, lastRow, firstColumn, lastColumn};
  if (!Contains(range)) ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  TransferOf(range).SetBuffer(0, static_cast<void*>(target.Values()), BufferBytes(target)).ExecRead();
}

void ORXSrvDenseMatrix::SetValues(int firstRow, int lastRow, int firstColumn, int lastColumn,
                                  ORXSrvMatrix const& source) {
  Rectangle const range{firstRow, lastRow, firstColumn, lastColumn};
  if (!Contains(range)) ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  ORXSimTransfer transfer = TransferOf(range);
  transfer.SetBuffer(0, static_cast<void const*>(source.Values()), BufferBytes(source));
  try {
    transfer.ExecWrite();
  } catch (ORXSimException const& failure) {
    ReportWriteFailure(failure);
  }
}

void ORXSrvDenseMatrix::GetRows(int firstRow, int lastRow, ORXSrvMatrix& target) const {
  GetValues(firstRow, lastRow, 0, NumberOfColumns() - 1, target);
}

void ORXSrvDenseMatrix::GetColumns(int firstColumn, int lastColumn, ORXSrvMatrix& target) const {
  GetValues(0, NumberOfRows() - 1, firstColumn, lastColumn, target);
}

void ORXSrvDenseMatrix::SetRows(int firstRow, int lastRow, ORXSrvMatrix const& source) {
  SetValues(firstRow, lastRow, 0, NumberOfColumns() - 1, source);
}

void ORXSrvDenseMatrix::SetColumns(int firstColumn, int lastColumn, ORXSrvMatrix const& source) {
  SetValues(0, NumberOfRows() - 1, firstColumn, lastColumn, source);
}

// Whole matrix into memory

void ORXSrvDenseMatrix::GetAllValues(double* out) const {
  ORXSrvMatrix all(NumberOfRows(), NumberOfColumns(), out);
  GetValues(0, NumberOfRows() - 1, 0, NumberOfColumns() - 1, all);
}

void ORXSrvDenseMatrix::CopyRowsToMemory(int const* rowMap, int targetRows, ORXSrvMatrix& target) const {
  std::int64_t const rows = NumberOfRows();
  std::int64_t const columns = NumberOfColumns();
  mem_Array<double> const all = mem_MakeArray<double>(rows * columns);
  GetAllValues(all.get());
  std::fill_n(target.Values(), targetRows * columns, 0.0);
  for (std::int64_t j = 0; j < columns; ++j)
    for (std::int64_t i = 0; i < rows; ++i)
      target.Values()[rowMap[i] + targetRows * j] = all[static_cast<std::size_t>(i + rows * j)];
}

namespace {

/// Returns all values, column-major. Exports of triangles read a square of `columns` columns: for a matrix
/// with fewer rows, zeros are appended so that they stay inside the array.
mem_Array<double> ValuesForTriangles(ORXSrvDenseMatrix const& matrix) {
  std::int64_t const rows = matrix.NumberOfRows();
  std::int64_t const columns = matrix.NumberOfColumns();
  std::int64_t const count = rows * columns;
  std::int64_t const capacity = std::max(rows, columns) * columns;
  mem_Array<double> values = mem_MakeArray<double>(capacity);
  matrix.GetAllValues(values.get());
  std::fill(values.get() + count, values.get() + capacity, 0.0);
  return values;
}

/// Copies the first j + 1 values of each column j, without gaps.
void CopyPacked(double const* values, std::int64_t rows, std::int64_t columns, double* out) {
  for (std::int64_t j = 0; j < columns; ++j)
    out = std::copy_n(values + j * rows, j + 1, out);
}

} // namespace

void ORXSrvDenseMatrix::GetUpperValues(double* out) const {
  mem_Array<double> const values = ValuesForTriangles(*this);
  CopyPacked(values.get(), NumberOfRows(), NumberOfColumns(), out);
}

void ORXSrvDenseMatrix::GetLowerValues(double* out) const {
  mem_Array<double> const values = ValuesForTriangles(*this);
  ORXSrvMatrix(NumberOfRows(), NumberOfColumns(), values.get()).Transpose();
  CopyPacked(values.get(), NumberOfRows(), NumberOfColumns(), out);
}

void ORXSrvDenseMatrix::GetSymmetricValues(double* out) const {
  mem_Array<double> const values = ValuesForTriangles(*this);
  std::int64_t const n = NumberOfColumns();
  double const* const a = values.get();
  for (std::int64_t j = 0; j < n; ++j) {
    for (std::int64_t i = 0; i < j; ++i)
      *out++ = (a[i + n * j] + a[j + n * i]) * 0.5;
    *out++ = a[j + n * j];
  }
}

// Copies between block matrices

void ORXSrvDenseMatrix::GetSubmatrix(ORXSrvDenseMatrix& target, int firstRow, int lastRow, int firstColumn,
                                     int lastColumn) const {
  if (target.NumberOfRowBlocks() == 0) return;
  bool const isInside = Contains({firstRow, lastRow, firstColumn, lastColumn});
  if (!isInside || target.NumberOfRows() - 1 > lastRow - firstRow)
    ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  if (target.NumberOfColumns() <= lastColumn - firstColumn)
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  RequireNotShifted({firstRow, lastRow, firstColumn, lastColumn}, target, "GetSubmatrix");
  if (target.m_isMirrored)
    ORXSrvDenseMatrix(*this, firstRow, lastRow, firstColumn, lastColumn).RequireSymmetricValuesFor(target);
  // Each write covers one row block of the target.
  std::vector<BlockRange> const blocks = GroupRowBlocks(target);
  ORXSrvMatrix work(LargestSize(blocks), lastColumn - firstColumn + 1);
  for (BlockRange const& rows : blocks) {
    int const last = std::min(lastRow - firstRow, rows.last);
    GetValues(firstRow + rows.first, firstRow + last, firstColumn, lastColumn, work);
    target.SetValues(rows.first, last, 0, lastColumn - firstColumn, work);
  }
}

void ORXSrvDenseMatrix::CopyValues(ORXSrvDenseMatrix const* source) {
  if (source->NumberOfRows() != NumberOfRows() || source->NumberOfColumns() != NumberOfColumns())
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  RequireNotShifted(Whole(), *source, "CopyValues");
  source->RequireSymmetricValuesFor(*this);
  if (NumberOfRows() == 0) return;
  std::vector<BlockRange> const blocks = GroupColumnBlocks(*source);
  ORXSrvMatrix work(source->NumberOfRows(), LargestSize(blocks));
  for (BlockRange const& columns : blocks) {
    source->GetColumns(columns.first, columns.last, work);
    SetColumns(columns.first, columns.last, work);
  }
}

namespace {

std::vector<int> RowLabels(ORXSrvDenseMatrix const& matrix) {
  std::vector<int> labels(static_cast<std::size_t>(matrix.NumberOfRows()));
  if (labels.empty()) return labels;
  ORXSimCSet const set(matrix.RowCSetID());
  if (set.Size() != matrix.NumberOfRows()) {
    ORXSimException(ORXSimException::viewDoesNotFit, "ORXSrvDenseMatrix::CopyMappedRows: a matrix of " +
                                                         std::to_string(matrix.NumberOfRows()) +
                                                         " rows has " + std::to_string(set.Size()) +
                                                         " row labels, expected one for each row.")
        .Throw(sourceFile, __LINE__);
  }
  set.OrderedMembers(labels.data());
  return labels;
}

/// Returns for each label its last position in `places`, or -1. Labels may be any integers up to 2147483647:
/// a table indexed by label would be too large.
std::vector<int> LastPositions(std::vector<int> const& labels, std::vector<int> const& places) {
  struct Place {
    int label;
    int position;
  };
  std::vector<Place> sorted;
  sorted.reserve(places.size());
  for (int const label : places)
    sorted.push_back({label, static_cast<int>(sorted.size())});
  std::stable_sort(sorted.begin(), sorted.end(), [](Place a, Place b) { return a.label < b.label; });
  std::vector<int> positions;
  positions.reserve(labels.size());
  for (int const label : labels) {
    auto const behind = std::upper_bound(sorted.begin(), sorted.end(), label,
                                         [](int value, Place place) { return value < place.label; });
    bool const isThere = behind != sorted.begin() && behind[-1].label == label;
    positions.push_back(isThere ? behind[-1].position : -1);
  }
  return positions;
}

} // namespace

void ORXSrvDenseMatrix::CopyMappedRows(ORXSrvDenseMatrix const* source, bool clearUnmatched) {
  if (source->NumberOfColumns() > NumberOfColumns()) ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  RequireNotShifted(Whole(), *source, "CopyMappedRows");
  RequireNoMirrors("CopyMappedRows");
  std::vector<int> const targetRows = LastPositions(RowLabels(*source), RowLabels(*this));
  std::int64_t const sourceCount = source->NumberOfRows();
  std::int64_t const count = NumberOfRows();
  if (count == 0) return;
  std::vector<BlockRange> const blocks = GroupColumnBlocks(*source);
  ORXSrvMatrix from(source->NumberOfRows(), LargestSize(blocks));
  ORXSrvMatrix to(NumberOfRows(), LargestSize(blocks));
  to = 0.0;
  for (BlockRange const& columns : blocks) {
    if (sourceCount > 0) source->GetColumns(columns.first, columns.last, from);
    // Without clearing, unmatched rows get values of the previous block: hosts that do not ask for zeros do
    // not read these rows.
    if (clearUnmatched) to = 0.0;
    for (std::int64_t j = 0; j < columns.Size(); ++j)
      for (std::int64_t i = 0; i < sourceCount; ++i)
        if (int const k = targetRows[static_cast<std::size_t>(i)]; k >= 0)
          to.Values()[k + count * j] = from.Values()[i + sourceCount * j];
    SetColumns(columns.first, columns.last, to);
  }
}
