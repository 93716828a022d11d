// A disk with blades in three dimensions, whose modes come in pairs of one frequency and in families of
// nearly one: assembled into binary files, solved by the sparse solver, and read back from a database.
//
//     bladed_disk assemble DIR           writes DIR/disk-K.chk and DIR/disk-M.chk, and both into a database,
//                                        DIR/disk-model.sim
//     orxmtx modes DIR/disk-K.chk DIR/disk-M.chk --interval 0 4000 --shapes DIR/disk.sim > DIR/disk.txt
//     bladed_disk report DIR             prints the modes, and writes DIR/disk.svg

#include "examples/bladed_disk/Brick.h"
#include "examples/bladed_disk/Mesh.h"
#include "examples/bladed_disk/Picture.h"
#include "examples/support/Drawing.h"
#include "examples/support/ModeTable.h"
#include "examples/support/Program.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSrvPosition.h"

#include <cmath>
#include <complex>
#include <fstream>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace disk;

constexpr Material steel{210e9, 0.3, 7850.0};

/// Adds the lower triangle of a brick's matrices. Clamped unknowns are left out: they do not move.
void AddBrick(BrickNodes const& nodes, BrickMatrices const& brick, ORXSrvSparseMatrix& stiffness,
              ORXSrvSparseMatrix& mass) {
  for (int i = 0; i < 3 * cornerCount; ++i)
    for (int j = 0; j < 3 * cornerCount; ++j) {
      int const row = Mesh::Unknown(nodes[i / 3], i % 3);
      int const column = Mesh::Unknown(nodes[j / 3], j % 3);
      if (column < 0 || row < column) continue;
      stiffness.AddData(row, column, brick.stiffness[i][j]);
      bool const sameDirection = i % 3 == j % 3; // inertia does not couple directions
      if (sameDirection) mass.AddData(row, column, brick.mass[i / 3][j / 3]);
    }
}

void AddMatrix(ORXSimTransaction& transaction, ORXSimCSetID unknowns, char const* type,
               ORXSrvSparseMatrix const& matrix) {
  ORXSimContextID const context = unknowns.Context();
  ORXSimCSetID columns = unknowns;
  ORXSimDistributionID const distribution = ORXSrvUtilities::CreateSparseDistribution(
      transaction, ORXSrvPosition(context), ORXSimContext(context).DefineType(type), unknowns, columns);
  matrix.Export(unknowns, columns, distribution);
}

/// Writes both matrices into a new database, which "orxmtx modes" finds by their types.
void WriteModel(std::string const& path, ORXSrvSparseMatrix const& stiffness,
                ORXSrvSparseMatrix const& mass) {
  ORXSimDatabase database;
  database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
  ORXSimContextID const context = database.CreateContext({});
  ORXSimTransaction transaction(context);
  ORXSimCollection const unknowns(
      ORXSimContext(context).CreateCollection(stiffness.NumberOfRows(), ORXSimTypeID()));
  AddMatrix(transaction, unknowns.BiggestCSetID(), "K", stiffness);
  AddMatrix(transaction, unknowns.BiggestCSetID(), "M", mass);
  transaction.Commit();
  database.Close();
}

void Assemble(std::string const& folder) {
  Mesh const mesh;
  ORXSrvSparseMatrix stiffness(mesh.NumberOfUnknowns(), mesh.NumberOfUnknowns());
  ORXSrvSparseMatrix mass(mesh.NumberOfUnknowns(), mesh.NumberOfUnknowns());

  stiffness.BeginAssembly();
  mass.BeginAssembly();
  for (BrickNodes const& nodes : mesh.Bricks()) {
    std::array<Vector, cornerCount> corners;
    for (int a = 0; a < cornerCount; ++a)
      corners[a] = mesh.Nodes()[nodes[a]];
    AddBrick(nodes, ComputeBrickMatrices(corners, steel), stiffness, mass);
  }
  stiffness.EndAssembly();
  mass.EndAssembly();

  constexpr int chunkedBinary = 6;
  ORXSrvSparseMatrix const k = stiffness.SymmetricForm(), m = mass.SymmetricForm();
  k.Export((folder + "/disk-K.chk").c_str(), chunkedBinary, nullptr);
  m.Export((folder + "/disk-M.chk").c_str(), chunkedBinary, nullptr);
  WriteModel(folder + "/disk-model.sim", k, m);
  std::printf("%d bricks, %d unknowns, %d entries in one triangle of K, %d of M\n",
              static_cast<int>(mesh.Bricks().size()), stiffness.NumberOfRows(), stiffness.NumberOfNonzeros(),
              mass.NumberOfNonzeros());
}

/// The number of lines across the disk that stand still: how often the motion of the blades' tips goes up and
/// down around the disk.
int CountNodalDiameters(Mesh const& mesh, std::vector<Vector> const& displacement) {
  int best = 0;
  double largest = -1.0;
  for (int n = 0; n <= Mesh::blades / 2; ++n) {
    std::complex<double> axial = 0.0, around = 0.0;
    for (int blade = 0; blade < Mesh::blades; ++blade) {
      double const angle = 2 * std::numbers::pi * blade / Mesh::blades;
      Vector const u = displacement[mesh.TipNode(blade)];
      axial += std::polar(u.z, n * angle);
      around += std::polar(1.0, n * angle) * (u.y * std::cos(angle) - u.x * std::sin(angle));
    }
    double const strength = std::norm(axial) + std::norm(around);
    if (strength > largest) best = n;
    largest = std::max(largest, strength);
  }
  return best;
}

/// Reads the modes as `orxmtx modes` leaves them: a table, and a database whose first distribution is the
/// block matrix of shapes.
class ModesOnDisk {
public:
  ModesOnDisk(std::string const& folder, Mesh const& mesh) : m_mesh(mesh) {
    std::string const path = folder + "/disk.sim";
    m_database.OpenFile(ORXUnicodeString(path.c_str()), true);
    ORXSrvDenseMatrix const shapes(Distribution());
    if (shapes.NumberOfRows() != mesh.NumberOfUnknowns())
      throw std::runtime_error(path + ": the shapes are not those of this mesh");
    m_table = support::ReadModeTable(folder + "/disk.txt", shapes.NumberOfColumns());
  }

  int Count() const { return static_cast<int>(m_table.size()); }
  double Frequency(int k) const { return m_table[k].frequency; }
  double RelativeError(int k) const { return 0.5 * m_table[k].error; }
  Mode Read(int k) const {
    std::vector<double> shape(m_mesh.NumberOfUnknowns());
    ORXSrvMatrix column(m_mesh.NumberOfUnknowns(), 1, shape.data());
    ORXSrvDenseMatrix(Distribution()).GetColumns(k, k, column);
    std::vector<Vector> displacement;
    for (int node = 0; node < std::ssize(m_mesh.Nodes()); ++node) {
      int const first = Mesh::Unknown(node, 0);
      displacement.push_back(first < 0 ? Vector{} : Vector{shape[first], shape[first + 1], shape[first + 2]});
    }
    int const diameters = CountNodalDiameters(m_mesh, displacement);
    return {k + 1, m_table[k].frequency, diameters, std::move(displacement)};
  }

private:
  ORXSimDistributionID Distribution() const {
    return ORXSimContext(m_database.Contexts()[0]).Distributions()[0];
  }

  Mesh const& m_mesh;
  ORXSimDatabase m_database;
  std::vector<support::TabledMode> m_table;
};

void WritePicture(std::string const& path, std::vector<Mode> const& modes, Mesh const& mesh) {
  std::ofstream file(path, std::ios::binary);
  file << DrawModes(modes, mesh) << std::flush;
  if (!file) throw std::runtime_error(path + ": cannot be written");
}

/// A line for each frequency. A pattern of nodal diameters can lie in two ways around the disk: most
/// frequencies belong to two modes.
void PrintTable(ModesOnDisk const& modes) {
  constexpr double sameFrequency = 1e-8;
  std::printf("   modes   frequency Hz   error, at most Hz   nodal diameters\n");
  for (int k = 0; k < modes.Count(); ++k) {
    double const frequency = modes.Frequency(k), error = frequency * modes.RelativeError(k);
    int const diameters = modes.Read(k).nodalDiameters;
    bool const isPair =
        k + 1 < modes.Count() && modes.Frequency(k + 1) - frequency <= sameFrequency * frequency;
    std::printf("%3d%s %14.4f %19.1e %17d\n", k + 1,
                isPair ? support::Format(", %3d", k + 2).c_str() : "     ", frequency, error, diameters);
    k += isPair;
  }
}

void Report(std::string const& folder) {
  Mesh const mesh;
  ModesOnDisk const modes(folder, mesh);
  PrintTable(modes);
  constexpr int ofDisk = 0, ofBlades = 5; // in the one the disk bends, in the other the blades
  if (modes.Count() <= ofBlades) throw std::runtime_error("expected more modes to draw");
  WritePicture(folder + "/disk.svg", {modes.Read(ofDisk), modes.Read(ofBlades)}, mesh);
}

} // namespace

int main(int argc, char** argv) {
  return support::RunProgram("bladed_disk", [&] {
    std::string const task = argc == 3 ? argv[1] : "";
    if (task == "assemble") return Assemble(argv[2]);
    if (task == "report") return Report(argv[2]);
    throw std::runtime_error("usage: bladed_disk assemble DIR | bladed_disk report DIR");
  });
}
