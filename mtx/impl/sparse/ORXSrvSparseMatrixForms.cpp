#include "mtx/ORXSrvSparseMatrix.h"

#include "mtx/impl/exchange/GeneralForm.h"
#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <algorithm>
#include <climits>
#include <string>
#include <utility>

using namespace orx;

namespace {

constexpr auto& sourceFile = orx::sparseMatrixSource;

CompressedRows CopyOf(CompressedRowsView const& matrix, std::int32_t numberOfNonzeros) {
  CompressedRows copy;
  copy.entries = matrix.Entries();
  copy.numberOfNonzeros = numberOfNonzeros;
  AllocateRowPointers(copy, matrix.rows, matrix.columns);
  ResizeEntries(copy, copy.entries);
  std::copy_n(matrix.rowPointers, std::int64_t{matrix.rows} + 1, copy.rowPointers.get());
  std::copy_n(matrix.columnIndices, copy.entries, copy.columnIndices.get());
  std::copy_n(matrix.values, copy.entries, copy.values.get());
  if (matrix.diagonal == nullptr) return copy;
  copy.diagonal = mem_MakeArray<double>(matrix.rows);
  std::copy_n(matrix.diagonal, matrix.rows, copy.diagonal.get());
  return copy;
}

bool IsInTriangle(std::int32_t row, std::int32_t column, bool upper) {
  return upper ? column > row : column < row;
}

std::int32_t CountTriangle(CompressedRowsView const& matrix, bool upper) {
  std::int32_t count = 0;
  ForEachStored(matrix, [&](std::int32_t row, std::int32_t column, double) {
    count += IsInTriangle(row, column, upper) ? 1 : 0;
  });
  return count;
}

CompressedRows SymmetricRows(CompressedRowsView const& general, bool upper) {
  CompressedRows result;
  AllocateRowPointers(result, general.rows, general.rows);
  result.diagonal = mem_MakeArray<double>(general.rows);
  std::fill_n(result.diagonal.get(), general.rows, 0.0);
  ResizeEntries(result, CountTriangle(general, upper));
  std::fill_n(result.rowPointers.get(), std::int64_t{general.rows} + 1, 0);
  ForEachStored(general, [&](std::int32_t row, std::int32_t column, double value) {
    if (row == column) result.diagonal[row] = value;
    if (!IsInTriangle(row, column, upper)) return;
    result.columnIndices[result.entries] = static_cast<std::uint32_t>(column);
    result.values[result.entries] = value;
    ++result.rowPointers[row + 1];
    ++result.entries;
  });
  SumCounts(result.rowPointers.get(), general.rows);
  result.numberOfNonzeros =
      static_cast<std::int32_t>(std::min<std::int64_t>(std::int64_t{general.rows} + result.entries, INT_MAX));
  return result;
}

} // namespace

ORXSrvSparseMatrix ORXSrvSparseMatrix::GeneralForm() const {
  RequireAssembled("GeneralForm");
  if (!IsSymmetricForm()) return ORXSrvSparseMatrix(CopyOf(View(), m_stored.numberOfNonzeros));
  RequireNoMoreColumnsThanRows("GeneralForm");
  return ORXSrvSparseMatrix(MakeGeneralForm(View(), m_stored.values.get(), m_stored.values.get()));
}

ORXSrvSparseMatrix ORXSrvSparseMatrix::SymmetricForm(bool upper) const {
  RequireAssembled("SymmetricForm");
  if (IsSymmetricForm()) return ORXSrvSparseMatrix(CopyOf(View(), m_stored.numberOfNonzeros));
  if (m_rows != m_columns) {
    std::string const detail = "SymmetricForm, as many columns as rows expected, found " +
                               std::to_string(m_rows) + " rows and " + std::to_string(m_columns) + " columns";
    ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
  }
  return ORXSrvSparseMatrix(SymmetricRows(View(), upper));
}
