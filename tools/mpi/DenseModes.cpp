#include "tools/mpi/DenseModes.h"

#include "tools/mpi/Operand.h"
#include "tools/mpi/Panels.h"
#include "tools/mpi/RootsFiles.h"

#include "tools/commands/ModesReport.h"
#include "tools/formats/ShapesFile.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <optional>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::Format;
using tool::ModalSolution;
using tool::Mode;
using tool::ModeChoice;
using tool::SourceFacts;
using tool::Symmetry;
using tool::ToolError;

constexpr double roundoff = std::numeric_limits<double>::epsilon();

/// A relative difference of mirrored values, and where it is.
struct WorstPair {
  double difference = 0.0;
  tool::MirroredPair pair{};
};

/// One of the two matrices, and what is known of it.
class DenseSource {
public:
  /// Collective. Averages mirrored values that agree to rounding; others are a ToolError.
  DenseSource(Operand const& operand, char const* letter, ProcessGrid const& grid, int blockLength)
      : m_ranks(grid.AllRanks()), m_matrix(grid, operand.Rows(), operand.Columns(), blockLength) {
    m_facts.name = letter;
    m_facts.path = operand.Name();
    m_facts.rows = operand.Rows();
    m_facts.columns = operand.Columns();
    m_facts.isWhole = true;
    m_ranks.OnEach([&] {
      tool::RequireRowsAndColumns(m_facts);
      tool::RequireSquareAsStated(m_facts);
    });
    m_matrix.ReadFrom(DenseDrawer(ParallelFile(operand.Path(), m_ranks), operand.Dense(), m_ranks));
    m_ranks.OnEach([&] { RequireFinite(); });
    m_diagonal = DiagonalOf(m_matrix);
    CountEntries();
    Symmetrize(grid, blockLength);
  }

  SourceFacts& Facts() noexcept { return m_facts; }
  BlockCyclicMatrix& Matrix() noexcept { return m_matrix; }
  std::vector<double> const& Diagonal() const noexcept { return m_diagonal; }

private:
  void RequireFinite() {
    m_matrix.ForEachLocal([&](int row, int column, double value) {
      tool::RequireFinite({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value},
                          m_facts.FullName());
    });
  }

  /// On all ranks.
  std::vector<double> DiagonalOf(BlockCyclicMatrix& matrix) const {
    std::vector<double> diagonal(static_cast<std::size_t>(matrix.Rows()), 0.0);
    matrix.ForEachLocal([&](int row, int column, double value) {
      if (row == column) diagonal[row] = value;
    });
    MPI_Allreduce(MPI_IN_PLACE, diagonal.data(), static_cast<int>(diagonal.size()), MPI_DOUBLE, MPI_SUM,
                  m_ranks.Communicator());
    return diagonal;
  }

  void CountEntries() {
    Symmetry& s = m_facts.symmetry;
    m_matrix.ForEachLocal([&](int row, int column, double value) {
      if (value == 0.0) return;
      ++(row > column ? s.lowerEntries : row < column ? s.upperEntries : s.diagonalEntries);
    });
    for (std::int64_t* count : {&s.lowerEntries, &s.diagonalEntries, &s.upperEntries})
      *count = m_ranks.Sum(*count);
    m_facts.entryCount = s.lowerEntries + s.diagonalEntries + s.upperEntries;
    bool const hasLower = s.lowerEntries > 0, hasUpper = s.upperEntries > 0;
    s.form = hasLower || hasUpper ? Symmetry::Form::BothTriangles : Symmetry::Form::Diagonal;
  }

  void Symmetrize(ProcessGrid const& grid, int blockLength) {
    BlockCyclicMatrix transposed(grid, m_matrix.Rows(), m_matrix.Columns(), blockLength);
    AddTo(transposed, 0.0, m_matrix, 1.0, true);
    WorstPair own;
    m_matrix.ForEachLocalPair(transposed, [&](int row, int column, double& value, double mirrored) {
      double const scale = std::max({std::fabs(value), std::fabs(mirrored),
                                     std::sqrt(std::fabs(m_diagonal[row] * m_diagonal[column]))});
      double const difference = value == mirrored ? 0.0 : std::fabs(value / scale - mirrored / scale);
      if (row > column && difference > own.difference)
        own = {difference,
               {static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value, mirrored}};
      value = std::midpoint(value, mirrored);
    });
    for (WorstPair const& worst : m_ranks.Gathered(own))
      if (worst.difference > m_facts.symmetry.worstDifference) {
        m_facts.symmetry.worstDifference = worst.difference;
        m_facts.symmetry.worst = worst.pair;
      }
    m_ranks.OnEach(
        [&] { tool::RequireSymmetric(m_facts.rows, m_facts.columns, m_facts.symmetry, m_facts.FullName()); });
  }

  Ranks const& m_ranks;
  BlockCyclicMatrix m_matrix;
  SourceFacts m_facts;
  std::vector<double> m_diagonal;
};

/// Sums over the rows of each column of some shapes.
enum Sum : int { residual, terms, stiffness, stiffnessTerms, mass, massTerms, sumCount };

/// The eigenpairs of one pair of matrices.
class DenseSolver {
public:
  DenseSolver(DenseSource& k, DenseSource& m, ModeChoice const& choice, ProcessGrid const& grid,
              int blockLength)
      : m_k(k), m_m(m), m_choice(choice), m_grid(grid), m_ranks(grid.AllRanks()), m_blockLength(blockLength),
        m_order(k.Facts().rows), m_factor(Empty(m_order)), m_vectors(Empty(m_order)) {}

  /// The shapes are the root's.
  ModalSolution Solve() {
    RequireDefiniteMass();
    m_solution.isMassDefinite = true;
    m_solution.isStiffnessDefinite = Factorize(0.0);
    if (!m_solution.isStiffnessDefinite) FactorizeShifted();
    FindEigenpairs();
    double const better = BetterShift();
    if (better > 0.0 && Factorize(better)) FindEigenpairs();
    MakeModes();
    m_solution.finiteEigenvalues = m_choice.interval ? m_choice.count : m_order;
    m_solution.shifts = {m_shift};
    return std::move(m_solution);
  }

private:
  BlockCyclicMatrix Empty(int columns) const { return {m_grid, m_order, columns, m_blockLength}; }

  void RequireDefiniteMass() {
    AddTo(m_factor, 0.0, m_m.Matrix(), 1.0, false);
    int const fault = FactorizeDefinite(m_factor);
    m_ranks.OnEach([&] {
      if (fault > 0)
        throw ToolError(ExitCode::Failure,
                        Format("%s is not positive definite, by its first %d rows and columns; expected a "
                               "positive definite M of dense matrices. Matrices in sparse form may have "
                               "unknowns without mass",
                               m_m.Facts().FullName().c_str(), fault));
    });
  }

  /// The Cholesky factor of K + sigma M; false when that is not positive definite.
  bool Factorize(double shift) {
    AddTo(m_factor, 0.0, m_k.Matrix(), 1.0, false);
    if (shift != 0.0) AddTo(m_factor, 1.0, m_m.Matrix(), shift, false);
    m_shift = shift;
    return FactorizeDefinite(m_factor) == 0;
  }

  void FactorizeShifted() {
    double scale = std::numeric_limits<double>::infinity();
    for (int i = 0; i < m_order; ++i)
      if (m_k.Diagonal()[i] > 0.0) scale = std::min(scale, m_k.Diagonal()[i] / m_m.Diagonal()[i]);
    if (!std::isfinite(scale)) scale = 1.0;
    for (double const factor : {1e-3, 1.0, 1e3, 1e6, 1e9})
      if (Factorize(factor * scale)) return;
    m_ranks.OnEach([&] {
      throw ToolError(ExitCode::Failure,
                      Format("K + sigma M is not positive definite for any sigma tried from %.3g to %.3g",
                             1e-3 * scale, 1e9 * scale));
    });
  }

  /// All nu of M y = nu (K + sigma M) y ascend, so that the last ones are the lowest modes.
  void FindEigenpairs() {
    BlockCyclicMatrix reduced = Empty(m_order);
    AddTo(reduced, 0.0, m_m.Matrix(), 1.0, false);
    int const fault = SolveReduced(reduced, m_factor, m_nu, m_vectors);
    // All ranks decide by the same bits.
    MPI_Bcast(m_nu.data(), static_cast<int>(m_nu.size()), MPI_DOUBLE, 0, m_ranks.Communicator());
    m_ranks.OnEach([&] {
      if (fault != 0)
        throw ToolError(ExitCode::Failure, Format("the dense eigensolver does not converge: code %d", fault));
    });
    ChooseRange();
  }

  double Eigenvalue(int k) const { return 1.0 / m_nu[k] - m_shift; }

  static double SquaredAngular(double frequency) {
    double const angular = 2.0 * std::numbers::pi * frequency;
    return std::copysign(angular * angular, frequency);
  }

  /// Which eigenpairs are wanted: they follow one another. nu falls as lambda rises.
  void ChooseRange() {
    int first = m_order - std::min(m_choice.count, m_order), end = m_order;
    if (m_choice.interval) {
      double const from = SquaredAngular(m_choice.interval->first),
                   to = SquaredAngular(m_choice.interval->second);
      first = 0;
      while (first < end && Eigenvalue(first) > to)
        ++first;
      while (end > first && Eigenvalue(end - 1) < from)
        --end;
    } else if (m_choice.near) {
      double const target = SquaredAngular(*m_choice.near);
      first = 0;
      while (end - first > m_choice.count)
        if (std::fabs(Eigenvalue(first) - target) > std::fabs(Eigenvalue(end - 1) - target))
          ++first;
        else
          --end;
    }
    m_wanted = {first, end - first};
  }

  /// A guessed shift may lie far from the modes that are wanted; amid them the solution is accurate. 0 when
  /// there is nothing to gain.
  double BetterShift() const {
    if (m_shift == 0.0 || m_wanted.count == 0) return 0.0;
    double const lost = 1e-9 * m_shift;
    double lowest = std::numeric_limits<double>::infinity(), highest = 0.0;
    for (int k = m_wanted.first; k < m_wanted.End(); ++k) {
      double const magnitude = std::fabs(Eigenvalue(k));
      if (magnitude > lost) lowest = std::min(lowest, magnitude);
      highest = std::max(highest, magnitude);
    }
    if (!(highest > lost)) return 0.0;
    double const amid = std::sqrt(lowest) * std::sqrt(highest);
    return amid > 10.0 * m_shift || amid < 0.1 * m_shift ? amid : 0.0;
  }

  void MakeModes() {
    int const count = m_wanted.count;
    if (count == 0) return;
    BlockCyclicMatrix shapes = Empty(count);
    CopyColumns(m_vectors, m_wanted.first, shapes);
    SolveTransposed(m_factor, shapes);
    std::vector<double> const sums = Sums(shapes);
    std::vector<std::vector<double>> columns(static_cast<std::size_t>(m_ranks.IsRoot() ? count : 0));
    ForEachPanel(shapes.Part(), m_order, count, m_ranks, [&](int first, int panel, double const* values) {
      for (int j = 0; j < panel; ++j)
        columns[first + j].assign(values + std::int64_t{j} * m_order, values + std::int64_t{j + 1} * m_order);
    });
    m_ranks.OnRoot([&] {
      for (int j = count - 1; j >= 0; --j)
        m_solution.modes.push_back(MakeMode(j, sums.data() + std::int64_t{j} * sumCount, columns[j]));
    });
  }

  /// Of the present shapes, whose lambda are known.
  std::vector<double> Sums(BlockCyclicMatrix& shapes) {
    int const count = shapes.Columns();
    std::vector<double> sums(static_cast<std::size_t>(count) * sumCount, 0.0);
    BlockCyclicMatrix kx = Empty(count), mx = Empty(count), kTerms = Empty(count), mTerms = Empty(count);
    Multiply(m_k.Matrix(), false, shapes, kx);
    Multiply(m_m.Matrix(), false, shapes, mx);
    BlockCyclicMatrix magnitudes = Empty(count);
    AddTo(magnitudes, 0.0, shapes, 1.0, false);
    TakeMagnitudes(magnitudes);
    BlockCyclicMatrix absolute = Empty(m_order);
    for (auto const& [matrix, product] : {std::pair(&m_k, &kTerms), std::pair(&m_m, &mTerms)}) {
      AddTo(absolute, 0.0, matrix->Matrix(), 1.0, false);
      TakeMagnitudes(absolute);
      Multiply(absolute, false, magnitudes, *product);
    }
    std::int64_t at = 0;
    shapes.ForEachLocal([&](int, int column, double x) {
      AddSums(sums.data() + std::int64_t{column} * sumCount, Eigenvalue(m_wanted.first + column), x,
              {kx.Values()[at], mx.Values()[at], kTerms.Values()[at], mTerms.Values()[at]});
      ++at;
    });
    MPI_Allreduce(MPI_IN_PLACE, sums.data(), static_cast<int>(sums.size()), MPI_DOUBLE, MPI_SUM,
                  m_ranks.Communicator());
    return sums;
  }

  struct Products {
    double kx, mx, kTerms, mTerms;
  };

  void AddSums(double* sums, double lambda, double x, Products const& p) const {
    bool const isNull = IsNull(lambda);
    double const difference = p.kx - (isNull ? 0.0 : lambda) * p.mx;
    double const weight = isNull ? m_shift : std::fabs(lambda);
    double const term = p.kTerms + weight * p.mTerms;
    sums[residual] += difference * difference;
    sums[terms] += term * term;
    sums[stiffness] += x * p.kx;
    sums[stiffnessTerms] += std::fabs(x) * p.kTerms;
    sums[mass] += x * p.mx;
    sums[massTerms] += std::fabs(x) * p.mTerms;
  }

  /// Lost in the errors of the shifted solution. Where K is positive definite, no motion is free.
  bool IsNull(double lambda) const {
    return !m_solution.isStiffnessDefinite && std::fabs(lambda) <= 10.0 * m_order * roundoff * m_shift;
  }

  Mode MakeMode(int j, double const* sums, std::vector<double>& shape) const {
    double const lambda = Eigenvalue(m_wanted.first + j), magnitude = std::fabs(lambda);
    double const largestNu = m_nu.back(), distance = lambda + m_shift;
    double const stiffnessError = std::max(m_k.Facts().symmetry.worstDifference, roundoff);
    double const share = sums[stiffnessTerms] > 0.0 ? std::fabs(sums[stiffness]) / sums[stiffnessTerms] : 0.0;
    bool const isRigid = IsNull(lambda) || (!m_solution.isStiffnessDefinite &&
                                            share <= std::max(stiffnessError, 100.0 * roundoff));
    double const error =
        (roundoff * distance * largestNu * distance + stiffnessError * sums[stiffnessTerms] / sums[mass] +
         roundoff * (magnitude + m_shift) * sums[massTerms] / sums[mass]) /
        magnitude;
    Normalize(shape, std::sqrt(sums[mass]));
    return {
        lambda, error,   m_shift,         sums[terms] > 0.0 ? std::sqrt(sums[residual] / sums[terms]) : 0.0,
        share,  isRigid, std::move(shape)};
  }

  /// Of components as large as each other to rounding the first decides the sign.
  static void Normalize(std::vector<double>& shape, double length) {
    double largest = 0.0;
    for (double const x : shape)
      largest = std::max(largest, std::fabs(x));
    auto const decisive =
        std::ranges::find_if(shape, [&](double x) { return std::fabs(x) >= (1.0 - 1e-6) * largest; });
    double const factor = (*decisive < 0.0 ? -1.0 : 1.0) / length;
    for (double& x : shape)
      x *= factor;
  }

  static void TakeMagnitudes(BlockCyclicMatrix& matrix) {
    matrix.ForEachLocalPair(matrix, [](int, int, double& value, double) { value = std::fabs(value); });
  }

  DenseSource &m_k, &m_m;
  ModeChoice const& m_choice;
  ProcessGrid const& m_grid;
  Ranks const& m_ranks;
  int m_blockLength, m_order;
  BlockCyclicMatrix m_factor, m_vectors;
  double m_shift = 0.0;
  std::vector<double> m_nu;
  Range m_wanted;
  ModalSolution m_solution;
};

bool IsDense(std::string const& name, char const* role) {
  if (name == "-") return false;
  tool::InputFile const file(name);
  if (!tool::HoldsDatabase(file.Path())) return false;
  ORXSimDatabase database;
  tool::OpenToRead(database, file.Path());
  return !tool::FindMatrix(database, file.Path(), file.MatrixName(), role).IsSparse();
}

} // namespace

bool AreDense(tool::ModesOptions const& options, Ranks const& ranks) {
  bool areDense = false;
  ranks.OnRoot(
      [&] { areDense = IsDense(options.stiffnessPath, "K") && IsDense(tool::MassName(options), "M"); });
  ranks.Broadcast(areDense);
  return areDense;
}

void PrintDenseModes(tool::ModesOptions const& options, Ranks const& ranks,
                     std::function<void(std::string const&)> const& print) {
  std::optional<tool::ShapesFile> shapesFile;
  std::optional<tool::Progress> progress;
  ranks.OnRoot([&] {
    tool::RequireUsableNames(options);
    if (!options.shapesPath.empty()) shapesFile.emplace(options.shapesPath);
  });
  RootsFiles const rootsFiles(ranks);
  Operand const k(options.stiffnessPath, "K", ranks);
  std::string massName;
  ranks.OnRoot([&] { massName = tool::MassName(options); });
  Operand const m(massName, "M", ranks);
  constexpr double matrices = 9.0; // with the workspace of the eigensolver
  RequireRoom(matrices * k.Rows() * k.Columns(), "nine matrices", ranks);
  ranks.OnRoot([&] { progress.emplace(Format("modes of order %d", k.Rows())); });
  ProcessGrid const grid(ranks);
  int const blockLength = std::min(BlockLengthFor(k.Rows(), grid), 64);
  DenseSource stiffness(k, "K", grid, blockLength), mass(m, "M", grid, blockLength);
  ranks.OnEach([&] {
    tool::RequireTwoMatrices(options, stiffness.Facts(), mass.Facts());
    tool::RequireOneOrder(stiffness.Facts(), mass.Facts());
  });
  ModalSolution const solution = DenseSolver(stiffness, mass, options.choice, grid, blockLength).Solve();
  ranks.OnRoot([&] {
    progress.reset();
    print(tool::ModesText(stiffness.Facts(), mass.Facts(), solution, options.choice.count));
    if (!shapesFile) return;
    std::vector<int> labels = tool::RowLabels(k.Stored());
    if (tool::AreCounted(labels)) labels.clear();
    shapesFile->Write(
        solution.modes, k.Rows(), [&](int mode) { return solution.modes[mode].shape.data(); }, labels);
    print(tool::ShapesFileText(options.shapesPath));
  });
}

} // namespace orx::mpi
