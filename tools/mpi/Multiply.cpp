#include "tools/mpi/Multiply.h"

#include "tools/mpi/Operand.h"
#include "tools/mpi/Panels.h"
#include "tools/mpi/RootsFiles.h"
#include "tools/mpi/SplitRows.h"

#include "tools/formats/ColumnsDatabase.h"
#include "tools/formats/OutputFile.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <climits>
#include <filesystem>
#include <numeric>
#include <optional>
#include <system_error>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::Format;
using tool::StoredMatrix;
using tool::ToolError;

/// The new database, which the root writes.
class ProductFile {
public:
  ProductFile(std::string const& path, Operand const& a, Operand const& b)
      : m_file(RequireName(path, a, b)) {}

  void Begin(Operand const& a, bool isTransposed, Operand const& b) {
    StoredMatrix const &ofA = a.Stored(), &ofB = b.Stored();
    m_rowLabels = Mentioned(isTransposed ? tool::ColumnLabels(ofA) : tool::RowLabels(ofA));
    m_columnLabels = Mentioned(tool::ColumnLabels(ofB));
    tool::ColumnsShape shape{isTransposed ? ofA.columns : ofA.rows, ofB.columns, m_rowLabels, m_columnLabels};
    int const rowsOfChunk = isTransposed ? ofA.columnsOfChunk : ofA.rowsOfChunk;
    if (rowsOfChunk > 0) shape.rowsOfChunk = rowsOfChunk;
    if (ofB.columnsOfChunk > 0) shape.columnsOfChunk = ofB.columnsOfChunk;
    m_file.WriteWith([&](std::string const& path) {
      m_database.emplace(path, shape);
      m_database->BeginBlockMatrix("product");
    });
  }

  void Write(int first, int count, double const* values) {
    m_file.WriteWith([&](std::string const&) { m_database->WriteColumns(first, count, values); });
  }

  void End() {
    m_file.WriteWith([&](std::string const&) { m_database->Commit(); });
    m_file.ReplaceTarget();
  }

private:
  static std::string const& RequireName(std::string const& path, Operand const& a, Operand const& b) {
    if (!tool::IsDatabase(path))
      throw ToolError(ExitCode::WrongUsage, "OUT '" + path + "': expected the extension .sim or .h5");
    std::error_code ignored;
    for (std::string const& input : {a.Path(), b.Path()})
      if (std::filesystem::equivalent(path, input, ignored))
        throw ToolError(ExitCode::WrongUsage,
                        "OUT names the input file '" + input + "'; expected another file");
    return path;
  }

  static std::vector<int> Mentioned(std::vector<int> labels) {
    return tool::AreCounted(labels) ? std::vector<int>() : std::move(labels);
  }

  tool::ReplacedFile m_file;
  std::vector<int> m_rowLabels, m_columnLabels;
  std::optional<tool::ColumnsDatabase> m_database;
};

void RequireFitting(Operand const& a, bool isTransposed, Operand const& b) {
  if (b.IsSparse())
    throw ToolError(ExitCode::UnusableInput,
                    "'" + b.Name() + "' is sparse; expected a dense B, only A may be sparse");
  int const inner = isTransposed ? a.Rows() : a.Columns();
  if (inner == b.Rows()) return;
  throw ToolError(ExitCode::UnusableInput,
                  Format("A ('%s') has %d %s, B ('%s') has %d rows; expected the same", a.Name().c_str(),
                         inner, isTransposed ? "rows" : "columns", b.Name().c_str(), b.Rows()));
}

/// A sparse matrix is small beside the others.
void RequireRoom(Operand const& a, Operand const& b, int rows, Ranks const& ranks) {
  double const ofA = a.IsSparse() ? 0.0 : static_cast<double>(a.Rows()) * a.Columns();
  double const cells = ofA + (static_cast<double>(b.Rows()) + rows) * b.Columns();
  RequireRoom(cells, "A, B and the product", ranks);
}

using WritePanel = std::function<void(int, int, double const*)>;

/// Each product frees A and B before it writes.
void MultiplyDense(Operand const& a, MultiplyOptions const& options, Operand const& b, Ranks const& ranks,
                   WritePanel const& write) {
  ProcessGrid const grid(ranks);
  bool const isTransposed = options.isTransposed;
  int const rows = isTransposed ? a.Columns() : a.Rows();
  int const chosen = BlockLengthFor(std::max({rows, b.Rows(), b.Columns()}), grid);
  int const length = options.blockLength > 0 ? options.blockLength : chosen;
  BlockCyclicMatrix product(grid, rows, b.Columns(), length);
  {
    BlockCyclicMatrix left(grid, a.Rows(), a.Columns(), length);
    left.ReadFrom(DenseDrawer(ParallelFile(a.Path(), ranks), a.Dense(), ranks));
    BlockCyclicMatrix right(grid, b.Rows(), b.Columns(), length);
    right.ReadFrom(DenseDrawer(ParallelFile(b.Path(), ranks), b.Dense(), ranks));
    Multiply(left, isTransposed, right, product);
  }
  ForEachPanel(product.Part(), product.Rows(), product.Columns(), ranks, write, options.panelCells);
}

/// A dense matrix of which each rank has rows.
struct RowsOnRanks {
  PagedArray<double> values;
  Handle<Mat> matrix;
};

RowsOnRanks ReadRows(Operand const& b, Ranks const& ranks) {
  RowsOnRanks rows;
  Range const own = ranks.OwnShare(b.Rows());
  ParallelFile const file(b.Path(), ranks);
  DenseDrawer const drawer(file, b.Dense(), ranks);
  ranks.OnEach([&] {
    std::int64_t const length = std::int64_t{own.count} * b.Columns();
    if (length > INT_MAX)
      throw ToolError(ExitCode::Failure, Format("a rank has %lld cells of B, PETSc counts up to %d here; "
                                                "expected more ranks",
                                                static_cast<long long>(length), INT_MAX));
    rows.values = PagedArray<double>(std::max<std::int64_t>(length, 1));
    drawer.Read(own, {0, b.Columns()}, rows.values.Data(), own.count);
  });
  Check(MatCreate(ranks.Communicator(), rows.matrix.Receive()));
  Check(MatSetSizes(rows.matrix.Get(), own.count, ranks.OwnShare(b.Columns()).count, b.Rows(), b.Columns()));
  Check(MatSetType(rows.matrix.Get(), MATMPIDENSE));
  Check(MatMPIDenseSetPreallocation(rows.matrix.Get(), rows.values.Data()));
  Check(MatAssemblyBegin(rows.matrix.Get(), MAT_FINAL_ASSEMBLY));
  Check(MatAssemblyEnd(rows.matrix.Get(), MAT_FINAL_ASSEMBLY));
  return rows;
}

Handle<Mat> SparseProduct(Operand const& a, bool isTransposed, Operand const& b, Ranks const& ranks) {
  Handle<Mat> product, left;
  {
    ParallelFile const file(a.Path(), ranks);
    left = MakeMatrix(Split(ReadSparseDrawer(file, a.Sparse(), ranks), ranks), ranks);
  }
  RowsOnRanks const right = ReadRows(b, ranks);
  auto const multiply = isTransposed ? MatTransposeMatMult : MatMatMult;
  Check(multiply(left.Get(), right.matrix.Get(), MAT_INITIAL_MATRIX, PETSC_DEFAULT, product.Receive()));
  return product;
}

std::vector<int> Counted(Range range) {
  std::vector<int> positions(static_cast<std::size_t>(range.count));
  std::iota(positions.begin(), positions.end(), range.first);
  return positions;
}

void MultiplySparse(Operand const& a, MultiplyOptions const& options, Operand const& b, Ranks const& ranks,
                    WritePanel const& write) {
  Handle<Mat> const product = SparseProduct(a, options.isTransposed, b, ranks);
  int const rows = options.isTransposed ? a.Columns() : a.Rows();
  PetscInt lead = 0;
  double const* values = nullptr;
  Check(MatDenseGetLDA(product.Get(), &lead));
  Check(MatDenseGetArrayRead(product.Get(), &values));
  LocalPart const part{Counted(ranks.OwnShare(rows)), Counted({0, b.Columns()}), values, lead};
  ForEachPanel(part, rows, b.Columns(), ranks, write, options.panelCells);
  Check(MatDenseRestoreArrayRead(product.Get(), &values));
}

} // namespace

std::string MultiplyText(MultiplyOptions const& options, Ranks const& ranks) {
  Operand const a(options.a, "", ranks), b(options.b, "", ranks);
  std::optional<ProductFile> product;
  std::optional<tool::Progress> progress;
  ranks.OnRoot([&] {
    RequireFitting(a, options.isTransposed, b);
    product.emplace(options.out, a, b);
    progress.emplace("multiplying " + a.Name() + " and " + b.Name());
  });
  RootsFiles const rootsFiles(ranks);
  int const rows = options.isTransposed ? a.Columns() : a.Rows();
  RequireRoom(a, b, rows, ranks);
  ranks.OnRoot([&] { product->Begin(a, options.isTransposed, b); });
  auto const write = [&](int first, int count, double const* values) {
    product->Write(first, count, values);
  };
  auto const multiply = a.IsSparse() ? MultiplySparse : MultiplyDense;
  multiply(a, options, b, ranks, write);
  ranks.OnRoot([&] { product->End(); });
  if (!ranks.IsRoot()) return {};
  return a.Text("A") + b.Text("B") +
         tool::Note(Format("%s B: %s, %d x %d", options.isTransposed ? "A^T" : "A", options.out.c_str(), rows,
                           b.Columns()));
}

} // namespace orx::mpi
