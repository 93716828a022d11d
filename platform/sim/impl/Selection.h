#pragma once

#include "sim/ORXSimTransfer.h"
#include "sim/impl/Records.h"
#include "sim/impl/store/DenseDrawer.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orx::sim {

// Checks of a transfer against its distribution. All functions raise viewDoesNotFit.

/// Raises "The view does not fit distribution 3 of context 0 of FILE: TEXT."
[[noreturn]] void RefuseView(DistributionRecord const& record, std::string const& text);
/// Checks that the selections, of a transfer of this form, select positions of the present drawer, which is
/// opened for it. The labels of selected sets are not checked; see CheckMembers.
void CheckSelections(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections,
                     ORXSimSerializationType const& serialization);
/// Checks that the drawer has each member of the selected sets.
void CheckMembers(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections);
/// Checks that each selection is a member set of the dimension, or nothing.
void CheckNewSets(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections);
void CheckChunkLengths(DistributionRecord const& record, ORXSimArray<int> const& chunks);
void CheckInitialValue(DistributionRecord const& record, ORXSimRangeValue const& value);
/// Checks that the distribution can have a sparse drawer.
void CheckSparsePossible(DistributionRecord const& record);
/// Checks that the distribution can have a symmetric drawer over the selections.
void CheckSymmetricPossible(DistributionRecord const& record,
                            ORXSimArray<ORXSimDimSelection> const& selections,
                            ORXSimArray<int> const& chunks);
/// The dimension that has a collection.
int DimensionOf(DistributionRecord const& record, ORXSimCollectionID const& collection);
void CheckExtension(DistributionRecord const& record, ORXSimCSetID const& extension,
                    ORXSimRangeValue const& initialValue);
/// Number of bytes of the selected cells; refused when it exceeds 64 bits.
std::int64_t SelectedBytes(DistributionRecord const& record,
                           ORXSimArray<ORXSimDimSelection> const& selections);
/// Number of bytes of all cells of a drawer.
std::int64_t DrawerBytes(DistributionRecord const& record, Drawer const& drawer);

/// The selected cells of a drawer, as boxes of consecutive positions.
class Selection {
public:
  /// Raises viewDoesNotFit when a set has a member that the drawer does not have.
  Selection(DistributionRecord const& record, ORXSimArray<ORXSimDimSelection> const& selections);

  std::int64_t Cells() const noexcept { return m_cells; }
  /// The shape of the buffer: number of selected positions along each dimension.
  std::span<std::int64_t const> BufferCounts() const noexcept { return m_counts; }

  /// A position in the drawer that is selected as a row (along dimension 1) and as a column.
  struct Common {
    std::int64_t position;
    std::int64_t row;    ///< its row in the buffer
    std::int64_t column; ///< its column in the buffer
  };
  /// REQUIRES: two dimensions.
  std::vector<Common> CommonPositions() const;

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

/// Raises mirrorsDiffer unless the buffer, for a symmetric drawer, has equal values (or NaN twice) wherever
/// the selection has a cell and its mirror image.
void CheckMirrors(DistributionRecord const& record, Selection const& selection, double const* buffer);

} // namespace orx::sim
