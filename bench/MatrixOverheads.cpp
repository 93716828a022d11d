#include "bench/Batch.h"
#include "bench/Claims.h"
#include "blac/BLAC.h"

#include <algorithm>
#include <string>
#include <vector>

// The peer of each claim is the BLAS or LAPACK routine itself through the same call layer, with its workspace
// allocated and its inputs copied beforehand. Both work on the same buffers.

namespace bench {
namespace {

/// Workspace of DSYTRF as the class gives it.
std::vector<double> SquareWork(int order) {
  return std::vector<double>(static_cast<std::size_t>(order) * static_cast<std::size_t>(order));
}

std::string Claim(char const* operation, char const* peer, int order) {
  return Format("%s, n = %d: time / bare %s", operation, order, peer);
}

void CompareFactorize(Report& report, BatchSize size, bool symmetric) {
  std::string const claim = symmetric ? Claim("Factorize, symmetric", "DSYTRF", size.order)
                                      : Claim("Factorize, general", "DGETRF", size.order);
  if (!report.Wants(claim)) return;
  int const n = size.order;
  Batch values(RandomSquare(n, symmetric, 0.0), size.count);
  std::vector<ORXSrvMatrix> matrices = values.Matrices(n, n, symmetric);
  std::vector<int> pivots(static_cast<std::size_t>(n));
  std::vector<double> work = SquareWork(n);
  int const workSize = n * n;
  auto const ours = [&](int k) { matrices[k].Factorize(pivots.data()); };
  auto const bare = [&](int k) {
    int info = 0;
    if (symmetric) {
      BLAC_DSYTRF("L", &n, values.At(k), &n, pivots.data(), work.data(), &workSize, &info);
    } else {
      BLAC_DGETRF(&n, &n, values.At(k), &n, pivots.data(), &info);
    }
  };
  CompareWithBare(
      report, claim, size, [&] { values.Restore(); }, ours, bare, [&] { return values.AllValues(); });
}

void CompareForwardBackwardPass(Report& report, BatchSize size, bool symmetric, int columns) {
  std::string const claim =
      Claim(Format("ForwardBackwardPass, %s, %d right-hand side%s", symmetric ? "symmetric" : "general",
                   columns, columns == 1 ? "" : "s")
                .c_str(),
            symmetric ? "DSYTRS" : "DGETRS", size.order);
  if (!report.Wants(claim)) return;
  int const n = size.order;
  std::vector<double> factors = RandomSquare(n, symmetric, 0.0);
  ORXSrvMatrix matrix(n, n, factors.data(), symmetric);
  std::vector<int> pivots(static_cast<std::size_t>(n));
  matrix.Factorize(pivots.data());
  Batch sides(std::vector<double>(static_cast<std::size_t>(n) * columns, 1.0), size.count);
  std::vector<ORXSrvMatrix> matrices = sides.Matrices(n, columns);
  auto const ours = [&](int k) { matrix.ForwardBackwardPass(pivots.data(), matrices[k], false); };
  auto const bare = [&](int k) {
    int info = 0;
    if (symmetric) {
      BLAC_DSYTRS("L", &n, &columns, factors.data(), &n, pivots.data(), sides.At(k), &n, &info);
    } else {
      BLAC_DGETRS("N", &n, &columns, factors.data(), &n, pivots.data(), sides.At(k), &n, &info);
    }
  };
  CompareWithBare(
      report, claim, size, [&] { sides.Restore(); }, ours, bare, [&] { return sides.AllValues(); });
}

/// Workspace of DSYGV as the class asks for it.
int EigenWorkSize(int n) {
  int const blockSizeQuery = 1;
  int const unused = -1;
  int const blockSize = BLAC_ILAENV(&blockSizeQuery, "DSYTRD", "L", &n, &unused, &unused, &unused, 6, 1);
  return std::max((blockSize + 2) * n, 3 * n - 1);
}

void CompareEigenproblem(Report& report, BatchSize size) {
  std::string const claim = Claim("SolveEigenproblemSymmetric", "DSYGV on copied input", size.order);
  if (!report.Wants(claim)) return;
  int const n = size.order;
  std::vector<double> stiffness = RandomSquare(n, true, 0.0);
  std::vector<double> mass = RandomSquare(n, true, 2.0 * n);
  Batch vectors(stiffness, size.count);
  Batch massCopies(mass, size.count);
  ORXSrvMatrix a(n, n, stiffness.data(), true);
  ORXSrvMatrix const b(n, n, mass.data(), true);
  std::vector<ORXSrvMatrix> vectorMatrices = vectors.Matrices(n, n);
  ORXSrvMatrix eigenvalues(n, 1);
  int const workSize = EigenWorkSize(n);
  std::vector<double> work(static_cast<std::size_t>(workSize));
  auto const ours = [&](int k) { a.SolveEigenproblemSymmetric(b, eigenvalues, vectorMatrices[k]); };
  auto const bare = [&](int k) {
    int const itype = 1;
    int info = 0;
    BLAC_DSYGV(&itype, "V", "L", &n, vectors.At(k), &n, massCopies.At(k), &n, eigenvalues.Values(),
               work.data(), &workSize, &info);
  };
  auto const restore = [&] {
    vectors.Restore();
    massCopies.Restore();
  };
  CompareWithBare(report, claim, size, restore, ours, bare,
                  [&] { return std::vector<double>(eigenvalues.Values(), eigenvalues.Values() + n); });
}

/// Square operands of products, and what they give.
struct Operands {
  explicit Operands(BatchSize size)
      : a(RandomSquare(size.order, true, 0.0), size.count),
        b(RandomSquare(size.order, false, 1.0), size.count),
        c(RandomSquare(size.order, false, 1.0), size.count), aMatrices(a.Matrices(size.order, size.order)),
        bMatrices(b.Matrices(size.order, size.order)), cMatrices(c.Matrices(size.order, size.order)) {}

  Batch a; ///< symmetric, so that a^T * a = a * a is, too
  Batch b;
  Batch c; ///< the results; at first equal to b
  std::vector<ORXSrvMatrix> aMatrices, bMatrices, cMatrices;
};

/// `ours(operands, k)` makes product k; the bare call is c = op(x) * y + beta * c with x and y of the
/// operands.
template<class Ours>
void CompareProduct(Report& report, BatchSize size, char const* operation, Ours ours,
                    char const* transposition, Batch Operands::*x, Batch Operands::*y, double beta,
                    double largestRatio = 1.02) {
  std::string const claim = Claim(operation, "DGEMM", size.order);
  if (!report.Wants(claim)) return;
  Operands operands(size);
  int const n = size.order;
  auto const bare = [&](int k) {
    double const alpha = 1.0;
    BLAC_DGEMM(transposition, "N", &n, &n, &n, &alpha, (operands.*x).At(k), &n, (operands.*y).At(k), &n,
               &beta, operands.c.At(k), &n);
  };
  CompareWithBare(
      report, claim, size, [&] { operands.c.Restore(); }, [&](int k) { ours(operands, k); }, bare,
      [&] { return operands.c.AllValues(); }, largestRatio);
}

void CompareProducts(Report& report, BatchSize size) {
  auto const a = &Operands::a;
  auto const b = &Operands::b;
  CompareProduct(
      report, size, "Multiply, checked",
      [](Operands& o, int k) { o.cMatrices[k].Multiply(o.aMatrices[k], o.bMatrices[k]); }, "N", a, b, 0.0);
  CompareProduct(
      report, size, "Multiply, accumulating",
      [](Operands& o, int k) { o.aMatrices[k].Multiply(o.bMatrices[k], o.cMatrices[k], 0, 1); }, "N", a, b,
      1.0);
  CompareProduct(
      report, size, "TransposeMultiply",
      [](Operands& o, int k) { o.bMatrices[k].TransposeMultiply(o.aMatrices[k], o.cMatrices[k], 0, 0); }, "T",
      b, a, 0.0);
  // The copy of the left factor, which the peer finds made, costs up to 3 % at n = 1000: fresh memory.
  CompareProduct(
      report, size, "*=", [](Operands& o, int k) { o.cMatrices[k] *= o.aMatrices[k]; }, "N", b, a, 0.0, 1.05);
}

/// Products that compute one block triangle, with the other one copied, against all of the product.
void CompareSymmetricProducts(Report& report, BatchSize size) {
  auto const a = &Operands::a;
  CompareProduct(
      report, size, "SymmetricMultiply and SetSymmetricResults",
      [](Operands& o, int k) {
        o.cMatrices[k].SymmetricMultiply(o.aMatrices[k], o.aMatrices[k]);
        o.cMatrices[k].SetSymmetricResults();
      },
      "N", a, a, 0.0, 0.9);
  CompareProduct(
      report, size, "TransposeMultiply, symmetric, and SetSymmetricResults",
      [](Operands& o, int k) {
        o.aMatrices[k].TransposeMultiply(o.aMatrices[k], o.cMatrices[k], 1, 0);
        o.cMatrices[k].SetSymmetricResults();
      },
      "T", a, a, 0.0, 0.9);
}

} // namespace

void ClaimMatrixOverheads(Report& report) {
  for (BatchSize const size : {largeBatch, smallBatch}) {
    report.Try("in-memory overheads", [&] {
      for (bool const symmetric : {false, true}) {
        CompareFactorize(report, size, symmetric);
        for (int const columns : {1, 64})
          CompareForwardBackwardPass(report, size, symmetric, columns);
      }
      CompareEigenproblem(report, size);
    });
  }
  for (BatchSize const size : {largerBatch, largeBatch, smallBatch})
    report.Try("in-memory products", [&] { CompareProducts(report, size); });
  for (BatchSize const size : {largerBatch, largeBatch})
    report.Try("in-memory symmetric products", [&] { CompareSymmetricProducts(report, size); });
}

} // namespace bench
