#include "tools/mpi/BlockCyclic.h"

#include "tools/terminal/Text.h"

#include <algorithm>
#include <climits>

extern "C" {
int Csys2blacs_handle(MPI_Comm communicator);
void Cfree_blacs_system_handle(int handle);
void Cblacs_gridinit(int* context, char const* order, int rows, int columns);
void Cblacs_gridexit(int context);
void pdgemm_(char const* transA, char const* transB, int const* m, int const* n, int const* k,
             double const* alpha, double const* a, int const* ia, int const* ja, int const* descA,
             double const* b, int const* ib, int const* jb, int const* descB, double const* beta, double* c,
             int const* ic, int const* jc, int const* descC);
void pdgeadd_(char const* trans, int const* m, int const* n, double const* alpha, double const* a,
              int const* ia, int const* ja, int const* descA, double const* beta, double* c, int const* ic,
              int const* jc, int const* descC);
void pdpotrf_(char const* uplo, int const* n, double* a, int const* ia, int const* ja, int const* descA,
              int* info);
void pdsygst_(int const* type, char const* uplo, int const* n, double* a, int const* ia, int const* ja,
              int const* descA, double const* b, int const* ib, int const* jb, int const* descB,
              double* scale, int* info);
void pdsyevd_(char const* jobz, char const* uplo, int const* n, double* a, int const* ia, int const* ja,
              int const* descA, double* w, double* z, int const* iz, int const* jz, int const* descZ,
              double* work, int const* lwork, int* iwork, int const* liwork, int* info);
void pdtrsm_(char const* side, char const* uplo, char const* trans, char const* diag, int const* m,
             int const* n, double const* alpha, double const* a, int const* ia, int const* ja,
             int const* descA, double* b, int const* ib, int const* jb, int const* descB);
}

namespace orx::mpi {
namespace {

/// The largest number up to the root of `count` that divides it.
int RowsOfGrid(int count) {
  int rows = 1;
  for (int i = 1; i * i <= count; ++i)
    if (count % i == 0) rows = i;
  return rows;
}

/// Calls visit(local, range) for the runs of consecutive positions that a rank has.
template<class Visit>
void ForEachRun(std::vector<int> const& positions, Visit const& visit) {
  auto const count = static_cast<int>(positions.size());
  for (int local = 0, end = 0; local < count; local = end) {
    for (end = local + 1; end < count && positions[end] == positions[end - 1] + 1;)
      ++end;
    visit(local, Range{positions[local], end - local});
  }
}

} // namespace

ProcessGrid::ProcessGrid(Ranks const& ranks)
    : m_ranks(ranks), m_rows(RowsOfGrid(ranks.Count())), m_columns(ranks.Count() / m_rows) {
  int const handle = Csys2blacs_handle(ranks.Communicator());
  m_context = handle;
  Cblacs_gridinit(&m_context, "Row", m_rows, m_columns);
  Cfree_blacs_system_handle(handle);
}

ProcessGrid::~ProcessGrid() {
  if (std::uncaught_exceptions() == 0) Cblacs_gridexit(m_context);
}

BlockCyclicMatrix::BlockCyclicMatrix(ProcessGrid const& grid, int rows, int columns, int blockLength)
    : m_grid(grid), m_blockLength(blockLength), m_rowPositions(LocalPositions(rows, grid.Rows(), grid.Row())),
      m_columnPositions(LocalPositions(columns, grid.Columns(), grid.Column())) {
  std::int64_t const lead = std::max<std::int64_t>(std::ssize(m_rowPositions), 1);
  m_descriptor = {1, grid.Context(), rows, columns, blockLength, blockLength, 0, 0, static_cast<int>(lead)};
  grid.AllRanks().OnEach([&] {
    std::int64_t const length = std::max<std::int64_t>(lead * std::ssize(m_columnPositions), 1);
    if (length > INT_MAX)
      throw tool::ToolError(
          tool::ExitCode::Failure,
          tool::Format("a rank has %lld cells of a dense matrix of %d x %d, ScaLAPACK counts "
                       "up to %d; expected more ranks",
                       static_cast<long long>(length), rows, columns, INT_MAX));
    m_values = PagedArray<double>(length);
  });
}

std::vector<int> BlockCyclicMatrix::LocalPositions(int length, int processes, int process) const {
  std::vector<int> positions;
  std::int64_t const step = std::int64_t{m_blockLength} * processes;
  for (std::int64_t first = std::int64_t{m_blockLength} * process; first < length; first += step)
    for (std::int64_t i = first; i < std::min<std::int64_t>(first + m_blockLength, length); ++i)
      positions.push_back(static_cast<int>(i));
  return positions;
}

LocalPart BlockCyclicMatrix::Part() const {
  return {m_rowPositions, m_columnPositions, m_values.Data(), m_descriptor[8]};
}

void BlockCyclicMatrix::ReadFrom(DenseDrawer const& drawer) {
  std::int64_t const lead = m_descriptor[8];
  m_grid.AllRanks().OnEach([&] {
    ForEachRun(m_columnPositions, [&](int firstColumn, Range columns) {
      ForEachRun(m_rowPositions, [&](int firstRow, Range rows) {
        drawer.Read(rows, columns, m_values.Data() + firstColumn * lead + firstRow, lead);
      });
    });
  });
}

int BlockLengthFor(int length, ProcessGrid const& grid) {
  return std::clamp(length / (8 * std::max(grid.Rows(), grid.Columns())), 16, 256);
}

void Multiply(BlockCyclicMatrix& a, bool isTransposed, BlockCyclicMatrix& b, BlockCyclicMatrix& c) {
  int const one = 1, rows = c.Rows(), columns = c.Columns(), inner = b.Rows();
  double const alpha = 1.0, beta = 0.0;
  if (rows == 0 || columns == 0 || inner == 0) return;
  pdgemm_(isTransposed ? "T" : "N", "N", &rows, &columns, &inner, &alpha, a.Values(), &one, &one,
          a.Descriptor(), b.Values(), &one, &one, b.Descriptor(), &beta, c.Values(), &one, &one,
          c.Descriptor());
}

void AddTo(BlockCyclicMatrix& c, double beta, BlockCyclicMatrix& a, double alpha, bool isTransposed) {
  int const one = 1, rows = c.Rows(), columns = c.Columns();
  pdgeadd_(isTransposed ? "T" : "N", &rows, &columns, &alpha, a.Values(), &one, &one, a.Descriptor(), &beta,
           c.Values(), &one, &one, c.Descriptor());
}

void CopyColumns(BlockCyclicMatrix& a, int first, BlockCyclicMatrix& c) {
  int const one = 1, from = first + 1, rows = c.Rows(), columns = c.Columns();
  double const alpha = 1.0, beta = 0.0;
  pdgeadd_("N", &rows, &columns, &alpha, a.Values(), &one, &from, a.Descriptor(), &beta, c.Values(), &one,
           &one, c.Descriptor());
}

int FactorizeDefinite(BlockCyclicMatrix& a) {
  int const one = 1, order = a.Rows();
  int info = 0;
  pdpotrf_("L", &order, a.Values(), &one, &one, a.Descriptor(), &info);
  return info;
}

int SolveReduced(BlockCyclicMatrix& a, BlockCyclicMatrix& l, std::vector<double>& nu,
                 BlockCyclicMatrix& vectors) {
  int const one = 1, order = a.Rows();
  double scale = 1.0;
  int info = 0;
  pdsygst_(&one, "L", &order, a.Values(), &one, &one, a.Descriptor(), l.Values(), &one, &one, l.Descriptor(),
           &scale, &info);
  if (info != 0) return info;
  nu.resize(static_cast<std::size_t>(order));
  std::vector<double> work(1);
  std::vector<int> integers(1);
  for (bool const isQuery : {true, false}) {
    int const length = isQuery ? -1 : static_cast<int>(work.size());
    int const integerLength = isQuery ? -1 : static_cast<int>(integers.size());
    pdsyevd_("V", "L", &order, a.Values(), &one, &one, a.Descriptor(), nu.data(), vectors.Values(), &one,
             &one, vectors.Descriptor(), work.data(), &length, integers.data(), &integerLength, &info);
    if (info != 0 || !isQuery) break;
    // The query forgets what the back transformation of small matrices takes.
    std::int64_t const block = a.Descriptor()[4], cells = a.Descriptor()[8] + vectors.Part().columns.size();
    work.resize(static_cast<std::size_t>(work.front()) +
                static_cast<std::size_t>(4 * block * (block + cells)));
    integers.resize(static_cast<std::size_t>(integers.front()));
  }
  for (double& value : nu)
    value *= scale;
  return info;
}

void SolveTransposed(BlockCyclicMatrix& l, BlockCyclicMatrix& x) {
  int const one = 1, rows = x.Rows(), columns = x.Columns();
  double const alpha = 1.0;
  pdtrsm_("L", "L", "T", "N", &rows, &columns, &alpha, l.Values(), &one, &one, l.Descriptor(), x.Values(),
          &one, &one, x.Descriptor());
}

} // namespace orx::mpi
