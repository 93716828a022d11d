#include "bench/SparseProblem.h"

#include "bench/HexMesh.h"
#include "core/mem_Allocator.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>
#include <stdexcept>
#include <utility>

namespace bench {
namespace {

void AssembleElasticity(ORXSrvSparseMatrix& matrix) {
  HexMesh(46, AssemblyOrder::Natural).ForEachTriplet([&](int row, int column, double value) {
    matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value);
  });
}

void AssemblePlaneGrid(ORXSrvSparseMatrix& matrix) {
  constexpr int side = 1000;
  auto const isInside = [](int k) { return k >= 0 && k < side; };
  for (int row = 0; row < side * side; ++row)
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx)
        if (isInside(row % side + dx) && isInside(row / side + dy))
          matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(row + dx + side * dy),
                         1.0 + (3 * dx * dx + dy * dy + dx * dy) / 1024.0);
}

void AssembleRandom(ORXSrvSparseMatrix& matrix) {
  constexpr std::uint32_t rows = 1000000;
  std::mt19937 generator(5);
  std::uniform_int_distribution<std::uint32_t> column(0, rows - 1);
  for (std::uint32_t row = 0; row < rows; ++row)
    for (int k = 0; k < 10; ++k)
      matrix.AddData(row, column(generator), 1.0 + k / 1024.0);
}

template<class T>
void WriteArray(std::string const& path, LargeArray<T> const& array) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<char const*>(array.Data()),
             static_cast<std::streamsize>(array.Size() * sizeof(T)));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

} // namespace

constexpr ProblemKind elasticity{"elasticity", 5, AssembleElasticity};
constexpr ProblemKind planeGrid{"9-point grid", 5, AssemblePlaneGrid};
constexpr ProblemKind random{"random", 3, AssembleRandom};

Problem::Problem(std::unique_ptr<ORXSrvSparseMatrix> assembled)
    : matrix(std::move(assembled)), rows(matrix->NumberOfRows()), ia(static_cast<std::size_t>(rows) + 1),
      ja(static_cast<std::size_t>(matrix->NumberOfNonzeros())), a(ja.Size()) {
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const entries(matrix->GetEntries(count));
  std::fill_n(ia.Data(), ia.Size(), 0);
  for (int k = 0; k < count; ++k) {
    ja.Data()[k] = static_cast<int>(entries[k].column);
    a.Data()[k] = entries[k].value;
    ia.Data()[entries[k].row + 1] = k + 1; // every row has entries
  }
}

std::unique_ptr<ORXSrvSparseMatrix> Problem::NewAssembled(ProblemKind const& kind) {
  auto assembled = std::make_unique<ORXSrvSparseMatrix>(0, 0);
  assembled->BeginAssembly();
  kind.assemble(*assembled);
  assembled->EndAssembly();
  return assembled;
}

MatrixFiles::MatrixFiles(Problem const& problem) {
  WriteArray(m_folder.File("ia.bin"), problem.ia);
  WriteArray(m_folder.File("ja.bin"), problem.ja);
  WriteArray(m_folder.File("a.bin"), problem.a);
}

} // namespace bench
