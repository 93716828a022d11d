#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <span>
#include <vector>

// What the modal problem needs of matrices in symmetric form besides the library's operations. Vectors have
// as many elements as the matrix has rows.

namespace orx::tool {

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

/// The rows and columns of the unknowns that are kept, in the form of the matrix, which is square.
ORXSrvSparseMatrix Reduced(ORXSrvSparseMatrix const& matrix, KeptUnknowns const& kept);

std::vector<double> DiagonalOf(ORXSrvSparseMatrix const& matrix);
/// For each row, true when it has a value other than 0.
std::vector<bool> NonzeroRows(ORXSrvSparseMatrix const& matrix);

/// y = A x
std::vector<double> Product(ORXSrvSparseMatrix const& matrix, std::span<double const> x);
/// y = |A| |x|, which the rounding errors of A x are proportional to.
std::vector<double> AbsoluteProduct(ORXSrvSparseMatrix const& matrix, std::span<double const> x);
/// x^T A x
double QuadraticForm(ORXSrvSparseMatrix const& matrix, std::span<double const> x);
/// |x|^T |A| |x|, which the rounding errors of the quadratic form are proportional to.
double AbsoluteForm(ORXSrvSparseMatrix const& matrix, std::span<double const> x);

} // namespace orx::tool
