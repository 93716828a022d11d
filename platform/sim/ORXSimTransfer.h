#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimArray.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimIdentifiers.h"
#include "sim/ORXSimRange.h"

#include <array>
#include <cstdint>
#include <memory>

namespace orx::sim {
struct Drawer;
}
namespace orx::store {
struct SparseArrays;
}

/// What is selected along one dimension.
struct ORXSimDimSelection {
  enum class Kind : int { Everything, Set, Range };
  Kind kind = Kind::Everything;
  ORXSimCSetID set;              ///< Set: its members, in its order
  ORXSimCollectionID collection; ///< Range: null, or that of the dimension
  int first = 0;                 ///< Range: zero-based positions in the drawer, both inclusive
  int last = -1;
};

/// What a read has brought.
class ORXSimTransientDrawer {
public:
  /// Number of cells, or of stored entries.
  std::int64_t NumItems() const noexcept { return m_items; }

private:
  friend class ORXSimTransfer;
  std::int64_t m_items = 0;
};

/// A configured read or write between caller buffers and a distribution. Setters return the transfer, so that
/// calls are chained. They only configure it: what can never be right (a dimension that the distribution does
/// not have, a fifth buffer) is refused at once, and after CheckView a buffer 0 that is too short; everything
/// else is checked by CheckView and by the executions.
///
///     ORXSimTransfer(distribution).SetRead().SetBufferPadding(false)
///         .SetDimOrdinalRange(0, columns, 4, 5).SetDimOrdinalRange(1, rows, 0, 99)
///         .SetBuffer(0, values, 200 * 8).ExecRead();
///
/// Dense: buffer 0 holds the selected cells as one packed run, the last dimension varying fastest; in the
/// library's 2-D grids dimension 0 is the columns and dimension 1 the rows, so the run is column-major with
/// the number of selected rows as leading dimension. A dimension without a selection is selected whole.
/// Sparse: always the whole matrix, rows along dimension 0; buffer 0 the values (8 bytes each), 1 the column
/// indices (4 bytes), 2 the row starts (rows + 1 integers of 4 bytes, zero-based), 3 the diagonal (rows
/// values, optional).
///
/// A copy has the same configuration and the same buffers. Buffers belong to the caller throughout. Errors
/// are ORXSimException: viewDoesNotFit names the dimension or the buffer and both sizes; writeFailed says
/// why, and then cells of the selection may be partly written, and no others.
class ORX_EXPORT ORXSimTransfer {
public:
  static constexpr int maxBuffers = 4;

  explicit ORXSimTransfer(ORXSimDistribution const& distribution);
  ~ORXSimTransfer();
  ORXSimTransfer(ORXSimTransfer const&) = default;
  ORXSimTransfer& operator=(ORXSimTransfer const&) = default;

  // Direction; both may be set

  ORXSimTransfer& SetRead() noexcept;
  ORXSimTransfer& SetWrite() noexcept;

  // Creation and extension of the drawer

  /// The write creates one drawer stored whole. A drawer that the distribution has is replaced.
  ORXSimTransfer& SetMakeNewDrawer() noexcept;
  /// The same, stored in chunks: `chunks` has one length per dimension, each at least 1; a length beyond the
  /// dimension's size means the whole dimension.
  ORXSimTransfer& SetMakeNewDrawerChunked(ORXSimArray<int> const& chunks);
  /// The value of cells that are created but not written; zero unless it is called.
  ORXSimTransfer& SetInitializationValue(ORXSimRangeValue const& value) noexcept;
  /// Creates the drawer over the selected members and fills it; no buffer is involved.
  ORXSimTransfer& InitializePersistentDrawer();
  /// Names the members to be appended along the dimension of their collection.
  ORXSimTransfer& SetDimExtension(ORXSimCSetID const& members) noexcept;
  /// Appends them. Their cells get the initialization value or, when none is set on this transfer, the one
  /// that the drawer was created with.
  ORXSimTransfer& InitializeExtension();

  // Selection; `dim` at least 0 and below the number of dimensions, else invalidArgument

  /// The members of a set, in its order; when a drawer is created, these are its members along `dim`.
  ORXSimTransfer& SetDim(int dim, ORXSimCSetID const& members);
  /// The positions first ... last of the drawer, both inclusive; `collection` is null or that of the
  /// dimension.
  ORXSimTransfer& SetDimOrdinalRange(int dim, ORXSimCollectionID const& collection, int first, int last);
  /// Raises viewDoesNotFit when the selections, the chunks or the extension do not fit the distribution: a
  /// member set that does not exist or has a member that the drawer lacks, positions beyond its end.
  ORXSimTransfer& CheckView();

  // Buffers

  /// Attaches `bytes` bytes of the caller as buffer 0 ... 3. They may be more than the selection needs.
  ORXSimTransfer& SetBuffer(int index, void* data, std::int64_t bytes);
  /// For a write.
  ORXSimTransfer& SetBuffer(int index, void const* data, std::int64_t bytes);
  /// Whether cells in buffers are padded: only false is supported, and is the default.
  ORXSimTransfer& SetBufferPadding(bool padding);
  ORXSimTransfer& RelinquishBuffers() noexcept;

  // Serialization

  ORXSimTransfer& SetSerialization(ORXSimSerializationType const& serialization) noexcept;
  /// The number of stored entries of a sparse write.
  ORXSimTransfer& SetSparseNNonzero(int count) noexcept;

  // Execution; the view is checked first

  /// Writes the attached buffers into the selection.
  ORXSimTransfer& ExecWrite();
  /// Fills the attached buffers from the selection; valid until the next call.
  ORXSimTransientDrawer const& ExecRead();

private:
  struct Buffer {
    void* data = nullptr;
    std::int64_t bytes = 0;
  };
  enum class NewDrawer : int { No, Whole, Chunked };

  orx::sim::DistributionRecord& Record() const;
  ORXSimTransfer& Select(int dim, ORXSimDimSelection const& selection);
  void CheckForm();
  void CheckNewDrawer() const;
  void CheckSelections() const;
  void CheckExtension() const;
  void CheckInitialValue() const;
  void CheckBuffer(int index, std::int64_t bytesNeeded) const;
  std::int64_t SelectedBytes() const;
  std::shared_ptr<orx::sim::Drawer> DrawerOverSelection() const;
  void CreateDenseDrawer();
  void MoveDense(bool isWrite);
  orx::store::SparseArrays SparseArrays() const;
  void WriteSparse();
  void ReadSparse();

  ORXSimDistribution m_distribution;
  ORXSimArray<ORXSimDimSelection> m_selections; ///< one per dimension
  ORXSimArray<int> m_chunks;
  ORXSimRangeValue m_initialValue;
  ORXSimSerializationType m_serialization;
  ORXSimCSetID m_extension;
  std::array<Buffer, maxBuffers> m_buffers;
  int m_entries = -1; ///< of a sparse write; -1: not set
  NewDrawer m_newDrawer = NewDrawer::No;
  bool m_hasInitialValue = false;
  bool m_isRead = false;
  bool m_isWrite = false;
  bool m_isChecked = false; ///< the selections, since they were changed
  ORXSimTransientDrawer m_result;
};
