#include "host/impl/Call.h"

#include "host/orx_linear_algebra.h"
#include "mtx/ORXSrvMatrix.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace orx::host {
namespace {

std::shared_ptr<SparseMatrix> Wrap(ORXSrvSparseMatrix&& matrix) {
  return std::make_shared<SparseMatrix>(std::move(matrix));
}

std::shared_ptr<SparseMatrix> SparseCreate(int rows, int columns) {
  return Wrap(ORXSrvSparseMatrix(CountOf("rows", rows), CountOf("columns", columns)));
}

void SparseAdd(SparseMatrix& target, int row, int column, double value) {
  PositionOf("row", row, INT32_MAX - 1);
  PositionOf("column", column, INT32_MAX - 1);
  target.matrix.AddData(static_cast<std::uint32_t>(row) - 1, static_cast<std::uint32_t>(column) - 1, value);
}

void SparseAddElement(SparseMatrix& target, int n, int const* dofs, double const* ke) {
  target.matrix.AddData(n, dofs, ke);
}

void SparseAddPackedElement(SparseMatrix& target, int n, int const* dofs, double const* ke) {
  target.matrix.AddPackedData(n, dofs, ke);
}

void SparseEnd(SparseMatrix& target) { target.matrix.EndAssembly(); }

void SparseBegin(SparseMatrix& target) { target.matrix.BeginAssembly(); }

/// Entries of both triangles.
std::int64_t EntriesOf(CompressedRowsView const& matrix) {
  return matrix.diagonal != nullptr ? matrix.rows + 2 * std::int64_t{matrix.Entries()} : matrix.Entries();
}

/// The arrays of a matrix that is assembled with all its rows; else wrongOrder.
CompressedRowsView Assembled(ORXSrvSparseMatrix const& matrix) {
  CompressedRowsView const view = matrix.View();
  if (view.rowPointers == nullptr || view.rows != matrix.NumberOfRows() ||
      view.columns != matrix.NumberOfColumns())
    RaiseHostError(HostError::wrongOrder, "the matrix is not assembled; expected ORX_SPARSE_END before.");
  return view;
}

void SparseShape(SparseMatrix& source, int& rows, int& columns, std::int64_t& entries) {
  entries = EntriesOf(source.matrix.View());
  rows = source.matrix.NumberOfRows();
  columns = source.matrix.NumberOfColumns();
}

void SparseEntries(SparseMatrix& source, std::int64_t room, int* rows, int* columns, double* values) {
  CompressedRowsView const view = Assembled(source.matrix);
  if (EntriesOf(view) > room)
    RaiseHostError(HostError::wrongArgument, "room is " + std::to_string(room) + "; expected at least " +
                                                 std::to_string(EntriesOf(view)) +
                                                 ", the number of entries.");
  ForEachEntry(view, [&](int row, int column, double value) {
    *rows++ = row + 1;
    *columns++ = column + 1;
    *values++ = value;
  });
}

void SparseArrays(SparseMatrix& source, int const*& rowPointers, int const*& columnIndices,
                  double const*& values, double const*& diagonal) {
  CompressedRowsView const view = Assembled(source.matrix);
  rowPointers = view.rowPointers;
  columnIndices = reinterpret_cast<int const*>(view.columnIndices); // none is beyond an int
  values = view.values;
  diagonal = view.diagonal;
}

/// Calls multiply(matrix) with a matrix that multiplies: those whose number of nonzeros is 0 leave results as
/// they are, even with a diagonal. Returns false for a matrix without anything in it.
template<class Multiply>
bool MultiplyWith(ORXSrvSparseMatrix const& matrix, Multiply const& multiply) {
  if (matrix.NumberOfNonzeros() > 0) return multiply(matrix), true;
  ORXSrvSparseMatrix const general = matrix.GeneralForm();
  return general.NumberOfNonzeros() > 0 && (multiply(general), true);
}

/// Raises wrongArgument when vectors that are read and vectors that are written overlap.
void RequireApart(double const* x, std::int64_t countX, double const* y, std::int64_t countY) {
  std::less<double const*> const isBefore;
  if (countX > 0 && countY > 0 && isBefore(x, y + countY) && isBefore(y, x + countX))
    RaiseHostError(HostError::wrongArgument, "y overlaps x; expected memory of its own.");
}

void SparseApply(SparseMatrix& a, int transpose, int n, double const* x, double* y) {
  bool const isTransposed = Flag("transpose", transpose);
  CompressedRowsView const view = Assembled(a.matrix);
  CountOf("n", n);
  std::int64_t const read = std::int64_t{n} * (isTransposed ? view.rows : view.columns);
  std::int64_t const written = std::int64_t{n} * (isTransposed ? view.columns : view.rows);
  RequireApart(x, read, y, written);
  if (!MultiplyWith(a.matrix, [&](ORXSrvSparseMatrix const& m) { m.Multiply(x, n, y, isTransposed); }))
    std::fill_n(y, written, 0.0);
}

void Clear(ORXSrvDenseMatrix& matrix) {
  ORXSrvMatrix zeros(matrix.MaxNumberOfRowsInBlock(), matrix.NumberOfColumns());
  zeros = 0.0;
  for (int first = 0; first < matrix.NumberOfRows(); first += zeros.NumberOfRows())
    matrix.SetRows(first, std::min(first + zeros.NumberOfRows(), matrix.NumberOfRows()) - 1, zeros);
}

void SparseMultiply(SparseMatrix& a, int transpose, ORXSrvDenseMatrix& b, ORXSrvDenseMatrix& c) {
  bool const isTransposed = Flag("transpose", transpose);
  Assembled(a.matrix);
  if (!MultiplyWith(a.matrix, [&](ORXSrvSparseMatrix const& m) { m.MultiplyDense(b, c, isTransposed); }))
    Clear(c);
}

std::shared_ptr<SparseMatrix> SparseTranspose(SparseMatrix& a) {
  std::unique_ptr<ORXSrvSparseMatrix> const result(a.matrix.Transpose());
  return Wrap(std::move(*result));
}

std::shared_ptr<SparseMatrix> SparsePermute(SparseMatrix& a, int const* permutation) {
  std::vector<int> zeroBased(static_cast<std::size_t>(a.matrix.NumberOfRows()));
  for (std::size_t i = 0; i < zeroBased.size(); ++i)
    zeroBased[i] = PositionOf("an element of permutation", permutation[i], a.matrix.NumberOfRows());
  std::unique_ptr<ORXSrvSparseMatrix> const result(a.matrix.Permute(zeroBased.data()));
  return Wrap(std::move(*result));
}

std::shared_ptr<SparseMatrix> SparseImport(char const* path, int format) {
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(path, format);
  return Wrap(std::move(matrix));
}

void SparseExport(SparseMatrix& source, char const* path, int format) {
  source.matrix.Export(path, format, nullptr);
}

} // namespace
} // namespace orx::host

#include "host/SparseMatrices.inc"
