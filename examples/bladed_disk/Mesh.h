#pragma once

#include "examples/bladed_disk/Brick.h"

#include <array>
#include <vector>

namespace disk {

using BrickNodes = std::array<int, cornerCount>;

/// A disk with twisted blades, clamped at its bore, in bricks. SI units; the axis of rotation is z.
///
///      ___|_|__|_|__|_|__|_|___     blades, from the rim to the tip
///     |________________________|    rim
///         |                |
///         |                |        web
///      ___|________________|___
///     |________________________|    bore, clamped
///
/// Bricks are counted by (ring, step, layer): outwards, around, along the axis. A blade goes on outwards
/// where the disk has ended, over the first steps of its sector. Nodes of the bore have the first numbers:
/// the unknowns after them have no gaps.
class Mesh {
public:
  static constexpr int blades = 24;
  static constexpr int stepsOfSector = 10, stepsOfBlade = 2, steps = blades * stepsOfSector;
  static constexpr int ringsOfDisk = 8, ringsOfBlade = 18, rings = ringsOfDisk + ringsOfBlade;
  static constexpr int layers = 4;

  static constexpr double boreRadius = 0.04, rimRadius = 0.12, tipRadius = 0.19;
  static constexpr double rimWidth = 0.03, webWidth = 0.012; ///< along the axis
  static constexpr double stagger = 0.6;                     ///< radians that a blade turns up to its tip
  static constexpr double tipThickness = 0.5;                ///< of a blade, by that at its root

  Mesh();

  std::vector<Vector> const& Nodes() const { return m_nodes; }
  std::vector<BrickNodes> const& Bricks() const { return m_bricks; }

  int NumberOfUnknowns() const { return 3 * (static_cast<int>(m_nodes.size()) - clampedNodes); }
  /// The zero-based unknown of a node's displacement along x, y or z (direction 0, 1, 2), or -1 when clamped.
  static int Unknown(int node, int direction) {
    return node < clampedNodes ? -1 : 3 * (node - clampedNodes) + direction;
  }
  /// The node at the tip of a blade, in the middle of its chord.
  int TipNode(int blade) const;

private:
  static constexpr int clampedNodes = steps * (layers + 1);

  /// The place of a node in the counts of rings, steps and layers.
  static int Slot(int ring, int step, int layer) {
    return (ring * steps + step % steps) * (layers + 1) + layer;
  }
  static Vector PlaceOf(int ring, int step, int layer);
  /// The node of a slot; the first use of a slot makes it.
  int NodeAt(int ring, int step, int layer);
  void AddBrick(int ring, int step, int layer);

  std::vector<Vector> m_nodes;
  std::vector<BrickNodes> m_bricks;
  std::vector<int> m_nodeOfSlot; ///< -1: none
};

} // namespace disk
