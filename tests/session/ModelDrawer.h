#pragma once

#include <cstddef>
#include <functional>
#include <vector>

/// What a drawer should hold, as plain arrays. A sparse one has its entries among zeros.
struct ModelDrawer {
  std::vector<std::vector<int>> labels; ///< along each dimension
  std::vector<double> cells;            ///< packed, the last dimension varying fastest
  std::vector<int> chunks;
  double fill = 0.0;
  bool isSparse = false;
  std::vector<double> diagonal; ///< of a symmetric sparse one

  std::vector<int> Sizes() const;
  /// Calls visit(index of the cell, its number among the chosen) for all combinations of positions.
  void ForEach(std::vector<std::vector<int>> const& positions,
               std::function<void(std::size_t, std::size_t)> const& visit) const;
  /// Keeps the first cells along each dimension.
  void CropTo(std::vector<int> const& sizes);
  void Extend(int dim, std::vector<int> const& added, double value);

private:
  void Reshape(std::vector<std::vector<int>> newLabels, double value);
};
