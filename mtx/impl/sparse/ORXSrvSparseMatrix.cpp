#include "mtx/ORXSrvSparseMatrix.h"

#include "mtx/impl/exchange/ORXSrvSparseImExPorter.h"
#include "mtx/impl/exchange/TripletCollector.h"
#include "mtx/impl/exchange/TripletCompressor.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <algorithm>
#include <climits>
#include <numeric>
#include <string>
#include <utility>

using namespace orx;

namespace {
constexpr auto& sourceFile = orx::sparseMatrixSource;
}

// Creation and destruction

ORXSrvSparseMatrix::ORXSrvSparseMatrix(int rows, int columns)
    : m_entries(0), m_rows(rows), m_columns(columns) {
  if (rows < 0 || columns < 0)
    ORXSrvMtxIllegalInput("ORXSrvSparseMatrix, negative dimension").Throw(sourceFile, __LINE__);
}

ORXSrvSparseMatrix::ORXSrvSparseMatrix(CompressedRows&& content) noexcept
    : m_entries(0), m_rows(0), m_columns(0) {
  Replace(std::move(content));
}

ORXSrvSparseMatrix::ORXSrvSparseMatrix(ORXSrvSparseMatrix&& other) noexcept
    : m_entries(0), m_rows(0), m_columns(0) {
  *this = std::move(other);
}

ORXSrvSparseMatrix& ORXSrvSparseMatrix::operator=(ORXSrvSparseMatrix&& other) noexcept {
  std::swap(m_entries, other.m_entries);
  std::swap(m_ordered, other.m_ordered);
  std::swap(m_stored, other.m_stored);
  std::swap(m_rows, other.m_rows);
  std::swap(m_columns, other.m_columns);
  std::swap(m_symmetryState, other.m_symmetryState);
  std::swap(m_isAssembled, other.m_isAssembled);
  std::swap(m_rowPattern, other.m_rowPattern);
  std::swap(m_rowCSetID, other.m_rowCSetID);
  std::swap(m_columnCSetID, other.m_columnCSetID);
  return *this;
}

ORXSrvSparseMatrix::~ORXSrvSparseMatrix() = default;

// Queries

bool ORXSrvSparseMatrix::IsNull() const noexcept {
  if (!IsSymmetricForm()) return m_stored.numberOfNonzeros == 0;
  return m_stored.numberOfNonzeros == m_rows &&
         std::all_of(m_stored.diagonal.get(), m_stored.diagonal.get() + m_stored.rows,
                     [](double d) { return d == 0.0; });
}

std::int64_t ORXSrvSparseMatrix::NumberOfEntries() const noexcept {
  std::int64_t const stored = StoredEntries();
  if (!IsSymmetricForm()) return stored;
  return (m_stored.rowPointers != nullptr ? m_stored.rows : 0) + 2 * stored;
}

ORXSrvSparseMatrixEntry* ORXSrvSparseMatrix::GetEntries(int& count) const {
  std::int64_t const total = NumberOfEntries();
  // A number of entries beyond an int becomes -1, a size that raises mem_OutOfMemory.
  auto entries = mem_MakeArray<ORXSrvSparseMatrixEntry>(total <= INT_MAX ? total : -1);
  ORXSrvSparseMatrixEntry* next = entries.get();
  ForEachEntry(View(), [&](std::int32_t row, std::int32_t column, double value) {
    *next++ = {static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value};
  });
  count = static_cast<int>(total);
  return entries.release();
}

// Assembly

void ORXSrvSparseMatrix::BeginAssembly() noexcept {
  m_stored.values.reset();
  m_stored.columnIndices.reset();
  m_stored.rowPointers.reset();
  m_isAssembled = 0;
}

void ORXSrvSparseMatrix::AddBeyondDimensions(std::uint32_t row, std::uint32_t column, double value) {
  if (std::max(row, column) >= INT32_MAX) {
    std::string const detail = "AddData(" + std::to_string(row) + ", " + std::to_string(column) +
                               "), indices up to 2147483646 expected";
    ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
  }
  m_entries.Append({row, column, value});
  m_rows = std::max(m_rows, static_cast<std::int32_t>(row) + 1);
  m_columns = std::max(m_columns, static_cast<std::int32_t>(column) + 1);
  m_symmetryState = m_symmetryState == symmetric ? unsymmetric : unknown;
}

template<class ValueOf>
void ORXSrvSparseMatrix::AddValues(int n, int const* dofs, ValueOf const& valueOf) {
  if (n < 0)
    ORXSrvMtxIllegalInput(("AddData, an element of " + std::to_string(n) + " unknowns").c_str())
        .Throw(sourceFile, __LINE__);
  int const largest = std::accumulate(dofs, dofs + n, 0, [](int a, int b) { return std::max(a, b); });
  if (largest == 0) return;
  if (largest == INT_MAX)
    ORXSrvMtxIllegalInput("AddData, unknown 2147483647, unknowns up to 2147483646 expected")
        .Throw(sourceFile, __LINE__);
  int const before = m_entries.Count();
  try {
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n && dofs[i] > 0; ++j)
        if (dofs[j] > 0)
          m_entries.Append({static_cast<std::uint32_t>(dofs[i]) - 1, static_cast<std::uint32_t>(dofs[j]) - 1,
                            valueOf(i, j)});
  } catch (...) {
    m_entries.Resize(before);
    throw;
  }
  m_rows = std::max(m_rows, largest);
  m_columns = std::max(m_columns, largest);
  m_symmetryState = m_symmetryState == symmetric ? unsymmetric : unknown;
}

void ORXSrvSparseMatrix::AddElement(int n, int const* dofs, double const* ke) {
  AddValues(n, dofs, [=](int i, int j) { return ke[std::int64_t{j} * n + i]; });
}

void ORXSrvSparseMatrix::AddPackedData(int n, int const* dofs, double const* lower) {
  AddValues(n, dofs, [=](int i, int j) {
    auto const [column, row] = std::minmax(i, j);
    return lower[std::int64_t{column} * (2 * std::int64_t{n} - column - 1) / 2 + row];
  });
}

void ORXSrvSparseMatrix::EndAssembly() {
  if (m_isAssembled != 0) return;
  if (m_ordered == nullptr) {
    m_ordered = std::make_unique<TripletCompressor>(m_rows, m_columns, m_entries.Count());
  } else {
    m_ordered->Grow(m_rows, m_columns);
  }
  m_ordered->AddAndDrop(m_entries);
  Store(m_ordered->Compress());
  m_ordered.reset();
}

void ORXSrvSparseMatrix::Store(CompressedRows&& content) noexcept {
  m_stored = std::move(content);
  m_rows = m_stored.rows;
  m_columns = m_stored.columns;
  m_rowPattern = {};
  m_isAssembled = 1;
}

void ORXSrvSparseMatrix::Replace(CompressedRows&& content) noexcept {
  Store(std::move(content));
  m_symmetryState = IsSymmetricForm() ? symmetric : unknown;
}

CompressedRowsView ORXSrvSparseMatrix::View() const noexcept {
  CompressedRowsView view = m_stored.View();
  if (view.rowPointers == nullptr) view.rows = 0;
  view.columns = m_columns;
  return view;
}

// Files

void ORXSrvSparseMatrix::Import(char const* path, int format) {
  Replace(ORXSrvSparseImExPorter().Import(path, format));
}

void ORXSrvSparseMatrix::Import(ORXSimDistributionID id) {
  ORXSrvSparseImExPorter::Drawer drawer = ORXSrvSparseImExPorter().Import(id);
  Replace(std::move(drawer.content));
  m_rowCSetID = drawer.rows;
  m_columnCSetID = drawer.columns;
}

void ORXSrvSparseMatrix::Export(char const* path, int format, ORXSrvSystemDofDefinition const* dofs) const {
  // Symmetry of a general form is not enough: it has no diagonal array to be written.
  ORXSrvSparseImExPorter const porter;
  porter.RequireExportable(format, m_symmetryState == symmetric && IsSymmetricForm(), dofs);
  RequireAllAssembled("Export");
  porter.Export(View(), path, format, dofs);
}

void ORXSrvSparseMatrix::Export(ORXSimCSetID rows, ORXSimCSetID columns, ORXSimDistributionID id) const {
  RequireAllAssembled("Export");
  ORXSrvSparseImExPorter().Export(View(), rows, columns, id);
}
