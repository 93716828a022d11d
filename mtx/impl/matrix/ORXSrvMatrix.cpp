#include "mtx/ORXSrvMatrix.h"

#include "blac/BLAC.h"
#include "core/mem_Allocator.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/matrix/ProductMemory.h"
#include "mtx/impl/matrix/Transposition.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <utility>

using namespace orx;

namespace {

constexpr auto& sourceFile = orx::matrixSource;

/// Raises error 206 for `operation`, with the source line `line`, unless the condition holds.
void Require(bool condition, char const* operation, int line) {
  if (!condition) ORXSrvMtxIllegalInput(operation).Throw(sourceFile, line);
}

mem_Array<double> NewValues(int rows, int columns, bool diagonal) {
  // A negative size becomes the largest one, which fails, and does not wrap into a small one.
  std::int64_t const count = diagonal ? rows : std::int64_t{rows} * columns;
  return mem_MakeArray<double>(rows < 0 || columns < 0 ? -1 : count);
}

void CopyValues(double* target, double const* source, std::int64_t count) {
  if (count > 0) std::memmove(target, source, static_cast<std::size_t>(count) * sizeof(double));
}

/// target[k * targetStep] += factor * source[k]; the common factors need no multiplication.
void AddScaledValues(double factor, double const* source, double* target, std::int64_t count,
                     std::int64_t targetStep) {
  if (factor == 1.0) {
    for (std::int64_t k = 0; k < count; ++k)
      target[k * targetStep] += source[k];
  } else if (factor == -1.0) {
    for (std::int64_t k = 0; k < count; ++k)
      target[k * targetStep] -= source[k];
  } else {
    for (std::int64_t k = 0; k < count; ++k)
      target[k * targetStep] += factor * source[k];
  }
}

/// C = op(A) * B + beta * C with op(A) m x k and B k x n; "T" transposes A.
void AddProduct(char const* transposition, int m, int n, int k, double const* a, int lda, double const* b,
                int ldb, double beta, double* c, int ldc) {
  double const alpha = 1.0;
  // The leading dimension of an empty matrix is 0, but DGEMM expects at least 1. An empty sum is still zero.
  lda = std::max(lda, 1);
  ldb = std::max(ldb, 1);
  ldc = std::max(ldc, 1);
  RequireProductMemory();
  BLAC_DGEMM(transposition, "N", &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}

/// The triangle that a product with a symmetric result fills.
Triangle TriangleOfResults(int rows, int columns) {
  return rows < columns ? Triangle::Upper : Triangle::Lower;
}

/// Indices first ... first + size - 1.
struct IndexBlock {
  int first;
  int size;
};

int BlockCount(int n, int blockSize) { return n / blockSize + (n % blockSize != 0 ? 1 : 0); }

/// Returns block `index` of 0 ... n - 1, cut into whole blocks after a first block that is the remainder.
IndexBlock BlockAfterRemainder(int index, int n, int blockSize) {
  int const remainder = n - (BlockCount(n, blockSize) - 1) * blockSize;
  return index == 0 ? IndexBlock{0, remainder} : IndexBlock{remainder + (index - 1) * blockSize, blockSize};
}

/// Returns block `index` of 0 ... n - 1, cut into whole blocks and a last block that is the remainder.
IndexBlock BlockBeforeRemainder(int index, int n, int blockSize) {
  return {index * blockSize, std::min(blockSize, n - index * blockSize)};
}

} // namespace

// Creation and destruction

ORXSrvMatrix::ORXSrvMatrix(int rows, int columns, double* values, bool symmetric, bool diagonal)
    : m_values(values != nullptr ? values : NewValues(rows, columns, diagonal).release()), m_dim1(rows),
      m_dim2(columns), m_ownsValues(values == nullptr), m_symmetric(symmetric), m_diagonal(diagonal) {}

ORXSrvMatrix::ORXSrvMatrix(ORXSrvMatrix const& source)
    : m_values(NewValues(source.m_dim1, source.m_dim2, source.m_diagonal).release()), m_dim1(source.m_dim1),
      m_dim2(source.m_dim2), m_ownsValues(true), m_symmetric(source.m_symmetric),
      m_diagonal(source.m_diagonal) {
  CopyValues(m_values, source.m_values, NumberOfStoredValues());
}

ORXSrvMatrix::ORXSrvMatrix(ORXSrvMatrix&& source) noexcept
    : m_values(std::exchange(source.m_values, nullptr)), m_dim1(std::exchange(source.m_dim1, 0)),
      m_dim2(std::exchange(source.m_dim2, 0)), m_ownsValues(std::exchange(source.m_ownsValues, true)),
      m_symmetric(source.m_symmetric), m_diagonal(source.m_diagonal) {}

ORXSrvMatrix::~ORXSrvMatrix() {
  if (m_ownsValues) mem_Free(m_values);
}

ORXSrvMatrix& ORXSrvMatrix::operator=(ORXSrvMatrix const& source) {
  if (this == &source) return *this;
  if (HasShapeOf(source) && m_diagonal == source.m_diagonal) {
    CopyValues(m_values, source.m_values, NumberOfStoredValues());
    return *this;
  }
  if (HasShapeOf(source) && source.m_diagonal) {
    SetSlice(1.0, source, 0, 0);
    return *this;
  }
  Require(m_ownsValues, "Assignment operator", __LINE__);
  mem_Array<double> values = NewValues(source.m_dim1, source.m_dim2, source.m_diagonal);
  CopyValues(values.get(), source.m_values, source.NumberOfStoredValues());
  mem_Free(std::exchange(m_values, values.release()));
  m_dim1 = source.m_dim1;
  m_dim2 = source.m_dim2;
  m_symmetric = source.m_symmetric;
  m_diagonal = source.m_diagonal;
  return *this;
}

ORXSrvMatrix& ORXSrvMatrix::operator=(double value) {
  std::fill_n(m_values, NumberOfStoredValues(), value);
  return *this;
}

// Queries

/// True when rows * columns values may be accessed. Only the owner of a lent buffer knows its length: a
/// diagonal matrix over a lent buffer is trusted.
bool ORXSrvMatrix::HasFullStorage() const noexcept {
  return !m_diagonal || !m_ownsValues || std::int64_t{m_dim1} * m_dim2 <= m_dim1;
}

bool ORXSrvMatrix::IsBlock(int firstRow, int lastRow, int firstColumn, int lastColumn) const noexcept {
  return firstRow >= 0 && firstColumn >= 0 && lastRow < m_dim1 && lastColumn < m_dim2 &&
         lastRow >= firstRow && lastColumn >= firstColumn;
}

bool ORXSrvMatrix::operator==(ORXSrvMatrix const& other) const {
  if (this == &other) return true;
  if (!HasShapeOf(other) || m_diagonal != other.m_diagonal) return false;
  std::int64_t const count = NumberOfStoredValues();
  for (std::int64_t i = 0; i < count; ++i) {
    if (m_values[i] == other.m_values[i]) continue;
    std::printf(" m_dim1= %d, m_dim2= %d", m_dim1, m_dim2);
    std::printf("i= %d ptr[i]= %f  rhsPtr[i]= %f", static_cast<int>(i), m_values[i], other.m_values[i]);
    return false;
  }
  return true;
}

bool ORXSrvMatrix::IsSymmetricNumerically() const {
  if (m_diagonal) return true;
  if (m_dim1 != m_dim2) return false;
  return EqualsItsTranspose(m_values, m_dim1);
}

bool ORXSrvMatrix::OverlapsBufferOf(ORXSrvMatrix const& other) const noexcept {
  std::less<double const*> const isBefore; // the pointers may belong to different arrays
  return isBefore(m_values, other.m_values + other.NumberOfStoredValues()) &&
         isBefore(other.m_values, m_values + NumberOfStoredValues());
}

bool ORXSrvMatrix::IsFinite() const noexcept {
  return std::all_of(m_values, m_values + NumberOfStoredValues(), [](double x) { return std::isfinite(x); });
}

// Element access

void ORXSrvMatrix::RefuseElement() { ORXSrvMtxIllegalInput("operator()").Throw(sourceFile, __LINE__); }

void ORXSrvMatrix::SetValues(int firstRow, int lastRow, int firstColumn, int lastColumn,
                             double const* values) {
  Require(IsBlock(firstRow, lastRow, firstColumn, lastColumn) && HasFullStorage(), "SetValues", __LINE__);
  std::int64_t const rows = std::int64_t{lastRow} - firstRow + 1;
  for (int column = firstColumn; column <= lastColumn; ++column, values += rows)
    CopyValues(m_values + std::int64_t{column} * m_dim1 + firstRow, values, rows);
}

void ORXSrvMatrix::SetValues(int firstRow, int lastRow, int firstColumn, int lastColumn,
                             ORXSrvMatrix const& source) {
  std::int64_t const count =
      (std::int64_t{lastRow} - firstRow + 1) * (std::int64_t{lastColumn} - firstColumn + 1);
  Require(count <= std::int64_t{source.m_dim1} * source.m_dim2, "SetValues", __LINE__);
  Require(source.HasFullStorage() || count <= source.NumberOfStoredValues(), "SetValues", __LINE__);
  SetValues(firstRow, lastRow, firstColumn, lastColumn, source.m_values);
}

void ORXSrvMatrix::GetValues(int firstRow, int lastRow, int firstColumn, int lastColumn,
                             ORXSrvMatrix& target) const {
  std::int64_t const rows = std::int64_t{lastRow} - firstRow + 1;
  std::int64_t const count = rows * (std::int64_t{lastColumn} - firstColumn + 1);
  Require(count <= std::int64_t{target.m_dim1} * target.m_dim2, "GetValues", __LINE__);
  Require(target.HasFullStorage() || count <= target.NumberOfStoredValues(), "GetValues", __LINE__);
  Require(IsBlock(firstRow, lastRow, firstColumn, lastColumn) && HasFullStorage(), "GetValues", __LINE__);
  double* values = target.m_values;
  for (int column = firstColumn; column <= lastColumn; ++column, values += rows)
    CopyValues(values, m_values + std::int64_t{column} * m_dim1 + firstRow, rows);
}

void ORXSrvMatrix::SetRows(int firstRow, int lastRow, ORXSrvMatrix& source) {
  SetValues(firstRow, lastRow, 0, m_dim2 - 1, source);
}

void ORXSrvMatrix::GetRows(int firstRow, int lastRow, ORXSrvMatrix& target) const {
  GetValues(firstRow, lastRow, 0, m_dim2 - 1, target);
}

/// True when a source at an offset lies inside this matrix, and the source has all values that are read.
bool ORXSrvMatrix::HoldsSlice(ORXSrvMatrix const& source, int rowOffset, int columnOffset) const noexcept {
  return rowOffset >= 0 && columnOffset >= 0 && std::int64_t{rowOffset} + source.m_dim1 <= m_dim1 &&
         std::int64_t{columnOffset} + source.m_dim2 <= m_dim2 &&
         (!source.m_diagonal || source.m_dim2 <= source.m_dim1);
}

void ORXSrvMatrix::SetSlice(double factor, ORXSrvMatrix const& source, int rowOffset, int columnOffset) {
  Require(!m_diagonal || source.m_diagonal, "SetSlice", __LINE__);
  Require(HoldsSlice(source, rowOffset, m_diagonal ? 0 : columnOffset), "SetSlice", __LINE__);
  if (m_diagonal) {
    for (int k = 0; k < source.m_dim2; ++k)
      m_values[rowOffset + k] = factor * source.m_values[k];
    return;
  }
  for (int j = 0; j < source.m_dim2; ++j) {
    double* const target = m_values + (std::int64_t{columnOffset} + j) * m_dim1 + rowOffset;
    if (source.m_diagonal) {
      std::fill_n(target, source.m_dim1, 0.0);
      target[j] = factor * source.m_values[j];
      continue;
    }
    double const* const values = source.m_values + std::int64_t{j} * source.m_dim1;
    for (int i = 0; i < source.m_dim1; ++i)
      target[i] = factor * values[i];
  }
}

void ORXSrvMatrix::AddSlice(double factor, ORXSrvMatrix const& source, int rowOffset, int columnOffset) {
  // Hosts know this failure under the name of the assignment.
  Require(!m_diagonal || source.m_diagonal, "Assignment operator", __LINE__);
  Require(HoldsSlice(source, rowOffset, columnOffset), "AddSlice", __LINE__);
  if (source.m_diagonal) {
    double* const first = m_values + std::int64_t{columnOffset} * m_dim1 + rowOffset;
    std::int64_t const last =
        (std::int64_t{columnOffset} + source.m_dim2 - 1) * m_dim1 + rowOffset + source.m_dim2 - 1;
    Require(HasFullStorage() || source.m_dim2 == 0 || last < m_dim1, "AddSlice", __LINE__);
    for (std::int64_t k = 0; k < source.m_dim2; ++k)
      first[k * (m_dim1 + 1)] += factor * source.m_values[k];
    return;
  }
  for (int j = 0; j < source.m_dim2; ++j) {
    double* const target = m_values + (std::int64_t{columnOffset} + j) * m_dim1 + rowOffset;
    double const* const values = source.m_values + std::int64_t{j} * source.m_dim1;
    for (int i = 0; i < source.m_dim1; ++i)
      target[i] += factor * values[i];
  }
}

/// True when k * step is the index of a stored value for each k below `rows`.
bool ORXSrvMatrix::HoldsDiagonalOf(int rows, std::int64_t step) const noexcept {
  return rows <= 0 || (std::int64_t{rows} - 1) * step < NumberOfStoredValues();
}

void ORXSrvMatrix::SetDiagonal(double const* values) {
  std::int64_t const step = m_diagonal ? 1 : std::int64_t{m_dim1} + 1;
  Require(HoldsDiagonalOf(m_dim1, step), "SetDiagonal", __LINE__);
  for (std::int64_t k = 0; k < m_dim1; ++k)
    m_values[k * step] = values[k];
}

void ORXSrvMatrix::SetDiagonal(ORXSrvMatrix const& source) {
  Require(m_dim1 == m_dim2 && source.m_dim1 == source.m_dim2, "SetDiagonal", __LINE__);
  Require(!m_diagonal || source.m_diagonal, "SetDiagonal", __LINE__);
  std::int64_t const step = source.m_diagonal ? 1 : std::int64_t{m_dim1} + 1;
  Require(source.HoldsDiagonalOf(m_dim1, step), "SetDiagonal", __LINE__);
  if (source.m_diagonal) return SetDiagonal(source.m_values);
  for (std::int64_t k = 0; k < m_dim1; ++k)
    m_values[k * step] = source.m_values[k * step];
}

// Operations

void ORXSrvMatrix::Transpose() {
  if (m_diagonal || m_symmetric) return;
  if (m_dim1 == m_dim2) return TransposeSquare(m_values, m_dim1);
  TransposeRectangle();
}

void ORXSrvMatrix::TransposeRectangle() {
  constexpr int tile = 32;
  mem_Array<double> transposed = NewValues(m_dim2, m_dim1, false);
  for (int jTile = 0; jTile < m_dim2; jTile += tile)
    for (int iTile = 0; iTile < m_dim1; iTile += tile)
      for (int i = iTile; i < std::min(iTile + tile, m_dim1); ++i)
        for (int j = jTile; j < std::min(jTile + tile, m_dim2); ++j)
          transposed[std::int64_t{i} * m_dim2 + j] = m_values[std::int64_t{j} * m_dim1 + i];
  if (m_ownsValues) {
    mem_Free(std::exchange(m_values, transposed.release()));
  } else {
    CopyValues(m_values, transposed.get(), NumberOfStoredValues());
  }
  std::swap(m_dim1, m_dim2);
}

void ORXSrvMatrix::PermuteRowsInPlace(int const* permutation, int length) {
  Require(length == m_dim1 && HasFullStorage(), "PermuteRowsInPlace", __LINE__);
  mem_Array<double> const column = mem_MakeArray<double>(m_dim1);
  std::int64_t const count = std::int64_t{m_dim1} * m_dim2;
  for (std::int64_t first = 0; first < count; first += m_dim1) {
    CopyValues(column.get(), m_values + first, m_dim1);
    for (int i = 0; i < m_dim1; ++i) {
      if (permutation[i] > m_dim1) ORXSrvMtxIllegalPermVect().Throw(sourceFile, __LINE__);
      // A permutation value of m_dim1 or below 0 points into a neighbouring column; nothing is written
      // outside the matrix.
      std::int64_t const target = first + permutation[i];
      if (target >= 0 && target < count) m_values[target] = column[i];
    }
  }
}

/// Adds factor * source. Raises error 206 for `operation` when the shapes differ, and for a full source and a
/// diagonal target.
void ORXSrvMatrix::AddScaled(double factor, ORXSrvMatrix const& source, char const* operation) {
  Require(HasShapeOf(source) && (!m_diagonal || source.m_diagonal), operation, __LINE__);
  std::int64_t const step = source.m_diagonal && !m_diagonal ? std::int64_t{m_dim1} + 1 : 1;
  Require(step == 1 || HoldsDiagonalOf(m_dim1, step), operation, __LINE__);
  AddScaledValues(factor, source.m_values, m_values, source.NumberOfStoredValues(), step);
}

ORXSrvMatrix& ORXSrvMatrix::operator+=(ORXSrvMatrix const& source) {
  Require(this != &source, "*=", __LINE__);
  AddScaled(1.0, source, "*=");
  return *this;
}

void ORXSrvMatrix::Add(double factor, ORXSrvMatrix const& source) {
  if (factor != 0.0) AddScaled(factor, source, "Add");
}

void ORXSrvMatrix::Multiply(double factor) {
  Require(HasFullStorage(), "Multiply", __LINE__);
  std::int64_t const count = std::int64_t{m_dim1} * m_dim2;
  for (std::int64_t k = 0; k < count; ++k)
    m_values[k] *= factor;
}

void ORXSrvMatrix::SetSymmetricResults() {
  Require(HasFullStorage(), "SetSymmetricResults", __LINE__);
  MirrorTriangle(TriangleOfResults(m_dim1, m_dim2), m_values, m_dim1, std::min(m_dim1, m_dim2));
}

void ORXSrvMatrix::SetSkewSymmetricResults() {
  Require(HasFullStorage(), "SetSkewSymmetricResults", __LINE__);
  MirrorTriangleNegated(TriangleOfResults(m_dim1, m_dim2), m_values, m_dim1, std::min(m_dim1, m_dim2));
}

void ORXSrvMatrix::Interpolate(double t, ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
  Require(HasShapeOf(a) && HasShapeOf(b), "Interpolate", __LINE__);
  Require(!(t < 0.0 || t > 1.0), "Interpolate", __LINE__);
  if (m_dim1 == 0 || m_dim2 == 0) return;
  std::int64_t const last = std::int64_t{m_dim1} * (m_dim1 - 1) + m_dim2 - 1;
  std::int64_t const stored =
      std::min({NumberOfStoredValues(), a.NumberOfStoredValues(), b.NumberOfStoredValues()});
  Require(last < stored, "Interpolate", __LINE__);
  for (std::int64_t i = 0; i < m_dim1; ++i)
    for (std::int64_t p = i * m_dim1; p < i * m_dim1 + m_dim2; ++p)
      m_values[p] = (1.0 - t) * a.m_values[p] + t * b.m_values[p];
}

// Products

void ORXSrvMatrix::Multiply(ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
  Require(a.m_dim2 == b.m_dim1, "Multiply", __LINE__);
  Require(m_dim1 == a.m_dim1 && m_dim2 == b.m_dim2, "Multiply", __LINE__);
  if (a.m_diagonal && b.m_diagonal) return MultiplyDiagonals(a, b);
  Require(!m_diagonal, "Multiply", __LINE__);
  if (a.m_diagonal) {
    Require(a.m_dim1 <= b.m_dim1, "Multiply", __LINE__);
    return ScaleRows(a, b);
  }
  if (b.m_diagonal) {
    Require(b.CoversColumns(), "Multiply", __LINE__);
    return ScaleColumns(a, b);
  }
  Require(!OverlapsBufferOf(a) && !OverlapsBufferOf(b), "Multiply", __LINE__);
  AddProduct("N", m_dim1, m_dim2, a.m_dim2, a.m_values, a.m_dim1, b.m_values, b.m_dim1, 0.0, m_values,
             m_dim1);
}

void ORXSrvMatrix::MultiplyDiagonals(ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
  std::int64_t const step = m_diagonal ? 1 : std::int64_t{m_dim1} + 1;
  Require(b.m_dim1 >= a.m_dim1 && HoldsDiagonalOf(a.m_dim1, step), "Multiply", __LINE__);
  // Clears only the first m_dim1 values: hosts rely on the other values staying.
  if (!m_diagonal) std::fill_n(m_values, m_dim1, 0.0);
  for (std::int64_t k = 0; k < a.m_dim1; ++k)
    m_values[k * step] = b.m_values[k] * a.m_values[k];
}

/// this = diagonal * source. The source is read with this matrix's leading dimension.
void ORXSrvMatrix::ScaleRows(ORXSrvMatrix const& diagonal, ORXSrvMatrix const& source) {
  for (std::int64_t j = 0; j < m_dim2; ++j)
    for (std::int64_t p = j * m_dim1, i = 0; i < m_dim1; ++i, ++p)
      m_values[p] = diagonal.m_values[i] * source.m_values[p];
}

/// this = source * diagonal; source may be this matrix.
void ORXSrvMatrix::ScaleColumns(ORXSrvMatrix const& source, ORXSrvMatrix const& diagonal) {
  for (std::int64_t j = 0; j < m_dim2; ++j)
    for (std::int64_t p = j * m_dim1; p < (j + 1) * m_dim1; ++p)
      m_values[p] = source.m_values[p] * diagonal.m_values[j];
}

ORXSrvMatrix& ORXSrvMatrix::operator*=(ORXSrvMatrix const& b) {
  Require(this != &b, "*=", __LINE__);
  Require(m_dim1 == b.m_dim2, "*=", __LINE__);
  if (b.m_diagonal && (m_diagonal || m_dim2 == 1)) {
    Require(b.CoversColumns(), "*=", __LINE__);
    for (int k = 0; k < m_dim1; ++k)
      m_values[k] *= b.m_values[k];
  } else if (b.m_diagonal && m_dim1 == m_dim2) {
    Require(b.CoversColumns(), "*=", __LINE__);
    ScaleColumns(*this, b);
  } else if (m_dim2 != 1) {
    MultiplySquare(b);
  } else {
    MultiplyVector(b);
  }
  return *this;
}

void ORXSrvMatrix::MultiplySquare(ORXSrvMatrix const& b) {
  int const n = m_dim1;
  Require(m_dim2 == n && b.m_dim2 == n, "Multiply", __LINE__);
  Require(!m_diagonal && b.m_dim1 >= n && !OverlapsBufferOf(b), "Multiply", __LINE__);
  std::int64_t const count = NumberOfStoredValues();
  mem_Array<double> const copy = mem_MakeArray<double>(count);
  CopyValues(copy.get(), m_values, count);
  AddProduct("N", n, n, n, copy.get(), n, b.m_values, n, 0.0, m_values, n);
}

void ORXSrvMatrix::MultiplyVector(ORXSrvMatrix const& b) {
  Require(b.m_dim1 == m_dim1 && !OverlapsBufferOf(b), "*=", __LINE__);
  mem_Array<double> const copy = mem_MakeArray<double>(m_dim1);
  CopyValues(copy.get(), m_values, m_dim1);
  double const alpha = 1.0;
  double const beta = 0.0;
  int const step = 1;
  int const leadingDimension = std::max(m_dim1, 1);
  RequireProductMemory();
  BLAC_DGEMV("N", &b.m_dim1, &b.m_dim2, &alpha, b.m_values, &leadingDimension, copy.get(), &step, &beta,
             m_values, &step);
}

void ORXSrvMatrix::SymmetricMultiply(ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
  static constexpr char operation[] = "SymmetricMultiply";
  constexpr int blockSize = 128;
  int const n = m_dim1;
  Require(m_dim2 == n && a.m_dim2 == n && b.m_dim1 == n, operation, __LINE__);
  Require(a.m_dim1 == n && b.m_dim2 == n, operation, __LINE__);
  Require(!m_diagonal && !a.m_diagonal && !b.m_diagonal, operation, __LINE__);
  Require(!OverlapsBufferOf(a) && !OverlapsBufferOf(b), operation, __LINE__);
  *this = 0.0;
  auto const block = [n](int index) { return BlockAfterRemainder(index, n, blockSize); };
  auto const at = [n](IndexBlock rows, IndexBlock columns) {
    return std::int64_t{columns.first} * n + rows.first;
  };
  int const count = BlockCount(n, blockSize);
  for (int i = 0; i < count; ++i)
    for (int j = 0; j <= i; ++j)
      for (int k = 0; k < count; ++k)
        AddProduct("N", block(i).size, block(j).size, block(k).size, a.m_values + at(block(i), block(k)), n,
                   b.m_values + at(block(k), block(j)), n, 1.0, m_values + at(block(i), block(j)), n);
}

void ORXSrvMatrix::Multiply(ORXSrvMatrix const& b, ORXSrvMatrix& c, int /*ignoredFlag*/,
                            int accumulate) const {
  AddProduct("N", m_dim1, b.m_dim2, b.m_dim1, m_values, m_dim1, b.m_values, b.m_dim1,
             accumulate != 0 ? 1.0 : 0.0, c.m_values, c.m_dim1);
}

void ORXSrvMatrix::TransposeMultiply(ORXSrvMatrix const& b, ORXSrvMatrix& c, int symmetricResult,
                                     int accumulate) const {
  constexpr int blockSize = 144;
  int const m = m_dim2;
  int const n = b.m_dim2;
  int const k = b.m_dim1; // also the leading dimension of this matrix
  double const beta = accumulate != 0 ? 1.0 : 0.0;
  if (symmetricResult == 0) {
    AddProduct("T", m, n, k, m_values, k, b.m_values, k, beta, c.m_values, c.m_dim1);
    return;
  }
  bool const isLower = TriangleOfResults(m, n) == Triangle::Lower;
  for (int outer = 0; outer < BlockCount(std::min(m, n), blockSize); ++outer)
    for (int inner = outer; inner < BlockCount(std::max(m, n), blockSize); ++inner) {
      IndexBlock const rows = BlockBeforeRemainder(isLower ? inner : outer, m, blockSize);
      IndexBlock const columns = BlockBeforeRemainder(isLower ? outer : inner, n, blockSize);
      AddProduct("T", rows.size, columns.size, k, m_values + std::int64_t{rows.first} * k, k,
                 b.m_values + std::int64_t{columns.first} * k, k, beta,
                 c.m_values + std::int64_t{columns.first} * m + rows.first, c.m_dim1);
    }
}

// Factorization, solves, eigenproblem

void ORXSrvMatrix::Factorize(int* pivots) {
  if (m_diagonal) return InvertDiagonal();
  FactorizeInPlace(pivots);
}

ORXSrvMatrix::PivotReport ORXSrvMatrix::FactorizeReporting(int* pivots) {
  PivotReport report;
  if (m_diagonal) {
    InvertDiagonal(); // reciprocals keep the signs
  } else {
    report.firstZero = FactorizeInPlace(pivots);
  }
  if (m_diagonal || m_symmetric) CountSigns(pivots, report);
  return report;
}

/// Counts the signs of the eigenvalues of D. A diagonal block of D has one row, or two rows where LAPACK's
/// pivots are negative. LAPACK takes a block of two rows only when its eigenvalues have different signs.
void ORXSrvMatrix::CountSigns(int const* pivots, PivotReport& report) const {
  std::int64_t const step = m_diagonal ? 1 : std::int64_t{m_dim1} + 1;
  for (int k = 0; k < m_dim1; ++k) {
    double const* const pivot = m_values + k * step;
    if (!m_diagonal && pivots[k] < 0) {
      bool const isNumber = !std::isnan(pivot[1]);
      report.positive += isNumber;
      report.negative += isNumber;
      ++k;
    } else {
      report.positive += *pivot > 0.0;
      report.negative += *pivot < 0.0;
      report.zero += *pivot == 0.0;
    }
  }
}

/// Returns LAPACK's INFO: 0, or the one-based row of the first pivot that is zero.
int ORXSrvMatrix::FactorizeInPlace(int* pivots) {
  RequireProductMemory();
  int info = 0;
  if (m_symmetric) {
    Require(m_dim1 <= m_dim2, "Factorize", __LINE__);
    // LAPACK takes the size of the workspace as a 32-bit integer.
    std::int64_t const square = std::int64_t{m_dim1} * m_dim1;
    int const workSize = static_cast<int>(std::clamp<std::int64_t>(square, 1, INT_MAX));
    mem_Array<double> const work = mem_MakeArray<double>(workSize);
    BLAC_DSYTRF("L", &m_dim1, m_values, &m_dim1, pivots, work.get(), &workSize, &info);
  } else {
    BLAC_DGETRF(&m_dim1, &m_dim2, m_values, &m_dim1, pivots, &info);
  }
  Require(info >= 0, "Factorize", __LINE__);
  return info;
}

void ORXSrvMatrix::InvertDiagonal() {
  for (int k = 0; k < m_dim1; ++k) {
    if (m_values[k] == 0.0) ORXSrvMtxDivByZero().Throw(sourceFile, __LINE__);
    m_values[k] = 1.0 / m_values[k];
  }
}

void ORXSrvMatrix::ForwardBackwardPass(int const* pivots, ORXSrvMatrix& rhs, bool transpose) const {
  bool const hasFactors = HasFullStorage() && m_dim1 <= m_dim2;
  bool const holdsColumns = std::int64_t{m_dim1} * rhs.m_dim2 <= std::int64_t{rhs.m_dim1} * rhs.m_dim2;
  Require(hasFactors && holdsColumns && rhs.HasFullStorage(), "ForwardBackwardPass", __LINE__);
  RequireProductMemory();
  int info = 0;
  if (m_symmetric) {
    BLAC_DSYTRS("L", &m_dim1, &rhs.m_dim2, m_values, &m_dim1, pivots, rhs.m_values, &m_dim1, &info);
  } else {
    BLAC_DGETRS(transpose ? "T" : "N", &m_dim1, &rhs.m_dim2, m_values, &m_dim1, pivots, rhs.m_values, &m_dim1,
                &info);
  }
  Require(info >= 0, "ForwardBackwardPass", __LINE__);
}

/// Copies this matrix into a matrix of the same shape with full storage.
void ORXSrvMatrix::CopyFullTo(ORXSrvMatrix& target) const {
  if (m_diagonal) {
    target = 0.0;
    target.SetDiagonal(*this);
  } else {
    GetRows(0, m_dim1 - 1, target);
  }
}

void ORXSrvMatrix::SolveEigenproblemSymmetric(ORXSrvMatrix const& b, ORXSrvMatrix& eigenvalues,
                                              ORXSrvMatrix& eigenvectors) {
  static constexpr char operation[] = "SolveEigenproblemSymmetric";
  int const n = m_dim1;
  Require(n >= 1 && m_dim2 == n && HasShapeOf(b) && HasShapeOf(eigenvectors), operation, __LINE__);
  Require(eigenvalues.m_dim1 == n && eigenvalues.NumberOfStoredValues() >= n, operation, __LINE__);
  Require(!eigenvectors.m_diagonal || n == 1, operation, __LINE__);
  for (ORXSrvMatrix const* const result : {&eigenvalues, &eigenvectors})
    Require(!result->OverlapsBufferOf(*this) && !result->OverlapsBufferOf(b), operation, __LINE__);
  Require(!eigenvalues.OverlapsBufferOf(eigenvectors), operation, __LINE__);
  Require(IsSymmetricNumerically() && b.IsSymmetricNumerically(), operation, __LINE__);
  // LAPACK reports success for matrices with a NaN.
  Require(IsFinite() && b.IsFinite(), operation, __LINE__);
  RequireProductMemory();

  int const blockSizeQuery = 1;
  int const unused = -1;
  int const blockSize = BLAC_ILAENV(&blockSizeQuery, "DSYTRD", "L", &n, &unused, &unused, &unused, 6, 1);
  std::int64_t const wanted = std::max((std::int64_t{blockSize} + 2) * n, std::int64_t{3} * n - 1);
  Require(wanted <= INT_MAX, operation, __LINE__);
  int const workSize = static_cast<int>(wanted);

  ORXSrvMatrix factor(n, n);
  mem_Array<double> const work = mem_MakeArray<double>(workSize);
  CopyFullTo(eigenvectors);
  b.CopyFullTo(factor);
  int const itype = 1;
  int info = 0;
  BLAC_DSYGV(&itype, "V", "L", &n, eigenvectors.m_values, &n, factor.m_values, &n, eigenvalues.m_values,
             work.get(), &workSize, &info);
  if (info < 0) ORXSrvMtxSolveIllegalArg(-info).Throw(sourceFile, __LINE__);
  if (info > n) ORXSrvMtxSolveNotPositive().Throw(sourceFile, __LINE__);
  bool const isFinite = ORXSrvMatrix(n, 1, eigenvalues.m_values).IsFinite() && eigenvectors.IsFinite();
  if (info > 0 || !isFinite) ORXSrvMtxSolveNotConverge().Throw(sourceFile, __LINE__);
}
