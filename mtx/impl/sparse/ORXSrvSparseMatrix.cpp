#include "mtx/ORXSrvSparseMatrix.h"

#include "mtx/impl/exchange/SparseContent.h"
#include "mtx/impl/exchange/TripletCollector.h"
#include "mtx/impl/exchange/TripletCompressor.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/sparse/ORXSrvSparseImExPorter.h"

#include <algorithm>
#include <climits>
#include <string>
#include <utility>

using namespace orx;

namespace {
constexpr auto& sourceFile = orx::sparseMatrixSource;
}

// ---- creation and destruction

ORXSrvSparseMatrix::ORXSrvSparseMatrix(int rows, int columns)
    : m_entries(0), m_rows(rows), m_columns(columns) {
  if (rows < 0 || columns < 0)
    ORXSrvMtxIllegalInput("ORXSrvSparseMatrix, negative dimension").Throw(sourceFile, __LINE__);
}

ORXSrvSparseMatrix::ORXSrvSparseMatrix(unsigned* rowPointers, int* columnIndices, double* values,
                                       double* diagonal, int nonzeros, int rows, int columns)
    : m_values(values), m_columnIndices(reinterpret_cast<std::uint32_t*>(columnIndices)),
      m_rowPointers(reinterpret_cast<std::int32_t*>(rowPointers)), m_diagonal(diagonal), m_nonzeros(nonzeros),
      m_rows(rows), m_columns(columns), m_symmetryState(diagonal != nullptr ? symmetric : unknown),
      m_isAssembled(1), m_arrayRows(rows) {}

ORXSrvSparseMatrix::~ORXSrvSparseMatrix() = default;

// ---- queries

bool ORXSrvSparseMatrix::IsNull() const noexcept {
  if (!IsSymmetricForm()) return m_nonzeros == 0;
  return m_nonzeros == m_rows &&
         std::all_of(m_diagonal.get(), m_diagonal.get() + m_arrayRows, [](double d) { return d == 0.0; });
}

std::int64_t ORXSrvSparseMatrix::NumberOfEntries() const noexcept {
  std::int64_t const stored = StoredEntries();
  if (!IsSymmetricForm()) return stored;
  return (m_rowPointers != nullptr ? m_arrayRows : 0) + 2 * stored;
}

ORXSrvSparseMatrixEntry* ORXSrvSparseMatrix::GetEntries(int& count) const {
  std::int32_t const rows = m_rowPointers != nullptr ? m_arrayRows : 0;
  bool const bothTriangles = IsSymmetricForm();
  std::int64_t const total = NumberOfEntries();
  // More entries than the count can say are refused as a request that no memory can meet.
  auto entries = mem_MakeArray<ORXSrvSparseMatrixEntry>(total <= INT_MAX ? total : -1);
  ORXSrvSparseMatrixEntry* next = entries.get();
  if (bothTriangles)
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(rows); ++i)
      *next++ = {i, i, m_diagonal[i]};
  for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(rows); ++i)
    for (std::int32_t k = m_rowPointers[i]; k < m_rowPointers[i + 1]; ++k) {
      *next++ = {i, m_columnIndices[k], m_values[k]};
      if (bothTriangles) *next++ = {m_columnIndices[k], i, m_values[k]};
    }
  count = static_cast<int>(total);
  return entries.release();
}

// ---- assembly

void ORXSrvSparseMatrix::BeginAssembly() noexcept {
  m_values.reset();
  m_columnIndices.reset();
  m_rowPointers.reset();
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

void ORXSrvSparseMatrix::EndAssembly() {
  if (m_isAssembled != 0) return;
  if (m_ordered == nullptr) {
    m_ordered = std::make_unique<TripletCompressor>(m_rows, m_columns, m_entries.Count());
  } else {
    m_ordered->Grow(m_rows, m_columns);
  }
  m_ordered->AddAndDrop(m_entries);
  Adopt(m_ordered->Compress());
  m_ordered.reset();
  m_isAssembled = 1;
}

/// Takes over arrays in general form, for m_rows rows.
void ORXSrvSparseMatrix::Adopt(CompressedRows&& compressed) noexcept {
  m_values = std::move(compressed.values);
  m_columnIndices = std::move(compressed.columns);
  m_rowPointers = std::move(compressed.rowPointers);
  m_rowPattern = {};
  m_diagonal.reset();
  m_nonzeros = compressed.nonzeros;
  m_arrayRows = m_rows;
}

// ---- files

void ORXSrvSparseMatrix::Replace(SparseContent&& content) noexcept {
  m_rows = content.rows;
  m_columns = content.columns;
  Adopt(std::move(content.entries));
  m_nonzeros = content.nonzeros;
  m_diagonal = std::move(content.diagonal);
  m_symmetryState = m_diagonal != nullptr ? symmetric : unknown;
  m_isAssembled = 1;
}

SparseView ORXSrvSparseMatrix::View() const noexcept {
  return {.rows = m_rows,
          .columns = m_columns,
          .storedRows = m_rowPointers != nullptr ? m_arrayRows : 0,
          .starts = m_rowPointers.get(),
          .columnIndices = m_columnIndices.get(),
          .values = m_values.get(),
          .diagonal = m_diagonal.get()};
}

void ORXSrvSparseMatrix::Import(char const* path, int format) {
  ORXSrvSparseImExPorter().Import(*this, path, format);
}

void ORXSrvSparseMatrix::Import(ORXSimDistributionID id) { ORXSrvSparseImExPorter().Import(*this, id); }

void ORXSrvSparseMatrix::Export(char const* path, int format, ORXSrvSystemDofDefinition const* dofs) const {
  ORXSrvSparseImExPorter().Export(*this, path, format, dofs);
}

void ORXSrvSparseMatrix::Export(ORXSimCSetID rows, ORXSimCSetID columns, ORXSimDistributionID id) const {
  ORXSrvSparseImExPorter().Export(*this, rows, columns, id);
}
