#pragma once

#include "core/mem_Allocator.h"
#include "mtx/ORXSrvScratchDenseMatrix.h"
#include "solve/search/Pencil.h"

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

namespace orx {

/// An approximate eigenvalue of the shifted and inverted operator (K - shift M)^-1 M.
struct RitzValue {
  double theta;    ///< 1 / (lambda - shift)
  double residual; ///< ||(K - shift M)^-1 M x - theta x|| in the norm of M, x of norm 1
  bool isConverged;
};

/// A mode that was found.
struct FoundMode {
  double lambda;
  double error; ///< bound of the error of lambda
  ModeQuality quality;
  std::vector<double> shape; ///< of this process's rows
};

/// The sign of the largest component of a vector; of components as large as each other to rounding, as
/// symmetric structures have, the first decides. `count` is the number of this process's components.
double SignOfLargest(Processes const& processes, double const* x, int count);

/// Block Lanczos for the factorization that the pencil has now, orthogonal in the inner product of M to all
/// vectors before and to modes that are known:
///
///     (K - shift M)^-1 M Q = Q T + next R [0 ... 0 I],   Q^T M Q = I
class BlockLanczos {
public:
  /// Vectors are at most so many, and of these in memory; the older ones go to a scratch block matrix.
  struct Size {
    int vectors, inMemory;
  };
  /// `known` modes are lent. The random vectors that it begins with have to differ between runs that share
  /// known modes: of a mode many times, equal ones find the same copies.
  BlockLanczos(Pencil& pencil, double shift, std::vector<FoundMode> const& known, Size size,
               std::size_t seed);

  /// Adds a block and finds the Ritz values. Returns false when there is no further direction, or no memory
  /// for one.
  bool Extend();
  bool IsFull() const noexcept { return m_size + m_next + m_width > m_capacity; }
  /// True when the vectors span all motions with mass, so that no mode is left.
  bool IsExhausted() const noexcept { return m_isExhausted; }
  /// True when Values are those of all vectors: they are not looked for after each block.
  bool HasValues() const noexcept { return m_checkedSize == m_size && m_size > 0; }
  /// Largest |theta| first.
  std::vector<RitzValue> const& Values() const noexcept { return m_values; }
  double Lambda(int index) const { return m_shift + 1.0 / m_values[index].theta; }
  /// The modes of the converged values, if HasValues, less those with a poor residual, which another shift
  /// has to find. Where M is singular, shapes are purified of motions without mass by another step of the
  /// operator (Ericsson, Ruhe 1980).
  std::vector<FoundMode> MakeModes();

private:
  double* Column(int index) noexcept { return m_vectors.get() + std::int64_t{index - m_stored} * m_order; }
  double const* Column(int index) const noexcept {
    return m_vectors.get() + std::int64_t{index - m_stored} * m_order;
  }
  double DotOfAll(double const* x, double const* y) const;
  /// Sums a block of coefficients, of leading dimension m_size, over all processes.
  void SumBlock(double* c, int rows, int columns) const;
  /// Moves Q to the scratch matrix if there is no memory for another block.
  void MakeRoom();
  /// Calls visit(first, columns, count) for all vectors of Q, as many at a time as lie together.
  template<class Visit>
  void ForEachPanel(Visit visit) const;
  /// Replaces vectors x by (K - shift M)^-1 M x.
  void Apply(double* x, int count);
  /// Makes vectors x = (K - shift M)^-1 y of y in m_massTimes.
  void ApplyToMassTimes(double* x, int count);
  /// Makes the columns behind Q orthogonal to the known modes and to Q, in one pass if they nearly are, else
  /// in two. Adds the coefficients of Q to `t`, which may be null, with m_capacity as its leading dimension.
  void Orthogonalize(int count, int passes, double* t);
  /// The sum of x_i^2 M_ii.
  double SquareByDiagonal(double const* x) const;
  /// Makes the columns behind Q orthonormal: old columns = new columns * r. Returns the number of new
  /// columns: those of which nothing but rounding errors is left are dropped.
  int Orthonormalize(int count, std::vector<double>& r);
  /// Puts up to `count` new directions behind the columns first ... that the next block has. Returns their
  /// number.
  int AddRandomDirections(int first, int count);
  void Start();
  void FindRitzValues();
  /// Applies the operator to shapes with a residual of alien motions, and measures them anew.
  void Purify(std::vector<double> const& lambdas, double* shapes, std::vector<ModeQuality>& quality);
  /// Bound of the error of a value: its residual, or where others are far enough its square by their distance
  /// (Kato, Temple; Parlett 1980, 11.7).
  double ErrorOf(std::size_t index) const;

  Pencil& m_pencil;
  Processes const& m_processes;
  double m_shift;
  std::vector<FoundMode> const& m_known;
  int m_order;    ///< rows of this process
  int m_width;    ///< columns of a block
  int m_capacity; ///< vectors
  int m_inMemory; ///< columns of m_vectors
  int m_size = 0; ///< columns of Q
  int m_last = 0; ///< of these in the last block
  int m_next = 0; ///< columns of the next block
  bool m_isExhausted = false;
  mem_Array<double> m_vectors; ///< Q from m_stored on and behind it the next block, column-major
  std::optional<ORXSrvScratchDenseMatrix> m_file; ///< the first vectors of Q
  int m_stored = 0;                               ///< their number
  mem_Array<double> m_massTimes;                  ///< M times a block
  std::vector<double> m_massDiagonal;
  std::vector<double> m_t;           ///< T, column-major, leading dimension m_capacity
  std::vector<double> m_r;           ///< R, m_next x m_last
  std::vector<double> m_ritzVectors; ///< m_size x m_size, a column for each of m_values
  std::vector<RitzValue> m_values;
  double m_leastShare = 1.0;    ///< least length that Orthonormalize has left of a vector
  bool m_hasMassOfNext = false; ///< m_massTimes is M times the next block
  int m_checkedSize = 0;        ///< columns of Q at the last look for Ritz values
  std::mt19937_64 m_generator;
};

} // namespace orx
