#pragma once

#include "tools/numerics/MatrixEntries.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

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
Symmetry MeasureSymmetry(MatrixEntries const& matrix);

/// "(5, 3) = 1.5, (3, 5) = 1.25", one-based.
std::string Describe(MirroredPair const& pair);

/// "symmetric to rounding: ...": what was found, in a line.
std::string SymmetryText(Symmetry const& symmetry);

/// All pairs of mirrored positions of which at least one is stored, rows ascending, then columns.
std::vector<MirroredPair> MirroredPairs(MatrixEntries const& matrix);

/// What one triangle of a matrix is to the other one.
enum class Mirror {
  None,
  Same,    ///< the mirror image, to the bit and stored at the same positions
  Negative ///< its negative, and nothing is stored on the diagonal
};

Mirror MirrorOf(MatrixEntries const& matrix);

/// The unknowns of a matrix without some of them, numbered anew in the same order.
class KeptUnknowns {
public:
  /// `dropped` holds unknowns below `order`, zero-based, in any order.
  KeptUnknowns(int order, std::span<int const> dropped);

  int Count() const noexcept { return static_cast<int>(m_old.size()); }
  int Old(int newNumber) const { return m_old[newNumber]; }
  /// -1 for one that is dropped.
  int New(int oldNumber) const { return m_new[oldNumber]; }
  /// A vector of the kept unknowns as one of all; 0 for those that are dropped.
  std::vector<double> Expanded(std::span<double const> kept) const;

private:
  std::vector<int> m_old;
  std::vector<int> m_new;
};

/// A symmetric matrix as its lower triangle, in sparse form.
class SymmetricMatrix {
public:
  /// Entries have row >= column, each position once.
  SymmetricMatrix(int order, std::vector<Entry> lower) : m_order(order), m_lower(std::move(lower)) {}

  int Order() const noexcept { return m_order; }
  std::span<Entry const> Lower() const noexcept { return m_lower; }

  double FrobeniusNorm() const;
  std::vector<double> Diagonal() const;
  /// y = A x
  std::vector<double> Times(std::span<double const> x) const;
  /// y = |A| |x|, which the rounding errors of A x are proportional to.
  std::vector<double> AbsoluteTimes(std::span<double const> x) const;
  /// x^T A x
  double QuadraticForm(std::span<double const> x) const;
  /// |x|^T |A| |x|, which the rounding errors of the quadratic form are proportional to.
  double AbsoluteForm(std::span<double const> x) const;
  /// Per unknown, whether its row holds a value other than 0.
  std::vector<bool> NonzeroRows() const;
  /// The rows and columns of the unknowns that are kept.
  SymmetricMatrix Reduced(KeptUnknowns const& kept) const;

private:
  int m_order;
  std::vector<Entry> m_lower;
};

/// The relative difference of mirrored values up to which they count as one value with rounding errors.
constexpr double symmetryTolerance = 1e-10;

/// The symmetric matrix of a file that holds one triangle, or both with values that agree within
/// symmetryTolerance and are averaged. `order` is at least the dimensions of the file; what is not stored is
/// 0. Other files, and values that are not finite, are a ToolError that starts with `name`.
SymmetricMatrix MakeSymmetric(MatrixEntries const& matrix, Symmetry const& symmetry, int order,
                              std::string const& name);

} // namespace orx::tool
