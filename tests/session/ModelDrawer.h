#pragma once

#include <cstddef>
#include <functional>
#include <vector>

using Labels = std::vector<int>;

/// What a drawer should hold, as plain arrays. A sparse one has its entries among zeros.
struct ModelDrawer {
  std::vector<Labels> labels; ///< along each dimension
  std::vector<double> cells;  ///< packed, the last dimension varying fastest
  std::vector<int> chunks;
  double fill = 0.0;
  bool isSparse = false;
  std::vector<double> diagonal; ///< of a symmetric sparse one

  std::vector<int> Sizes() const;
  /// Writes the cells at all combinations of positions.
  void Set(std::vector<std::vector<int>> const& positions, std::vector<double> const& values);
  /// Keeps the first cells along each dimension.
  void CropTo(std::vector<int> const& sizes);
  void Extend(int dim, Labels const& added, double value);

private:
  /// Calls visit(index of the cell, its number among the chosen) for all combinations of positions.
  void ForEach(std::vector<std::vector<int>> const& positions,
               std::function<void(std::size_t, std::size_t)> const& visit) const;
  void Reshape(std::vector<Labels> newLabels, double value);
};
