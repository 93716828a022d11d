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

/// A selection along one dimension of a drawer.
struct ORXSimDimSelection {
  enum class Kind : int { Everything, Set, Range };
  Kind kind = Kind::Everything;
  ORXSimCSetID set;              ///< Set: selects its labels, in its order
  ORXSimCollectionID collection; ///< Range: null, or the collection of the dimension
  int first = 0;                 ///< Range: zero-based positions in the drawer, both inclusive
  int last = -1;
};

/// The result of a read.
class ORXSimTransientDrawer {
public:
  /// Number of cells read; of a sparse drawer, number of stored entries.
  std::int64_t NumItems() const noexcept { return m_items; }

private:
  friend class ORXSimTransfer;
  std::int64_t m_items = 0;
};

/// A configured read or write between caller buffers and a distribution. Setters return the transfer, for
/// calls in a chain. They only configure the transfer, and refuse at once arguments that can never be right
/// (a dimension that the distribution does not have, a fifth buffer); after CheckView, SetBuffer also refuses
/// a buffer 0 that is too short. Everything else is checked by CheckView and by the executions.
///
///     ORXSimTransfer(distribution).SetRead().SetBufferPadding(false)
///         .SetDimOrdinalRange(0, columns, 4, 5).SetDimOrdinalRange(1, rows, 0, 99)
///         .SetBuffer(0, values, 200 * 8).ExecRead();
///
/// Dimensions, buffers and positions are zero-based.
///
/// Dense: buffer 0 holds the selected cells (8 bytes for a double, 4 for an integer) without gaps, the last
/// dimension varying fastest. In the library's 2-D grids dimension 0 is the columns and dimension 1 the rows:
/// the buffer is column-major with the number of selected rows as leading dimension. A dimension without a
/// selection is selected whole.
///
/// Symmetric: a square matrix over one member set, rows and columns by two colours of its collection. The
/// buffer is as for a dense drawer, and dense transfers read and write the drawer too. A cell above the
/// diagonal is the one below: values for both must be equal (or both NaN), else mirrorsDiffer (22), and
/// nothing is written. An extension appends to both dimensions.
///
/// Sparse: always the whole matrix, with the rows along dimension 0. A read fills the buffers that are
/// attached; a write needs 0, 1 and 2, and for the symmetric form 3.
///
///     buffer 0   values          stored entries x 8 bytes
///     buffer 1   column indices  stored entries x 4 bytes, zero-based
///     buffer 2   row pointers    (rows + 1) x 4 bytes, zero-based
///     buffer 3   diagonal        rows x 8 bytes; optional for a general matrix
///
/// A copy has the same configuration and the same buffers. Buffers belong to the caller throughout.
///
/// Errors are ORXSimException: viewDoesNotFit (21) names the dimension or the buffer and both sizes;
/// wrongState (30) means that another call has to come before; staleIdentifier (10) that the file was closed
/// or the distribution abandoned with its transaction; writeFailed (70) a read-only file, a full disk, or a
/// child of a fork; damaged (42) and readFailed (71) a drawer that cannot be read. After an error the
/// distribution is as before, with one exception: when a write of cells fails, cells of the selection may be
/// partly written, but no others, and a drawer that this write has created stays.
class ORX_EXPORT ORXSimTransfer {
public:
  static constexpr int maxBuffers = 4;

  /// A transfer on a distribution, without direction, selection and buffers; it shares the distribution's
  /// record.
  explicit ORXSimTransfer(ORXSimDistribution const& distribution);
  ~ORXSimTransfer();
  ORXSimTransfer(ORXSimTransfer const&) = default;
  ORXSimTransfer& operator=(ORXSimTransfer const&) = default;

  // Direction; both may be set

  ORXSimTransfer& SetRead() noexcept;
  ORXSimTransfer& SetWrite() noexcept;

  // Creation and extension of the drawer

  /// The next write creates a drawer that is stored whole, over the selected member sets; a dimension without
  /// a selection gets all members of its collection. The drawer replaces a former drawer.
  ORXSimTransfer& SetMakeNewDrawer() noexcept;
  /// Does the same with a drawer stored in chunks: `chunks` has one length in cells per dimension, each at
  /// least 1; a length beyond the dimension's size means the whole dimension.
  ORXSimTransfer& SetMakeNewDrawerChunked(ORXSimArray<int> const& chunks);
  /// Sets the value of cells that are created but not written; 0 unless it is called. Integer cells need a
  /// whole number of 32 bits, which CheckView tests (21).
  ORXSimTransfer& SetInitializationValue(ORXSimRangeValue const& value) noexcept;
  /// Creates the drawer and fills it with the initialization value; no buffer is involved. Needs SetWrite and
  /// SetMakeNewDrawer or SetMakeNewDrawerChunked, and no sparse serialization, else wrongState (30).
  ORXSimTransfer& InitializePersistentDrawer();
  /// Names the member set whose labels InitializeExtension appends along the dimension of their collection.
  ORXSimTransfer& SetDimExtension(ORXSimCSetID const& members) noexcept;
  /// Appends the members of SetDimExtension, which it needs (30), to a dense drawer that can be extended,
  /// else viewDoesNotFit (21). The new cells get the initialization value or, when this transfer has none,
  /// the value that the drawer was created with.
  ORXSimTransfer& InitializeExtension();

  // Selection; a `dim` outside of 0 ... number of dimensions - 1 raises invalidArgument (20)

  /// Selects the members of a set, in its order. A drawer that is created has these members along `dim`.
  ORXSimTransfer& SetDim(int dim, ORXSimCSetID const& members);
  /// Selects the positions first ... last of an existing drawer, both inclusive; `collection` is null or the
  /// collection of the dimension.
  ORXSimTransfer& SetDimOrdinalRange(int dim, ORXSimCollectionID const& collection, int first, int last);
  /// Raises viewDoesNotFit (21) when the selections, the chunks or the extension do not fit the distribution:
  /// a member set that does not exist or has a member that the drawer lacks, positions beyond its end.
  ORXSimTransfer& CheckView();

  // Buffers

  /// Lends `bytes` bytes at `data` as buffer 0 ... 3 until RelinquishBuffers. There may be more bytes than
  /// the selection needs; only the leading ones are used. Another index and negative bytes raise
  /// invalidArgument (20).
  ORXSimTransfer& SetBuffer(int index, void* data, std::int64_t bytes);
  /// Does the same for a write, which only reads the buffer.
  ORXSimTransfer& SetBuffer(int index, void const* data, std::int64_t bytes);
  /// Accepts false, the default, for buffers without padding between cells; true raises invalidArgument (20).
  ORXSimTransfer& SetBufferPadding(bool padding);
  /// Detaches all buffers.
  ORXSimTransfer& RelinquishBuffers() noexcept;

  // Serialization

  /// Sets the form of the buffers and of a new drawer, dense unless it is called. An existing drawer must
  /// have this form, else viewDoesNotFit (21); only a symmetric one has the dense form too. A new symmetric
  /// drawer needs cells of double precision, and along both dimensions the same members of one collection and
  /// the same chunk length.
  ORXSimTransfer& SetSerialization(ORXSimSerializationType const& serialization) noexcept;
  /// Sets the number of stored entries of a sparse write, which needs it.
  ORXSimTransfer& SetSparseNNonzero(int count) noexcept;

  // Execution; the view is checked first

  /// Creates the drawer that SetMakeNewDrawer or SetMakeNewDrawerChunked asked for, if any, and writes the
  /// attached buffers into the selection. A sparse matrix is always written into a new drawer. Needs SetWrite
  /// (30).
  ORXSimTransfer& ExecWrite();
  /// Fills the attached buffers from the selection. Needs SetRead (30). The result belongs to this transfer
  /// and is valid until the next execution.
  ORXSimTransientDrawer const& ExecRead();

private:
  struct Buffer {
    void* data = nullptr;
    std::int64_t bytes = 0;
  };
  enum class NewDrawer : int { No, Whole, Chunked };

  ORX_LOCAL orx::sim::DistributionRecord& Record() const;
  ORX_LOCAL ORXSimTransfer& SetSelection(int dim, ORXSimDimSelection const& selection);
  ORX_LOCAL void CheckForm();
  ORX_LOCAL void CheckSelections() const;
  ORX_LOCAL void CheckBuffer(int index, std::int64_t bytesNeeded) const;
  ORX_LOCAL std::shared_ptr<orx::sim::Drawer> DrawerOverSelection() const;
  ORX_LOCAL void CreateDenseDrawer();
  ORX_LOCAL void TransferDense(bool isWrite);
  ORX_LOCAL orx::store::SparseArrays AttachedArrays() const;
  ORX_LOCAL void WriteSparse();
  ORX_LOCAL void ReadSparse();

  ORXSimDistribution m_distribution;
  ORXSimArray<ORXSimDimSelection> m_selections; ///< of each dimension
  ORXSimArray<int> m_chunks;
  ORXSimRangeValue m_initialValue;
  ORXSimSerializationType m_serialization;
  ORXSimCSetID m_extension;
  std::array<Buffer, maxBuffers> m_buffers;
  int m_entries = -1; ///< number of stored entries of a sparse write; -1: not set
  NewDrawer m_newDrawer = NewDrawer::No;
  bool m_hasInitialValue = false;
  bool m_isRead = false;
  bool m_isWrite = false;
  /// Shape of the drawer that the selections were checked against; 0: they changed since, or never were.
  std::uint64_t m_checkedShape = 0;
  ORXSimTransientDrawer m_result;
};
