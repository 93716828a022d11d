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

} // namespace orx::mpi
