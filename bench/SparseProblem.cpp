#include "bench/SparseProblem.h"

#include "bench/HexMesh.h"
#include "bench/SimplexMesh.h"
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

void Assemble(SimplexMesh const& mesh, ORXSrvSparseMatrix& matrix) {
  mesh.ForEachEntry([&](int row, int column, double value) {
    matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value);
  });
}
template<Numbering numbering>
void AssembleTriangles(ORXSrvSparseMatrix& matrix) {
  Assemble(SimplexMesh(1000, 1000, 1, 1, numbering), matrix);
}
template<int unknowns, Numbering numbering>
void AssembleTetrahedra(ORXSrvSparseMatrix& matrix) {
  constexpr int side = unknowns == 1 ? 80 : 50;
  Assemble(SimplexMesh(side, side, side, unknowns, numbering), matrix);
}

template<class T>
void WriteArray(std::string const& path, LargeArray<T> const& array) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<char const*>(array.Data()),
             static_cast<std::streamsize>(array.Size() * sizeof(T)));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

} // namespace

namespace {
constexpr std::array groups{1, 7, 8, 16};
constexpr std::array few{1, 2, 3, 8};
constexpr Numbering cuthillMcKee = Numbering::ReverseCuthillMcKee;
} // namespace

constexpr ProblemKind elasticity{"elasticity", 5, groups, AssembleElasticity};
constexpr ProblemKind planeGrid{"9-point grid", 5, groups, AssemblePlaneGrid};
constexpr ProblemKind random{"random", 3, groups, AssembleRandom};
std::vector<ProblemKind> const meshes{
    {"triangles", 5, few, AssembleTriangles<cuthillMcKee>},
    {"triangles numbered at random", 3, few, AssembleTriangles<Numbering::Random>},
    {"tetrahedra", 5, few, AssembleTetrahedra<1, cuthillMcKee>},
    {"tetrahedra numbered at random", 3, few, AssembleTetrahedra<1, Numbering::Random>},
    {"tetrahedra, 3 unknowns", 5, few, AssembleTetrahedra<3, cuthillMcKee>},
    {"tetrahedra, 3 unknowns, numbered at random", 3, few, AssembleTetrahedra<3, Numbering::Random>}};

Problem::Problem(ProblemKind const& kind)
    : vectorCounts(kind.vectorCounts), matrix(NewAssembled(kind)), rows(matrix->NumberOfRows()),
      ia(static_cast<std::size_t>(rows) + 1), ja(static_cast<std::size_t>(matrix->NumberOfNonzeros())),
      a(ja.Size()) {
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const entries(matrix->GetEntries(count));
  std::fill_n(ia.Data(), ia.Size(), 0);
  for (int k = 0; k < count; ++k) {
    ja.Data()[k] = static_cast<int>(entries[k].column);
    a.Data()[k] = entries[k].value;
    ia.Data()[entries[k].row + 1] = k + 1; // every row has entries
  }
}

Problem::Vectors& Problem::VectorsFor(int count) const {
  auto const found = m_vectors.find(count);
  if (found != m_vectors.end()) return found->second;
  return m_vectors.emplace(count, Vectors{BlockOfVectors::Factors(rows, count), {rows, count}}).first->second;
}

std::unique_ptr<ORXSrvSparseMatrix> Problem::NewAssembled(ProblemKind const& kind) {
  auto assembled = std::make_unique<ORXSrvSparseMatrix>(0, 0);
  assembled->BeginAssembly();
  kind.assemble(*assembled);
  assembled->EndAssembly();
  return assembled;
}

MatrixFiles::MatrixFiles(Problem const& problem) : m_vectorCounts(problem.vectorCounts) {
  WriteArray(m_folder.File("ia.bin"), problem.ia);
  WriteArray(m_folder.File("ja.bin"), problem.ja);
  WriteArray(m_folder.File("a.bin"), problem.a);
}

} // namespace bench
