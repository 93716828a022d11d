#pragma once

#include "core/orx_export.h"
#include "mtx/ORXSrvScratchDenseMatrix.h"
#include "sim/ORXSimIdentifiers.h"

/// A symmetric scratch matrix R of order N, of which the file keeps one triangle of square blocks: a little
/// more than half of the space and of the reading that ORXSrvScratchDenseMatrix needs.
///
///     ORXSrvHermitianScrDenseMatrix r(60000, 1024);       // 14.9 GB instead of 28.8
///     r.SetColumns(0, 63, columns);                       // sets the rows 0 to 63 too
///     r.AddProduct(1.0, x, d);                            // R += X * D * X^T
///     r.Project(shapes, reduced);                         // shapes^T * R * shapes
///
/// A Hermitian operator H = S + iK of order n (S symmetric, K skew-symmetric) has the real form of order 2n
///
///         | S  -K |       A vector u + iv is the column (u; v): R * (u; v) is the real and the imaginary
///     R = |       |       part of H * (u + iv). The columns of Phi = A + iB are | A -B | in real form, whose
///         | K   S |                                                            | B  A |
///
/// projection is the real form of Phi^H * H * Phi. Each eigenvalue of H is two equal ones of R. SetHermitian
/// and GetHermitian move parts of H; all else works on R.
///
/// Cells and their mirror images: see ORXSrvDenseMatrix. A view of equal row and column ranges is symmetric
/// and has the products below; other views have those of the base class. The operations of the base class
/// that change what is stored work here as there, each stored block once, with these exceptions:
/// MultiplyAssign, and AddAssign of a matrix that is not symmetric, are error 206, and ExtendDim returns 3.
///
/// The products of this class read each stored block once and use it twice:
///
///     for each block row I, for J = 0 ... I     Y_I += R_IJ * X_J     and for J < I     Y_J += R_IJ^T * X_I
///
/// Sums are in that order, so results are those of a full matrix up to rounding. IndexedMultiply, products
/// with a permutation and those of some of the rows are inherited.
class ORX_EXPORT ORXSrvHermitianScrDenseMatrix : public ORXSrvScratchDenseMatrix {
public:
  /// The null matrix, without a file.
  ORXSrvHermitianScrDenseMatrix();
  /// Labels 0, 1, 2, ... The chunk is the length of the blocks, lowered to 16384 where it is longer (a block
  /// has at most 2 GB), but not to the order: the matrix may grow. -1: one block; the file has shorter ones,
  /// of 1024. Errors as for the scratch matrix.
  ORXSrvHermitianScrDenseMatrix(int order, int chunk);
  /// With these labels, as many as the order; null: 0, 1, 2, ...
  ORXSrvHermitianScrDenseMatrix(int order, int const* labels, int chunk);
  /// With the labels of a set of another database, which RowCSetID and ColumnCSetID return.
  ORXSrvHermitianScrDenseMatrix(ORXSimCSetID set, int chunk);
  ~ORXSrvHermitianScrDenseMatrix() override;

  ORXSrvDenseMatrix* Submatrix(int firstRow, int lastRow, int firstColumn, int lastColumn) const override;

  // Products, see ORXSrvDenseMatrix

  using ORXSrvScratchDenseMatrix::Multiply;
  using ORXSrvScratchDenseMatrix::TransposeMultiply;
  void Multiply(double const* x, int n, double* y) const override;
  void Multiply(ORXSrvMatrix const& b, ORXSrvMatrix& c) const override;
  /// B is read once, in column groups for which B and the result fit the work memory.
  void Multiply(ORXSrvDenseMatrix const* b, double* y) const override;
  void Multiply(ORXSrvDenseMatrix const& b, ORXSrvDenseMatrix& c) const override;
  void Multiply(double alpha, ORXSrvMatrix const& b, double beta, ORXSrvDenseMatrix& c) const override;
  void TransposeMultiply(double const* x, int n, double* y, int k) const override;
  void TransposeMultiply(ORXSrvMatrix const& b, ORXSrvMatrix& c, int symmetric) const override;
  void TransposeMultiply(ORXSrvDenseMatrix const* b, ORXSrvMatrix& c, int symmetric) const override;

  /// C = X^T * R * X in the leading square of C, exactly symmetric; X is N x k and needs as much work memory
  /// again. Error 206 when the shapes do not fit or this is not a symmetric view.
  void Project(ORXSrvMatrix const& x, ORXSrvMatrix& c) const;
  /// R += alpha * X * D * X^T; X is N x k, D diagonal or symmetric of order k. Each block is read and written
  /// once; an error in between leaves the blocks that were finished. Error 206, before anything is changed,
  /// when the shapes do not fit, D is not exactly symmetric, or this is not a symmetric view.
  void AddProduct(double alpha, ORXSrvMatrix const& x, ORXSrvMatrix const& d);

  // Parts of H = S + iK; the order of R is even, else error 206

  /// Writes a rectangle of H from its real and its imaginary part, each packed at the start of a buffer, and
  /// what lies at mirrored places. Error 204 for a rectangle that is empty or leaves H; and where it holds a
  /// cell and its mirror image, unless S(i, j) = S(j, i) and K(i, j) = -K(j, i) exactly (so K(i, i) = 0):
  /// then nothing is written. Error 206 for buffers that are too small.
  void SetHermitian(int firstRow, int lastRow, int firstColumn, int lastColumn, ORXSrvMatrix const& real,
                    ORXSrvMatrix const& imaginary);
  /// Reads a rectangle of H. Error 203 for one that is empty or leaves H, 206 for buffers that are too small.
  void GetHermitian(int firstRow, int lastRow, int firstColumn, int lastColumn, ORXSrvMatrix& real,
                    ORXSrvMatrix& imaginary) const;

  // Growth

  /// Appends `count` rows and as many columns of zeros, with `labels`, or without them with the labels N,
  /// N + 1, ... Results and what else holds are those of ORXSrvDenseMatrix::ExtendDim; the blocks keep their
  /// length. The order of H = S + iK does not grow so: what is appended to R does not belong to S or K.
  int ExtendOrder(int count, int const* labels);

protected:
  /// A view, see Submatrix.
  ORXSrvHermitianScrDenseMatrix(ORXSrvHermitianScrDenseMatrix const& parent, int firstRow, int lastRow,
                                int firstColumn, int lastColumn);

private:
  ORX_LOCAL void BuildSymmetric(int order, int const* labels, int chunk);
  ORX_LOCAL bool IsSymmetricView() const noexcept;
  ORX_LOCAL bool HoldsColumnsOf(ORXSrvDenseMatrix const& b) const noexcept;
  template<class Use>
  ORX_LOCAL void MultiplyColumns(ORXSrvDenseMatrix const& b, Use use) const;
  ORX_LOCAL int OrderOfH(char const* operation) const;
};
