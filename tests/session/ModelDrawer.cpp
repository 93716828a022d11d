#include "ModelDrawer.h"

#include <algorithm>
#include <numeric>

std::vector<int> ModelDrawer::Sizes() const {
  std::vector<int> sizes;
  for (Labels const& along : labels)
    sizes.push_back(static_cast<int>(along.size()));
  return sizes;
}

void ModelDrawer::ForEach(std::vector<std::vector<int>> const& positions,
                          std::function<void(std::size_t, std::size_t)> const& visit) const {
  std::vector<std::size_t> chosen{0};
  for (std::size_t dim = 0; dim < labels.size(); ++dim) {
    std::vector<std::size_t> next;
    for (std::size_t const cell : chosen)
      for (int const position : positions[dim])
        next.push_back(cell * labels[dim].size() + position);
    chosen.swap(next);
  }
  for (std::size_t k = 0; k < chosen.size(); ++k)
    visit(chosen[k], k);
}

void ModelDrawer::Set(std::vector<std::vector<int>> const& positions, std::vector<double> const& values) {
  ForEach(positions, [&](std::size_t cell, std::size_t k) { cells[cell] = values[k]; });
}

void ModelDrawer::CropTo(std::vector<int> const& sizes) {
  if (sizes == Sizes()) return;
  auto shorter = labels;
  for (std::size_t dim = 0; dim < sizes.size(); ++dim)
    shorter[dim].resize(sizes[dim]);
  Reshape(std::move(shorter), 0.0);
}

void ModelDrawer::Extend(int dim, Labels const& added, double value) {
  auto longer = labels;
  longer[dim].insert(longer[dim].end(), added.begin(), added.end());
  Reshape(std::move(longer), value);
}

void ModelDrawer::Reshape(std::vector<Labels> newLabels, double value) {
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
  std::vector<double> kept;
  ForEach(common, [&](std::size_t cell, std::size_t) { kept.push_back(cells[cell]); });
  other.Set(common, kept);
  labels = std::move(other.labels);
  cells = std::move(other.cells);
}
