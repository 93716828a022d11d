#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

// Stiffness and mass of a block of steel, nx x ny x nz cubes of 0.1 m with eight nodes each, clamped at x = 0
// or free: the model of the claims about modes.

namespace bench {

class ElasticBlock {
public:
  ElasticBlock(int nx, int ny, int nz, bool isClamped)
      : m_size{nx, ny, nz}, m_fixedNodes(isClamped ? (ny + 1) * (nz + 1) : 0) {
    MakeElement();
  }

  int Order() const { return 3 * ((m_size[0] + 1) * (m_size[1] + 1) * (m_size[2] + 1) - m_fixedNodes); }

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
  void MakeElement() {
    constexpr double young = 2.1e11, poisson = 0.3, density = 7800, edge = 0.1;
    double const lambda = young * poisson / ((1 + poisson) * (1 - 2 * poisson));
    double const shear = young / (2 * (1 + poisson));
    double const weight = std::pow(edge / 2, 3);
    for (int point = 0; point < corners; ++point) {
      double shape[corners], slope[corners][3];
      for (int c = 0; c < corners; ++c) {
        double factor[3];
        for (int axis = 0; axis < 3; ++axis)
          factor[axis] = 1 + Sign(c, axis) * Sign(point, axis) / std::sqrt(3.0);
        shape[c] = factor[0] * factor[1] * factor[2] / 8;
        for (int axis = 0; axis < 3; ++axis)
          slope[c][axis] = Sign(c, axis) * factor[(axis + 1) % 3] * factor[(axis + 2) % 3] / 8 / (edge / 2);
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

  /// The unknowns of an element; negative for those that are clamped.
  std::array<int, unknowns> UnknownsOf(int x, int y, int z) const {
    std::array<int, unknowns> result{};
    for (int c = 0; c < corners; ++c) {
      int const at[3] = {x + (Sign(c, 0) + 1) / 2, y + (Sign(c, 1) + 1) / 2, z + (Sign(c, 2) + 1) / 2};
      int const node = (at[0] * (m_size[1] + 1) + at[1]) * (m_size[2] + 1) + at[2] - m_fixedNodes;
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
  int m_fixedNodes;
  Element m_stiffness{};
  Element m_mass{};
};

} // namespace bench
