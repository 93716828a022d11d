#pragma once

#include "sim/ORXSimTransfer.h"
#include "sim/impl/Records.h"
#include "sim/impl/store/DenseDrawer.h"

#include <cstdint>
#include <span>
#include <vector>

namespace orx::sim {

/// Raises viewDoesNotFit unless `collection` is the collection of dimension `dim`.
void CheckCollection(DistributionRecord const& record, int dim, ORXSimCollectionID const& collection);
/// Raises viewDoesNotFit unless `set` exists and belongs to the collection of dimension `dim`.
void CheckSet(DistributionRecord const& record, int dim, ORXSimCSetID const& set);
/// The labels of a set; raises viewDoesNotFit when there is no such set.
ORXSimIndexSet const& MembersOf(DistributionRecord const& record, ORXSimCSetID const& set);
/// Raises viewDoesNotFit when a selected set has a member that the drawer does not have.
void CheckMembers(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections);
/// The dimension that has a collection; raises viewDoesNotFit when no dimension has it.
int DimensionOf(DistributionRecord const& record, ORXSimCollectionID const& collection);
/// Number of positions that a selection has along a dimension of the drawer.
std::int64_t SelectedCount(DistributionRecord const& record, ORXSimDimSelection const& selection, int dim);

/// The selected cells of a drawer, as boxes of consecutive positions.
class Selection {
public:
  /// Raises viewDoesNotFit when a set has a member that the drawer does not have.
  Selection(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections);

  std::int64_t Cells() const noexcept { return m_cells; }
  /// The shape of the buffer: number of selected positions along each dimension.
  std::span<std::int64_t const> BufferCounts() const noexcept { return m_counts; }

  /// Calls visit(box) for each box: where it lies in the drawer and in the buffer.
  template<class Visit>
  void ForEachBox(Visit&& visit) const {
    if (m_cells == 0) return;
    store::DrawerBox box;
    VisitFrom(0, box, visit);
  }

private:
  struct Run {
    std::int64_t first;  ///< first position in the drawer
    std::int64_t count;  ///< number of consecutive positions
    std::int64_t buffer; ///< first position in the buffer
  };

  void AddMembers(DistributionRecord const& record, int dim, ORXSimCSetID const& id, std::vector<Run>& runs);

  template<class Visit>
  void VisitFrom(std::size_t dim, store::DrawerBox& box, Visit&& visit) const {
    if (dim == m_runs.size()) {
      visit(const_cast<store::DrawerBox const&>(box));
      return;
    }
    for (Run const& run : m_runs[dim]) {
      box.first[dim] = run.first;
      box.counts[dim] = run.count;
      box.bufferFirst[dim] = run.buffer;
      VisitFrom(dim + 1, box, visit);
    }
  }

  std::vector<std::vector<Run>> m_runs; ///< of each dimension
  std::vector<std::int64_t> m_counts;   ///< number of selected positions along each dimension
  std::int64_t m_cells = 1;
};

} // namespace orx::sim
