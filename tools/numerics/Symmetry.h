#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orx::tool {

/// Two mirrored positions, zero-based, row > column. What is not stored counts as 0.
struct MirroredPair {
  std::uint32_t row;
  std::uint32_t column;
  double lower; ///< the value at (row, column)
  double upper; ///< the value at (column, row)
};

/// What a comparison of both triangles found.
struct Symmetry {
  enum class Form { Diagonal, LowerTriangle, UpperTriangle, BothTriangles };

  Form form = Form::Diagonal;
  std::int64_t lowerEntries = 0;
  std::int64_t diagonalEntries = 0;
  std::int64_t upperEntries = 0;
  std::int64_t unmatchedEntries = 0;     ///< not zero, and the mirrored position is not stored
  std::optional<MirroredPair> unmatched; ///< the first of them
  double worstDifference = 0.0;          ///< the largest relative difference of a pair
  std::optional<MirroredPair> worst;     ///< where that is; none when every pair agrees

  bool IsExact() const noexcept { return !worst; }
};

/// Compares the triangles in linear time. The difference of a pair is relative to the largest of |a(i,j)|,
/// |a(j,i)| and sqrt(|a(i,i) a(j,j)|): the last is what an entry of a positive definite matrix cannot exceed,
/// so that a leftover of cancellation is measured against what cancelled, in the units of its row and column.
Symmetry MeasureSymmetry(ORXSrvSparseMatrix const& matrix);

/// Adds what one pair shows to what the pairs before it have shown. `isUnmatched` says that one of its values
/// is not stored, `diagonalScale` is sqrt(|a(i,i) a(j,j)|).
void ComparePair(MirroredPair const& pair, bool isUnmatched, double diagonalScale, Symmetry& symmetry);

/// "(5, 3) = 1.5, (3, 5) = 1.25", one-based.
std::string Describe(MirroredPair const& pair);

/// "symmetric to rounding: ...": what was found, in a line.
std::string SymmetryText(Symmetry const& symmetry);

/// What one triangle of a matrix is to the other one.
enum class Mirror {
  None,
  Same,    ///< the mirror image, to the bit and stored at the same positions
  Negative ///< its negative, and nothing is stored on the diagonal
};

Mirror MirrorOf(ORXSrvSparseMatrix const& matrix);

/// A value that is not finite is a ToolError that starts with `name`.
void RequireFinite(ORXSrvSparseMatrixEntry const& entry, std::string const& name);
void RequireFinite(ORXSrvSparseMatrix const& matrix, std::string const& name);

/// The relative difference of mirrored values up to which they count as one value with rounding errors.
constexpr double symmetryTolerance = 1e-10;

/// A matrix of rows x columns whose triangles differ by more than symmetryTolerance is a ToolError that
/// starts with `name`.
void RequireSymmetric(int rows, int columns, Symmetry const& symmetry, std::string const& name);

/// The diagonal and the lower triangle, in general form, of the symmetric matrix in a file that holds one
/// triangle, or both with values that agree within symmetryTolerance and are averaged. `order` is at least
/// the dimensions of the file. Other files, and values that are not finite, are a ToolError that starts with
/// `name`.
ORXSrvSparseMatrix MakeLowerTriangle(ORXSrvSparseMatrix const& matrix, Symmetry const& symmetry, int order,
                                     std::string const& name);

} // namespace orx::tool
