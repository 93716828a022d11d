#include "examples/tapered_cantilever/Modes.h"

#include "examples/support/ModeTable.h"
#include "examples/tapered_cantilever/Benchmark.h"

#include "mtx/ORXSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fv32 {
namespace {

/// Displacements of all nodes in all modes, zero where clamped.
std::vector<std::vector<Point>> ReadShapes(std::string const& path, Mesh const& mesh) {
  ORXSrvSparseMatrix shapes(0, 0);
  shapes.Import(path.c_str(), 3);
  if (shapes.NumberOfRows() != mesh.NumberOfUnknowns() || shapes.NumberOfColumns() < modeCount)
    throw std::runtime_error((std::ostringstream()
                              << path << ": expected " << mesh.NumberOfUnknowns() << " unknowns and "
                              << modeCount << " modes, found " << shapes.NumberOfRows() << " and "
                              << shapes.NumberOfColumns())
                                 .str());

  std::vector<double> values(static_cast<std::size_t>(modeCount) * shapes.NumberOfRows(), 0.0);
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const entries(shapes.GetEntries(count));
  for (int k = 0; k < count; ++k)
    if (entries[k].column < modeCount)
      values[entries[k].row * modeCount + entries[k].column] = entries[k].value;

  std::vector<std::vector<Point>> displacements(modeCount);
  for (int mode = 0; mode < modeCount; ++mode)
    for (int node = 0; node < std::ssize(mesh.Nodes()); ++node) {
      auto const along = [&](int direction) {
        int const unknown = Mesh::Unknown(node, direction);
        return unknown < 0 ? 0.0 : values[static_cast<std::size_t>(unknown) * modeCount + mode];
      };
      displacements[mode].push_back({along(0), along(1)});
    }
  return displacements;
}

/// A shape is known up to a factor: this one makes pictures comparable and the same on every machine.
void Normalize(std::vector<Point>& displacement) {
  double largest = 0.0;
  for (Point const p : displacement)
    largest = std::max(largest, std::hypot(p.x, p.y));
  if (!(largest > 0.0)) throw std::runtime_error("a mode shape is zero everywhere");
  Point const tip = displacement[Mesh::TipNode()]; // moves along x or y only, for symmetry
  double const factor = (tip.x + tip.y < 0.0 ? -1.0 : 1.0) / largest;
  for (Point& p : displacement)
    p = factor * p;
}

bool IsAxial(std::vector<Point> const& displacement) {
  double alongX = 0.0;
  double alongY = 0.0;
  for (Point const p : displacement) {
    alongX += p.x * p.x;
    alongY += p.y * p.y;
  }
  return alongX > alongY;
}

} // namespace

std::vector<Mode> ReadModes(std::string const& tablePath, std::string const& shapesPath, Mesh const& mesh) {
  std::vector<support::TabledMode> const table = support::ReadModeTable(tablePath, modeCount);
  std::vector<std::vector<Point>> shapes = ReadShapes(shapesPath, mesh);
  std::vector<Mode> modes;
  for (int k = 0; k < modeCount; ++k) {
    Normalize(shapes[k]);
    bool const isAxial = IsAxial(shapes[k]);
    modes.push_back({table[k].frequency, std::move(shapes[k]), isAxial});
  }
  return modes;
}

} // namespace fv32
