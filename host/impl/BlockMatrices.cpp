#include "host/impl/Call.h"

#include "host/orx_linear_algebra.h"
#include "mtx/ORXSrvHermitianScrDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvScratchDenseMatrix.h"

#include <algorithm>
#include <cstdint>

namespace orx::host {

ORXSrvDenseMatrix& Resolve(BlockMatrix& matrix) {
  if (matrix.own != nullptr) return *matrix.own;
  std::shared_ptr<Registry> const registry = matrix.registry.lock();
  if (registry == nullptr)
    RaiseHostError(HostError::wrongHandle, "the registry of the block matrix was deleted.");
  return registry->container->Get(matrix.id);
}

namespace {

std::shared_ptr<BlockMatrix> BlockCreate(int rows, int columns, int rowBlock, int columnBlock) {
  Shape const shape = ShapeOf(rows, columns, rowBlock, columnBlock);
  auto matrix = std::make_shared<BlockMatrix>();
  matrix->own = std::make_unique<ORXSrvScratchDenseMatrix>(rows, columns, shape.rowBlock, shape.columnBlock);
  return matrix;
}

std::shared_ptr<BlockMatrix> BlockCreateSymmetric(int order, int block) {
  ShapeOf(order, order, block, block);
  auto matrix = std::make_shared<BlockMatrix>();
  matrix->own = std::make_unique<ORXSrvHermitianScrDenseMatrix>(order, block);
  return matrix;
}

void BlockShape(ORXSrvDenseMatrix& matrix, int& rows, int& columns) {
  rows = matrix.NumberOfRows();
  columns = matrix.NumberOfColumns();
}

/// Zero-based, both ends included.
struct Rectangle {
  int firstRow, lastRow, firstColumn, lastColumn;
};

Rectangle RectangleOf(ORXSrvDenseMatrix const& matrix, int firstRow, int lastRow, int firstColumn,
                      int lastColumn) {
  int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
  Rectangle const range{PositionOf("first_row", firstRow, rows), PositionOf("last_row", lastRow, rows),
                        PositionOf("first_column", firstColumn, columns),
                        PositionOf("last_column", lastColumn, columns)};
  if (lastRow < firstRow || lastColumn < firstColumn)
    RaiseHostError(HostError::wrongArgument,
                   "the range is empty: its last row or column is before the first.");
  return range;
}

void BlockSet(ORXSrvDenseMatrix& matrix, int firstRow, int lastRow, int firstColumn, int lastColumn,
              double const* values) {
  Rectangle const r = RectangleOf(matrix, firstRow, lastRow, firstColumn, lastColumn);
  ORXSrvMatrix const source(r.lastRow - r.firstRow + 1, r.lastColumn - r.firstColumn + 1,
                            const_cast<double*>(values));
  matrix.SetValues(r.firstRow, r.lastRow, r.firstColumn, r.lastColumn, source);
}

void BlockGet(ORXSrvDenseMatrix& matrix, int firstRow, int lastRow, int firstColumn, int lastColumn,
              double* values) {
  Rectangle const r = RectangleOf(matrix, firstRow, lastRow, firstColumn, lastColumn);
  ORXSrvMatrix target(r.lastRow - r.firstRow + 1, r.lastColumn - r.firstColumn + 1, values);
  matrix.GetValues(r.firstRow, r.lastRow, r.firstColumn, r.lastColumn, target);
}

void BlockCopy(ORXSrvDenseMatrix& source, ORXSrvDenseMatrix& target) { target.CopyValues(&source); }

void BlockScale(ORXSrvDenseMatrix& matrix, double factor) { matrix.Scale(factor); }

void BlockAdd(ORXSrvDenseMatrix& matrix, ORXSrvDenseMatrix& other) { matrix.AddAssign(other); }

void BlockApply(ORXSrvDenseMatrix& a, int transpose, int n, double const* x, double* y) {
  bool const isTransposed = Flag("transpose", transpose);
  CountOf("n", n);
  int const rows = a.NumberOfRows(), columns = a.NumberOfColumns();
  ORXSrvMatrix const operand(isTransposed ? rows : columns, n, const_cast<double*>(x));
  ORXSrvMatrix result(isTransposed ? columns : rows, n, y);
  if (isTransposed) {
    a.TransposeMultiply(operand, result, 0);
  } else {
    a.Multiply(operand, result);
  }
}

void BlockMultiply(ORXSrvDenseMatrix& a, int transpose, ORXSrvDenseMatrix& b, ORXSrvDenseMatrix& c) {
  if (Flag("transpose", transpose)) {
    a.TransposeMultiply(&b, &c, 0);
  } else {
    a.Multiply(b, c);
  }
}

} // namespace
} // namespace orx::host

#include "host/BlockMatrices.inc"
