#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

// Stiffness and mass of a block of steel, nx x ny x nz bricks with eight nodes each, clamped at x = 0 or
// free. Rolled up, it is a tube: the bricks are turned by a full circle along y, and the last ones meet the
// first.

namespace bench {

class ElasticBlock {
public:
  using Edges = std::array<double, 3>; ///< of a brick, in m
  enum class Form { Straight, RolledUp };

  ElasticBlock(int nx, int ny, int nz, bool isClamped, Edges const& edges = {0.1, 0.1, 0.1},
               Form form = Form::Straight)
      : m_size{nx, ny, nz}, m_nodesAlongY(form == Form::Straight ? ny + 1 : ny),
        m_fixedNodes(isClamped ? m_nodesAlongY * (nz + 1) : 0) {
    MakeElement(edges);
    if (form == Form::RolledUp)
      for (Element* const element : {&m_stiffness, &m_mass})
        *element = Turned(*element, std::numbers::pi / ny);
  }

  int Order() const { return 3 * ((m_size[0] + 1) * m_nodesAlongY * (m_size[2] + 1) - m_fixedNodes); }

  ORXSrvSparseMatrix Stiffness() const { return Assemble(m_stiffness); }
  ORXSrvSparseMatrix Mass() const { return Assemble(m_mass); }

private:
  static constexpr int corners = 8;
  static constexpr int unknowns = 3 * corners;
  using Element = std::array<double, unknowns * unknowns>;

  static int Sign(int corner, int axis) {
    int const bits[3] = {(corner & 1) ^ (corner >> 1 & 1), corner >> 1 & 1, corner >> 2};
    return 2 * bits[axis] - 1;
  }

  /// Integrates with two points along each axis.
  void MakeElement(Edges const& edges) {
    constexpr double young = 2.1e11, poisson = 0.3, density = 7800;
    double const lambda = young * poisson / ((1 + poisson) * (1 - 2 * poisson));
    double const shear = young / (2 * (1 + poisson));
    double const weight = edges[0] * edges[1] * edges[2] / 8;
    for (int point = 0; point < corners; ++point) {
      double shape[corners], slope[corners][3];
      for (int c = 0; c < corners; ++c) {
        double factor[3];
        for (int axis = 0; axis < 3; ++axis)
          factor[axis] = 1 + Sign(c, axis) * Sign(point, axis) / std::sqrt(3.0);
        shape[c] = factor[0] * factor[1] * factor[2] / 8;
        for (int axis = 0; axis < 3; ++axis)
          slope[c][axis] = Sign(c, axis) * factor[(axis + 1) % 3] * factor[(axis + 2) % 3] / 4 / edges[axis];
      }
      for (int i = 0; i < unknowns; ++i)
        for (int j = 0; j < unknowns; ++j) {
          double const *a = slope[i / 3], *b = slope[j / 3];
          int const p = i % 3, q = j % 3;
          double strain = lambda * a[p] * b[q] + shear * a[q] * b[p];
          if (p == q) strain += shear * (a[0] * b[0] + a[1] * b[1] + a[2] * b[2]);
          m_stiffness[static_cast<std::size_t>(i * unknowns + j)] += weight * strain;
          if (p == q)
            m_mass[static_cast<std::size_t>(i * unknowns + j)] +=
                weight * density * shape[i / 3] * shape[j / 3];
        }
    }
  }

  /// The element with each node's displacements along axes of its own: turned about x by the angle at the
  /// node, which is `half` towards the larger y and -half towards the smaller.
  static Element Turned(Element const& element, double half) {
    auto const term = [&](int i, int p) { // share of a node's own direction i % 3 in the direction p
      double const angle = Sign(i / 3, 1) * half;
      double const turn[3][3] = {
          {1, 0, 0}, {0, std::cos(angle), -std::sin(angle)}, {0, std::sin(angle), std::cos(angle)}};
      return turn[p][i % 3];
    };
    Element turned{};
    for (int i = 0; i < unknowns; ++i)
      for (int j = 0; j < unknowns; ++j)
        for (int p = 0; p < 3; ++p)
          for (int q = 0; q < 3; ++q)
            turned[static_cast<std::size_t>(i * unknowns + j)] +=
                term(i, p) * term(j, q) *
                element[static_cast<std::size_t>((i / 3 * 3 + p) * unknowns + j / 3 * 3 + q)];
    return turned;
  }

  /// The unknowns of an element; negative for those that are clamped.
  std::array<int, unknowns> UnknownsOf(int x, int y, int z) const {
    std::array<int, unknowns> result{};
    for (int c = 0; c < corners; ++c) {
      int const at[3] = {x + (Sign(c, 0) + 1) / 2, (y + (Sign(c, 1) + 1) / 2) % m_nodesAlongY,
                         z + (Sign(c, 2) + 1) / 2};
      int const node = (at[0] * m_nodesAlongY + at[1]) * (m_size[2] + 1) + at[2] - m_fixedNodes;
      for (int k = 0; k < 3; ++k)
        result[static_cast<std::size_t>(3 * c + k)] = 3 * node + k;
    }
    return result;
  }

  ORXSrvSparseMatrix Assemble(Element const& element) const {
    ORXSrvSparseMatrix matrix(Order(), Order());
    matrix.BeginAssembly();
    for (int x = 0; x < m_size[0]; ++x)
      for (int y = 0; y < m_size[1]; ++y)
        for (int z = 0; z < m_size[2]; ++z)
          AddElement(matrix, element, UnknownsOf(x, y, z));
    matrix.EndAssembly();
    return matrix;
  }

  /// Both values of a pair are the same bits: the matrix is symmetric exactly.
  static void AddElement(ORXSrvSparseMatrix& matrix, Element const& element,
                         std::array<int, unknowns> const& at) {
    for (std::size_t i = 0; i < unknowns; ++i)
      for (std::size_t j = 0; j < unknowns; ++j)
        if (at[i] >= 0 && at[j] >= 0)
          matrix.AddData(static_cast<std::uint32_t>(at[i]), static_cast<std::uint32_t>(at[j]),
                         0.5 * (element[i * unknowns + j] + element[j * unknowns + i]));
  }

  std::array<int, 3> m_size;
  int m_nodesAlongY;
  int m_fixedNodes;
  Element m_stiffness{};
  Element m_mass{};
};

} // namespace bench
