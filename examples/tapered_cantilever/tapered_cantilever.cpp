// A modal analysis as a solver module does it with the library: a published benchmark structure is meshed,
// its element matrices are assembled, stiffness and mass leave as matrix files, and the modes come back as
// files.
//
//     tapered_cantilever assemble DIR                        writes DIR/K.txt and DIR/M.txt
//     orxmtx modes DIR/K.txt DIR/M.txt -n 6 --shapes DIR/shapes.txt > DIR/modes.txt
//     tapered_cantilever report DIR                          compares, and writes DIR/modes.svg

#include "examples/support/Program.h"
#include "examples/tapered_cantilever/Benchmark.h"
#include "examples/tapered_cantilever/Element.h"
#include "examples/tapered_cantilever/Mesh.h"
#include "examples/tapered_cantilever/Modes.h"
#include "examples/tapered_cantilever/Picture.h"

#include "mtx/ORXSrvSparseMatrix.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace fv32;

/// Adds an element's contributions. Clamped unknowns are left out: their displacement is zero.
void AddElement(Mesh const& mesh, ElementNodes const& nodes, ORXSrvSparseMatrix& stiffness,
                ORXSrvSparseMatrix& mass) {
  std::array<Point, 8> places;
  for (int a = 0; a < 8; ++a)
    places[a] = mesh.Nodes()[nodes[a]];
  ElementMatrices const element = ComputeElementMatrices(places);

  for (int i = 0; i < 16; ++i)
    for (int j = 0; j < 16; ++j) {
      int const row = Mesh::Unknown(nodes[i / 2], i % 2);
      int const column = Mesh::Unknown(nodes[j / 2], j % 2);
      if (row < 0 || column < 0) continue;
      stiffness.AddData(row, column, element.stiffness[i][j]);
      bool const sameDirection = i % 2 == j % 2; // inertia does not couple x and y
      if (sameDirection) mass.AddData(row, column, element.mass[i][j]);
    }
}

void Assemble(std::string const& folder) {
  Mesh const mesh;
  ORXSrvSparseMatrix stiffness(0, 0); // grows with what is added
  ORXSrvSparseMatrix mass(0, 0);

  stiffness.BeginAssembly();
  mass.BeginAssembly();
  for (ElementNodes const& nodes : mesh.Elements())
    AddElement(mesh, nodes, stiffness, mass);
  stiffness.EndAssembly();
  mass.EndAssembly();

  constexpr int textTriplets = 3;
  stiffness.Export((folder + "/K.txt").c_str(), textTriplets, nullptr);
  mass.Export((folder + "/M.txt").c_str(), textTriplets, nullptr);
  std::printf("%d elements, %d unknowns, %d entries in K, %d in M\n",
              static_cast<int>(mesh.Elements().size()), stiffness.NumberOfRows(),
              stiffness.NumberOfNonzeros(), mass.NumberOfNonzeros());
}

double Difference(Mode const& mode, double published) { return (mode.frequency - published) / published; }

void PrintTable(std::vector<Mode> const& modes) {
  std::printf("mode  motion   computed Hz  published Hz  difference\n");
  for (int k = 0; k < modeCount; ++k)
    std::printf("%4d  %-7s %12.3f %13.3f %+10.4f %%\n", k + 1, modes[k].isAxial ? "axial" : "bending",
                modes[k].frequency, publishedFrequencies[k],
                100.0 * Difference(modes[k], publishedFrequencies[k]));
}

void WritePicture(std::string const& path, std::vector<Mode> const& modes, Mesh const& mesh) {
  std::ofstream file(path, std::ios::binary);
  file << DrawModes(modes, mesh) << std::flush;
  if (!file) throw std::runtime_error(path + ": cannot be written");
}

/// Raises when a frequency is off, or is not a number.
void RequireAgreement(std::vector<Mode> const& modes) {
  std::ostringstream off;
  for (int k = 0; k < modeCount; ++k)
    if (!(std::fabs(Difference(modes[k], publishedFrequencies[k])) <= tolerance))
      off << " " << k + 1 << " (" << modes[k].frequency << " Hz)";
  if (off.str().empty()) return;
  std::ostringstream text;
  text << "more than " << 100.0 * tolerance << " % off the published frequency: mode" << off.str();
  throw std::runtime_error(text.str());
}

void Report(std::string const& folder) {
  Mesh const mesh;
  std::vector<Mode> const modes = ReadModes(folder + "/modes.txt", folder + "/shapes.txt", mesh);
  WritePicture(folder + "/modes.svg", modes, mesh);
  PrintTable(modes);
  RequireAgreement(modes);
}

} // namespace

int main(int argc, char** argv) {
  return support::RunProgram("tapered_cantilever", [&] {
    std::string const task = argc == 3 ? argv[1] : "";
    if (task == "assemble") return Assemble(argv[2]);
    if (task == "report") return Report(argv[2]);
    throw std::runtime_error("usage: tapered_cantilever assemble DIR | tapered_cantilever report DIR");
  });
}
