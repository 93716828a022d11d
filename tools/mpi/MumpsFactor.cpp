#include "tools/mpi/MumpsFactor.h"

#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <vector>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::Format;
using tool::ToolError;

constexpr std::int64_t megabyte = 1000000;
// Numbers of MUMPS's controls
constexpr int scaling = 6, preprocessing = 12, ordering = 7, rootByScalapack = 13, slack = 14, onDisk = 22;

constexpr int scotch = 3;
/// Percent of memory beyond what was foreseen.
constexpr int usualSlack = 30;

/// MUMPS gives counts beyond 32 bits as minus the millions.
std::int64_t Count(std::int64_t info) { return info < 0 ? -info * megabyte : info; }

/// A matrix over vectors of the caller.
Handle<Mat> DenseOver(Ranks const& ranks, double* values, int ownRows, int rows, int columns) {
  Handle<Mat> dense;
  Check(MatCreateDense(ranks.Communicator(), ownRows, PETSC_DECIDE, rows, columns, values, dense.Receive()));
  return dense;
}

} // namespace

MumpsFactor::MumpsFactor(Ranks const& ranks, Mat matrix, bool isSymmetric)
    : m_ranks(ranks), m_isSymmetric(isSymmetric) {
  Check(MatGetLocalSize(matrix, &m_ownRows, nullptr));
  Check(MatGetSize(matrix, &m_order, nullptr));
  Analyse(matrix);
  PetscReal operations = 0.0;
  Check(MatMumpsGetRinfog(m_factor.Get(), 1, &operations));
  m_estimate = {Count(Infog(20)), operations, Infog(16) * megabyte, Infog(26) * megabyte};
}

void MumpsFactor::Analyse(Mat matrix) {
  Check(MatGetFactor(matrix, MATSOLVERMUMPS, m_isSymmetric ? MAT_FACTOR_CHOLESKY : MAT_FACTOR_LU,
                     m_factor.Receive()));
  // A dense root of ScaLAPACK does not count negative pivots.
  Check(MatMumpsSetIcntl(m_factor.Get(), rootByScalapack, 1));
  Control(ordering, scotch);
  Control(scaling, 0);
  Control(preprocessing, 1);
  Control(slack, usualSlack);
  MatFactorInfo info;
  Check(MatFactorInfoInitialize(&info));
  Check(m_isSymmetric ? MatCholeskyFactorSymbolic(m_factor.Get(), matrix, nullptr, &info)
                      : MatLUFactorSymbolic(m_factor.Get(), matrix, nullptr, nullptr, &info));
  if (Infog(1) < 0)
    throw ToolError(ExitCode::Failure, Format("MUMPS cannot order the unknowns: code %d, %d",
                                              static_cast<int>(Infog(1)), static_cast<int>(Infog(2))));
}

void MumpsFactor::FactorizeNow(Mat matrix) {
  MatFactorInfo info;
  Check(MatFactorInfoInitialize(&info));
  Check(m_isSymmetric ? MatCholeskyFactorNumeric(m_factor.Get(), matrix, &info)
                      : MatLUFactorNumeric(m_factor.Get(), matrix, &info));
}

std::int64_t MumpsFactor::Infog(int number) const {
  PetscInt value = 0;
  Check(MatMumpsGetInfog(m_factor.Get(), number, &value));
  return value;
}

void MumpsFactor::Control(int number, int value) {
  if (!IsGiven(number)) Check(MatMumpsSetIcntl(m_factor.Get(), number, value));
}

bool MumpsFactor::IsGiven(int control) const {
  PetscBool isGiven = PETSC_FALSE;
  Check(PetscOptionsHasName(nullptr, nullptr, Format("-mat_mumps_icntl_%d", control).c_str(), &isGiven));
  return isGiven == PETSC_TRUE;
}

std::optional<int> MumpsFactor::TryFactorize(Mat matrix, std::int64_t memory, std::string const& folder) {
  bool const isOnDisk = m_estimate.bytes > memory;
  if (isOnDisk) setenv("MUMPS_OOC_TMPDIR", folder.c_str(), 0);
  constexpr int workspaceTooSmall[] = {-8, -9, -14, -15, -17, -18, -20};
  for (int percent = usualSlack; percent <= 1000; percent *= 3) {
    // After a failure PETSc does nothing with a factor that it has.
    if (Infog(1) < 0) Analyse(matrix);
    Control(onDisk, isOnDisk ? 1 : 0);
    Control(slack, percent);
    FactorizeNow(matrix);
    if (std::ranges::find(workspaceTooSmall, Infog(1)) == std::end(workspaceTooSmall)) break;
  }
  constexpr int singular = -10;
  std::int64_t const code = Infog(1);
  if (code == singular) return {};
  if (code < 0) {
    constexpr int outOfMemory[] = {-5, -7, -13, -19};
    bool const isMemory = std::ranges::find(outOfMemory, code) != std::end(outOfMemory);
    throw ToolError(ExitCode::Failure,
                    isMemory
                        ? Format("out of memory: the factor takes %.0f MB on a rank; more ranks, or --budget "
                                 "with room on disk, need less each",
                                 static_cast<double>(m_estimate.bytes) / megabyte)
                        : Format("MUMPS cannot factorize: code %d, %d", static_cast<int>(code),
                                 static_cast<int>(Infog(2))));
  }
  return static_cast<int>(Infog(12));
}

void MumpsFactor::Solve(double* x, int count) {
  std::vector<double> solutions(static_cast<std::size_t>(m_ownRows) * static_cast<std::size_t>(count));
  Handle<Mat> const loads = DenseOver(m_ranks, x, m_ownRows, m_order, count);
  Handle<Mat> const solution = DenseOver(m_ranks, solutions.data(), m_ownRows, m_order, count);
  Check(MatMatSolve(m_factor.Get(), loads.Get(), solution.Get()));
  std::ranges::copy(solutions, x);
}

} // namespace orx::mpi
