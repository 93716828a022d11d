#pragma once

#include "core/orx_export.h"

#include <cstdint>

class ORXSrvDenseMatrix;

/// A small dense matrix of doubles in memory, over BLAS and LAPACK.
///
/// Storage. Full: column-major with leading dimension = rows, element (i, j) at index j * rows + i, no
/// padding. Diagonal: only the `rows` diagonal values. The symmetric flag does not change the storage (both
/// triangles are stored); it selects the symmetric factorization and leaves Transpose without effect.
///
/// Ownership. A matrix over a lent buffer never frees and never replaces it; a matrix without one allocates
/// its own, uncleared, and frees it. A copy is deep and owns its buffer. A move takes the buffer over, lent
/// or owned, and leaves a 0 x 0 matrix.
///
/// Indices are zero-based; ranges (first, last) include both ends. Where a check is stated, it comes before
/// anything is written. Every failed check raises error 206, "ORXSrvMatrix::%s - Illegal input." with the
/// name of the operation, unless another is named. Accesses that would leave the stored values of a matrix (a
/// slice that sticks out, full-storage operations on a diagonal matrix that owns its buffer) fail the same
/// way.
class ORX_EXPORT ORXSrvMatrix {
public:
  // Creation and destruction

  /// Makes a rows x columns matrix over `values` (lent, never freed), or with an uncleared buffer of its own
  /// when `values` is null. Nothing else is checked; a failed allocation raises mem_OutOfMemory.
  ORXSrvMatrix(int rows, int columns, double* values = nullptr, bool symmetric = false,
               bool diagonal = false);
  ORXSrvMatrix(ORXSrvMatrix const& source);
  ORXSrvMatrix(ORXSrvMatrix&& source) noexcept;
  ~ORXSrvMatrix();

  /// Same shape, and this is not a diagonal matrix assigned from a full one: copies the values; buffer and
  /// flags stay. Otherwise takes over the source's shape and flags in a new buffer, which a matrix over a
  /// lent buffer cannot do ("Assignment operator").
  ORXSrvMatrix& operator=(ORXSrvMatrix const& source);
  /// Sets every stored value.
  ORXSrvMatrix& operator=(double value);

  // Queries

  int NumberOfRows() const noexcept { return m_dim1; }
  int NumberOfColumns() const noexcept { return m_dim2; }
  bool IsDiagonal() const noexcept { return m_diagonal; }
  bool IsSymmetric() const noexcept { return m_symmetric; }
  /// rows for diagonal storage, rows * columns for full storage.
  std::int64_t NumberOfStoredValues() const noexcept {
    return m_diagonal ? m_dim1 : std::int64_t{m_dim1} * m_dim2;
  }
  /// Values that the buffer is known or, when it is lent, trusted to have: rows * columns, but only the
  /// diagonal of a diagonal matrix that owns its buffer.
  std::int64_t BufferSize() const noexcept {
    return m_diagonal && m_ownsValues ? m_dim1 : std::int64_t{m_dim1} * m_dim2;
  }
  /// The value buffer, in the storage order above.
  double* Values() noexcept { return m_values; }
  double const* Values() const noexcept { return m_values; }

  /// Exact comparison of shapes, storage and values (not of the symmetric flag); NaN differs from everything.
  /// The first different value is reported on standard output, unless both are the same object.
  bool operator==(ORXSrvMatrix const& other) const;
  /// True when every (i, j) equals (j, i) exactly, or the matrix is diagonal; false when it is not square, or
  /// has a NaN off the diagonal.
  bool IsSymmetricNumerically() const;

  // Element access

  // Blocks are column-major without gaps: (lastRow - firstRow + 1) values for each column.

  /// Element (row, column) of either storage; outside of the matrix: "operator()". Off the diagonal of a
  /// diagonal matrix it is 0.0, which only a const matrix returns: a reference would have no value to refer
  /// to ("operator()").
  double operator()(int row, int column) const {
    if (!HasElement(row, column)) RefuseElement();
    if (!m_diagonal) return m_values[std::int64_t{column} * m_dim1 + row];
    return row == column ? m_values[row] : 0.0;
  }
  double& operator()(int row, int column) {
    if (!HasElement(row, column) || (m_diagonal && row != column)) RefuseElement();
    return m_values[m_diagonal ? row : std::int64_t{column} * m_dim1 + row];
  }
  /// Writes a block ("SetValues").
  void SetValues(int firstRow, int lastRow, int firstColumn, int lastColumn, double const* values);
  /// Writes a block that lies at the start of the source's buffer, whatever the source's own shape is
  /// ("SetValues" also when the source holds fewer values than the block).
  void SetValues(int firstRow, int lastRow, int firstColumn, int lastColumn, ORXSrvMatrix const& source);
  /// Reads a block into the start of the target's buffer; the target's shape stays ("GetValues" also when the
  /// target holds fewer values than the block).
  void GetValues(int firstRow, int lastRow, int firstColumn, int lastColumn, ORXSrvMatrix& target) const;
  /// SetValues over all columns.
  void SetRows(int firstRow, int lastRow, ORXSrvMatrix& source);
  /// GetValues over all columns.
  void GetRows(int firstRow, int lastRow, ORXSrvMatrix& target) const;
  /// (rowOffset + i, columnOffset + j) = factor * source(i, j). A diagonal source clears its square first;
  /// into a diagonal matrix it goes to stored positions rowOffset + k. Full into diagonal: "SetSlice".
  void SetSlice(double factor, ORXSrvMatrix const& source, int rowOffset, int columnOffset);
  /// (rowOffset + i, columnOffset + j) += factor * source(i, j). A diagonal source is added at full-storage
  /// positions even when this matrix is diagonal. Full into diagonal: "Assignment operator".
  void AddSlice(double factor, ORXSrvMatrix const& source, int rowOffset, int columnOffset);
  /// Writes `rows` diagonal values.
  void SetDiagonal(double const* values);
  /// Copies the diagonal of a square matrix into this square one ("SetDiagonal"; also full into diagonal).
  void SetDiagonal(ORXSrvMatrix const& source);

  // Operations

  /// Transposes in place; a lent buffer holds the transpose afterwards. Diagonal and symmetric: no effect.
  void Transpose();
  /// Old row i becomes row permutation[i]. `length` must be the row count ("PermuteRowsInPlace"). A value in
  /// `permutation` greater than the row count raises error 212 during the permutation: columns before it are
  /// then permuted. Other bad values are not detected: a value equal to the row count, negative or repeated
  /// writes to the position in the buffer that it points to, and nowhere when that is outside.
  void PermuteRowsInPlace(int const* permutation, int length);
  /// Element-wise sum of equal shapes; full += diagonal is allowed, adding a matrix to itself is not ("*=").
  ORXSrvMatrix& operator+=(ORXSrvMatrix const& source);
  /// this += factor * source, with the shapes of += ("Add"); a factor of 0 does nothing, not even check.
  void Add(double factor, ORXSrvMatrix const& source);
  /// The same with a block matrix, read block by block, that has at most this matrix's rows and columns
  /// ("Add"). A symmetric matrix takes the upper triangle of the source and mirrors it. Into a diagonal
  /// matrix: "Assignment operator". An error of a read leaves the blocks before it added.
  void Add(double factor, ORXSrvDenseMatrix const& source);
  /// Scales all rows * columns values; for full storage.
  void Multiply(double factor);
  /// In the leading square, copies the upper triangle onto the lower one when there are fewer rows than
  /// columns, else the lower onto the upper.
  void SetSymmetricResults();
  /// The same with the copied values negated; the diagonal stays.
  void SetSkewSymmetricResults();
  /// (1 - t) * a + t * b for t in [0, 1] ("Interpolate"), at buffer indices rows * i + j for i < rows and
  /// j < columns: every value once for a square matrix. All three have one shape, and not more rows than
  /// columns: the rule would leave the buffer ("Interpolate").
  void Interpolate(double t, ORXSrvMatrix const& a, ORXSrvMatrix const& b);

  // Products

  // Full operands go through DGEMM and DGEMV, a diagonal one scales. REQUIRES: a result does not overlap its
  // operands in memory. Scaling may work in place all the same (a.Multiply(a, diagonal)); where operands are
  // checked, a product of full matrices that overlaps one of them is refused.

  /// this = a * b. Two diagonal operands write the diagonal of this matrix: into full storage after clearing
  /// the first `rows` stored values only, so that its other values off the diagonal stay. Shapes that do not
  /// fit, and a diagonal result of a full operand: "Multiply".
  void Multiply(ORXSrvMatrix const& a, ORXSrvMatrix const& b);
  /// A square matrix: this = this * b. A column vector: this = b * this. This row count other than b's column
  /// count, or b being this matrix: "*="; neither square nor a vector: "Multiply". Diagonal with diagonal
  /// stays diagonal; diagonal with full: "Multiply".
  ORXSrvMatrix& operator*=(ORXSrvMatrix const& b);
  /// The lower block triangle of a * b, for a result that is known to be symmetric: half the work. All three
  /// are square, of one order and full ("SymmetricMultiply"). Blocks of 128, the first one being the
  /// remainder; diagonal blocks are complete, those above are zero. SetSymmetricResults completes the matrix.
  void SymmetricMultiply(ORXSrvMatrix const& a, ORXSrvMatrix const& b);
  /// c = this * b, or c += this * b with a non-zero `accumulate`; the third argument has no meaning.
  /// Nothing is checked. REQUIRES: full storage, this rows x k, b k x n, c with at least `rows` rows, of
  /// which the first `rows` are written, and n columns.
  void Multiply(ORXSrvMatrix const& b, ORXSrvMatrix& c, int ignoredFlag, int accumulate) const;
  /// c = this^T * b, or c += this^T * b with a non-zero `accumulate`. A non-zero `symmetricResult` says that
  /// the leading square of the result is symmetric: then only one block triangle is written, in blocks of
  /// 144, the last one being the remainder, with complete diagonal blocks. It is the lower triangle, or the
  /// upper one when this matrix has fewer columns than b; c.SetSymmetricResults() completes either.
  /// Nothing is checked. REQUIRES: full storage, this k x m, b k x n, c m x n; without `symmetricResult` c
  /// may have more rows.
  void TransposeMultiply(ORXSrvMatrix const& b, ORXSrvMatrix& c, int symmetricResult, int accumulate) const;

  // Factorization, solves, eigenproblem

  /// Factors in place. Diagonal: replaces the values by their reciprocals, up to the first zero (error 218).
  /// Symmetric: L*D*L^T of the lower triangle (DSYTRF). Otherwise P*L*U (DGETRF). `pivots`: at least `rows`
  /// ints, one-based as LAPACK's. A singular matrix is not an error here: the factors are left as LAPACK made
  /// them.
  void Factorize(int* pivots);
  /// Overwrites the columns of `rhs` (leading dimension: this matrix's rows) with the solutions of A*X = B
  /// or, with `transpose`, of A^T*X = B; this matrix holds the factors. For full storage.
  void ForwardBackwardPass(int const* pivots, ORXSrvMatrix& rhs, bool transpose) const;
  /// The result of FactorizeReporting.
  struct PivotReport {
    int firstZero =
        0; ///< one-based row of the first pivot that is exactly zero, LAPACK's INFO; 0: there is none
    /// The inertia, for symmetric and diagonal matrices: numbers of eigenvalues greater than, less than and
    /// equal to zero, by the signs of D. Their sum is the order, or less where a pivot is not a number. 0
    /// after P*L*U.
    int positive = 0;
    int negative = 0;
    int zero = 0;
  };
  /// Does the same as Factorize, and returns a report. Sturm's count: `negative` of K - sigma*M is the number
  /// of eigenvalues below sigma.
  PivotReport FactorizeReporting(int* pivots);
  /// A*x = lambda*b*x with A this matrix and b, both symmetric to the last bit, b positive definite.
  /// `eigenvalues`: at least n values, ascending. `eigenvectors` n x n: column k belongs to value k, and
  /// Z^T*b*Z = I. A and b stay as they are.
  /// Shapes, symmetry, an inf or NaN in A or b, results that overlap A, b or each other in memory: 206. b not
  /// positive definite: 215. No convergence, or results beyond the largest double: 214. An argument that
  /// LAPACK refuses: 213.
  void SolveEigenproblemSymmetric(ORXSrvMatrix const& b, ORXSrvMatrix& eigenvalues,
                                  ORXSrvMatrix& eigenvectors);

private:
  ORX_LOCAL bool HasFullStorage() const noexcept;
  bool HasShapeOf(ORXSrvMatrix const& other) const noexcept {
    return m_dim1 == other.m_dim1 && m_dim2 == other.m_dim2;
  }
  ORX_LOCAL bool IsBlock(int firstRow, int lastRow, int firstColumn, int lastColumn) const noexcept;
  ORX_LOCAL bool HoldsSlice(ORXSrvMatrix const& source, int rowOffset, int columnOffset) const noexcept;
  ORX_LOCAL bool HoldsDiagonalOf(int rows, std::int64_t step) const noexcept;
  /// True when a diagonal matrix, which holds a value for each row, has a value for each column.
  bool CoversColumns() const noexcept { return m_dim1 >= m_dim2; }
  bool HasElement(int row, int column) const noexcept {
    return row >= 0 && row < m_dim1 && column >= 0 && column < m_dim2;
  }
  [[noreturn]] static void RefuseElement();
  ORX_LOCAL bool OverlapsBufferOf(ORXSrvMatrix const& other) const noexcept;
  ORX_LOCAL bool IsFinite() const noexcept;
  ORX_LOCAL void MultiplyDiagonals(ORXSrvMatrix const& a, ORXSrvMatrix const& b);
  ORX_LOCAL void ScaleRows(ORXSrvMatrix const& diagonal, ORXSrvMatrix const& source);
  ORX_LOCAL void ScaleColumns(ORXSrvMatrix const& source, ORXSrvMatrix const& diagonal);
  ORX_LOCAL void MultiplySquare(ORXSrvMatrix const& b);
  ORX_LOCAL void MultiplyVector(ORXSrvMatrix const& b);
  ORX_LOCAL void AddScaled(double factor, ORXSrvMatrix const& source, char const* operation);
  ORX_LOCAL void TransposeRectangle();
  ORX_LOCAL int FactorizeInPlace(int* pivots);
  ORX_LOCAL void InvertDiagonal();
  ORX_LOCAL void CountSigns(int const* pivots, PivotReport& report) const;
  ORX_LOCAL void CopyFullTo(ORXSrvMatrix& target) const;

  double* m_values;
  std::int32_t m_dim1; ///< rows
  std::int32_t m_dim2; ///< columns
  bool m_ownsValues;   ///< false: the buffer is lent
  bool m_symmetric;
  bool m_diagonal;
};
