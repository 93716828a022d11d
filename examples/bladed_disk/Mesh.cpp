#include "examples/bladed_disk/Mesh.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace disk {
namespace {

double Between(double from, double to, double share) { return from + share * (to - from); }

/// Width along the axis: wide at the bore and at the rim, thin in the web between them.
double WidthAt(double shareOfDisk) {
  double const fromWeb = 2 * shareOfDisk - 1;
  return Between(Mesh::webWidth, Mesh::rimWidth, fromWeb * fromWeb);
}

} // namespace

Mesh::Mesh() : m_nodeOfSlot((rings + 1) * steps * (layers + 1), -1) {
  for (int step = 0; step < steps; ++step)
    for (int layer = 0; layer <= layers; ++layer)
      NodeAt(0, step, layer);
  for (int ring = 0; ring < rings; ++ring)
    for (int step = 0; step < steps; ++step) {
      bool const isSolid = ring < ringsOfDisk || step % stepsOfSector < stepsOfBlade;
      for (int layer = 0; isSolid && layer < layers; ++layer)
        AddBrick(ring, step, layer);
    }
}

Vector Mesh::PlaceOf(int ring, int step, int layer) {
  double const shareOfDisk = std::min(1.0, static_cast<double>(ring) / ringsOfDisk);
  double const shareOfBlade = std::max(0.0, static_cast<double>(ring - ringsOfDisk) / ringsOfBlade);
  double const radius = Between(boreRadius, rimRadius, shareOfDisk) + shareOfBlade * (tipRadius - rimRadius);
  double const z = WidthAt(shareOfDisk) * (static_cast<double>(layer) / layers - 0.5);

  // A blade keeps the thickness of its root but for its taper, and turns around the radius.
  constexpr double angleOfStep = 2 * std::numbers::pi / steps;
  double const fromMiddle = step % stepsOfSector - 0.5 * stepsOfBlade;
  double const thickness = Between(1.0, tipThickness, shareOfBlade);
  double const across = shareOfBlade > 0.0 ? fromMiddle * thickness * angleOfStep * rimRadius
                                           : fromMiddle * angleOfStep * radius;
  double const turn = stagger * shareOfBlade;
  double const aside = across * std::cos(turn) - z * std::sin(turn);
  double const angle = (step - fromMiddle) * angleOfStep + aside / radius;
  return {radius * std::cos(angle), radius * std::sin(angle), across * std::sin(turn) + z * std::cos(turn)};
}

int Mesh::NodeAt(int ring, int step, int layer) {
  int& node = m_nodeOfSlot[Slot(ring, step, layer)];
  if (node < 0) {
    node = static_cast<int>(m_nodes.size());
    m_nodes.push_back(PlaceOf(ring, step % steps, layer));
  }
  return node;
}

void Mesh::AddBrick(int ring, int step, int layer) {
  BrickNodes nodes;
  for (int above = 0; above < 2; ++above) {
    nodes[4 * above] = NodeAt(ring, step, layer + above);
    nodes[4 * above + 1] = NodeAt(ring + 1, step, layer + above);
    nodes[4 * above + 2] = NodeAt(ring + 1, step + 1, layer + above);
    nodes[4 * above + 3] = NodeAt(ring, step + 1, layer + above);
  }
  m_bricks.push_back(nodes);
}

int Mesh::TipNode(int blade) const {
  return m_nodeOfSlot[Slot(rings, blade * stepsOfSector + stepsOfBlade / 2, layers / 2)];
}

} // namespace disk
