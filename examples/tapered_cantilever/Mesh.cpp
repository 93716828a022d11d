#include "examples/tapered_cantilever/Mesh.h"

#include "examples/tapered_cantilever/Benchmark.h"

namespace fv32 {
namespace {

// Nodes lie on a grid of half elements. Its odd lines of nodes hold the middles of sides only, because an
// element has no node in its centre:
//
//     half column   0   1   2   3   4
//                   o---o---o---o---o     row of nodes 2
//                   o       o       o                  1
//                   o---o---o---o---o                  0

int NodeAt(int halfColumn, int halfRow) {
  constexpr int full = 2 * Mesh::rows + 1;
  constexpr int sparse = Mesh::rows + 1;
  int const before = halfColumn / 2 * (full + sparse);
  return halfColumn % 2 == 0 ? before + halfRow : before + full + halfRow / 2;
}

Point PositionAt(int halfColumn, int halfRow) {
  double const alongLength = halfColumn / (2.0 * Mesh::columns);
  double const depth = rootDepth + (tipDepth - rootDepth) * alongLength;
  return {length * alongLength, depth * (halfRow / (2.0 * Mesh::rows) - 0.5)};
}

ElementNodes NodesOfElement(int column, int row) {
  int const x = 2 * column;
  int const y = 2 * row;
  return {NodeAt(x, y),     NodeAt(x + 2, y),     NodeAt(x + 2, y + 2), NodeAt(x, y + 2),
          NodeAt(x + 1, y), NodeAt(x + 2, y + 1), NodeAt(x + 1, y + 2), NodeAt(x, y + 1)};
}

} // namespace

Mesh::Mesh() {
  for (int column = 0; column <= 2 * columns; ++column)
    for (int row = 0; row <= 2 * rows; row += 1 + column % 2)
      m_nodes.push_back(PositionAt(column, row));
  for (int column = 0; column < columns; ++column)
    for (int row = 0; row < rows; ++row)
      m_elements.push_back(NodesOfElement(column, row));
}

int Mesh::TipNode() { return NodeAt(2 * columns, rows); }

} // namespace fv32
