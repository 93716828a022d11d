#include "ModelDrawer.h"

#include <algorithm>
#include <numeric>

std::vector<int> ModelDrawer::Sizes() const {
  std::vector<int> sizes;
  for (auto const& along : labels)
    sizes.push_back(static_cast<int>(along.size()));
  return sizes;
}

void ModelDrawer::ForEach(std::vector<std::vector<int>> const& positions,
                          std::function<void(std::size_t, std::size_t)> const& visit) const {
  for (auto const& along : positions)
    if (along.empty()) return;
  std::size_t const rank = labels.size();
  std::vector<std::size_t> at(rank, 0);
  for (std::size_t k = 0;; ++k) {
    std::size_t cell = 0;
    for (std::size_t dim = 0; dim < rank; ++dim)
      cell = cell * labels[dim].size() + static_cast<std::size_t>(positions[dim][at[dim]]);
    visit(cell, k);
    std::size_t dim = rank;
    while (dim-- > 0 && ++at[dim] == positions[dim].size())
      at[dim] = 0;
    if (dim == static_cast<std::size_t>(-1)) return;
  }
}

void ModelDrawer::CropTo(std::vector<int> const& sizes) {
  if (sizes == Sizes()) return;
  auto shorter = labels;
  for (std::size_t dim = 0; dim < sizes.size(); ++dim)
    shorter[dim].resize(static_cast<std::size_t>(sizes[dim]));
  Reshape(std::move(shorter), 0.0);
}

void ModelDrawer::Extend(int dim, std::vector<int> const& added, double value) {
  auto longer = labels;
  auto& along = longer[static_cast<std::size_t>(dim)];
  along.insert(along.end(), added.begin(), added.end());
  Reshape(std::move(longer), value);
}

void ModelDrawer::Reshape(std::vector<std::vector<int>> newLabels, double value) {
  ModelDrawer other;
  other.labels = std::move(newLabels);
  std::size_t count = 1;
  std::vector<std::vector<int>> common;
  for (std::size_t dim = 0; dim < labels.size(); ++dim) {
    count *= other.labels[dim].size();
    common.emplace_back(std::min(labels[dim].size(), other.labels[dim].size()));
    std::iota(common.back().begin(), common.back().end(), 0);
  }
  other.cells.assign(count, value);
  std::vector<std::size_t> kept;
  ForEach(common, [&](std::size_t cell, std::size_t) { kept.push_back(cell); });
  other.ForEach(common, [&](std::size_t cell, std::size_t k) { other.cells[cell] = cells[kept[k]]; });
  labels = std::move(other.labels);
  cells = std::move(other.cells);
}
