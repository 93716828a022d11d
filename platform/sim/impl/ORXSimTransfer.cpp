#include "sim/ORXSimTransfer.h"

#include "sim/ORXSimException.h"
#include "sim/impl/OpenDatabase.h"
#include "sim/impl/Selection.h"
#include "sim/impl/store/DenseDrawer.h"
#include "sim/impl/store/SparseDrawer.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace {

[[noreturn]] void RefuseView(orx::sim::DistributionRecord const& record, std::string const& text) {
  ORXSimException(ORXSimException::viewDoesNotFit,
                  "The view does not fit " + record.Name() + ": " + text + ".")
      .Throw(__FILE__, __LINE__);
}

/// Number of bytes of cells, count(dim) of them along each dimension. Raises viewDoesNotFit when it exceeds
/// 64 bits: sets that repeat labels may select any number of cells.
template<class Count>
std::int64_t BytesOf(orx::sim::DistributionRecord const& record, Count count) {
  std::int64_t bytes = record.range.CellBytes();
  bool isEmpty = false;
  bool isTooMuch = false;
  for (int dim = 0; dim < record.Rank(); ++dim) {
    isEmpty |= count(dim) == 0;
    isTooMuch |= __builtin_mul_overflow(bytes, std::int64_t{count(dim)}, &bytes);
  }
  if (isEmpty) return 0;
  if (isTooMuch) RefuseView(record, "more cells are selected than any buffer holds");
  return bytes;
}

std::string Along(int dim) { return "along dimension " + std::to_string(dim) + " "; }

} // namespace

ORXSimTransfer::ORXSimTransfer(ORXSimDistribution const& distribution)
    : m_distribution(distribution), m_selections(distribution.NumDimensions()) {}

ORXSimTransfer::~ORXSimTransfer() = default;

orx::sim::DistributionRecord& ORXSimTransfer::Record() const {
  orx::sim::DistributionRecord* const record = m_distribution.m_participation.Record();
  if (record == nullptr)
    ORXSimException(ORXSimException::wrongState, "The transfer is on no distribution.")
        .Throw(__FILE__, __LINE__);
  record->InContext();
  return *record;
}

// Configuration

ORXSimTransfer& ORXSimTransfer::SetRead() noexcept {
  m_isRead = true;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetWrite() noexcept {
  m_isWrite = true;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetMakeNewDrawer() noexcept {
  m_newDrawer = NewDrawer::Whole;
  m_chunks.Clear();
  m_isChecked = false;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetMakeNewDrawerChunked(ORXSimArray<int> const& chunks) {
  m_newDrawer = NewDrawer::Chunked;
  m_chunks = chunks;
  m_isChecked = false;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetInitializationValue(ORXSimRangeValue const& value) noexcept {
  m_initialValue = value;
  m_hasInitialValue = true;
  m_isChecked = false;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetDimExtension(ORXSimCSetID const& members) noexcept {
  m_extension = members;
  m_isChecked = false;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::Select(int dim, ORXSimDimSelection const& selection) {
  if (dim < 0 || dim >= m_selections.Size()) {
    ORXSimException(ORXSimException::invalidArgument, "There is no dimension " + std::to_string(dim) +
                                                          " to select along: the distribution has " +
                                                          std::to_string(m_selections.Size()) + ".")
        .Throw(__FILE__, __LINE__);
  }
  m_selections[dim] = selection;
  m_isChecked = false;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetDim(int dim, ORXSimCSetID const& members) {
  return Select(dim, {.kind = ORXSimDimSelection::Kind::Set, .set = members, .collection = {}});
}

ORXSimTransfer& ORXSimTransfer::SetDimOrdinalRange(int dim, ORXSimCollectionID const& collection, int first,
                                                   int last) {
  return Select(dim, {.kind = ORXSimDimSelection::Kind::Range,
                      .set = {},
                      .collection = collection,
                      .first = first,
                      .last = last});
}

ORXSimTransfer& ORXSimTransfer::SetBuffer(int index, void* data, std::int64_t bytes) {
  if (index < 0 || index >= maxBuffers || bytes < 0) {
    ORXSimException(ORXSimException::invalidArgument,
                    "Buffer " + std::to_string(index) + " of " + std::to_string(bytes) +
                        " bytes cannot be attached: expected a buffer from 0 to 3 and at least 0 bytes.")
        .Throw(__FILE__, __LINE__);
  }
  m_buffers[static_cast<std::size_t>(index)] = {.data = data, .bytes = bytes};
  // After CheckView a buffer that is too small is refused here, and not only by the execution.
  if (m_isChecked && index == 0 && !m_serialization.IsSparse()) {
    CheckSelections(); // the drawer may have been replaced since CheckView
    CheckBuffer(0, SelectedBytes());
  }
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetBuffer(int index, void const* data, std::int64_t bytes) {
  return SetBuffer(index, const_cast<void*>(data), bytes); // ExecWrite only reads it
}

ORXSimTransfer& ORXSimTransfer::SetBufferPadding(bool padding) {
  if (padding)
    ORXSimException(ORXSimException::invalidArgument, "Padded buffers are not supported.")
        .Throw(__FILE__, __LINE__);
  return *this;
}

ORXSimTransfer& ORXSimTransfer::RelinquishBuffers() noexcept {
  m_buffers = {};
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetSerialization(ORXSimSerializationType const& serialization) noexcept {
  m_serialization = serialization;
  m_isChecked = false;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetSparseNNonzero(int count) noexcept {
  m_entries = count;
  m_isChecked = false;
  return *this;
}

// Checking

ORXSimTransfer& ORXSimTransfer::CheckView() {
  CheckForm();
  if (m_isChecked && !m_serialization.IsSparse()) orx::sim::CheckMembers(Record(), m_selections);
  return *this;
}

/// Checks everything but that the drawer has each selected member, which executions check when they look the
/// members up.
void ORXSimTransfer::CheckForm() {
  Record();
  if (m_newDrawer != NewDrawer::No) {
    CheckNewDrawer();
  } else if (!m_extension.IsNull()) {
    CheckExtension();
  } else {
    CheckSelections();
  }
  m_isChecked = m_newDrawer == NewDrawer::No && m_extension.IsNull();
}

void ORXSimTransfer::CheckNewDrawer() const {
  orx::sim::DistributionRecord const& record = Record();
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = m_selections[dim];
    if (selection.kind == ORXSimDimSelection::Kind::Range)
      RefuseView(record, "a new drawer is made over member sets, not over a range of positions");
    if (selection.kind == ORXSimDimSelection::Kind::Set) orx::sim::CheckSet(record, dim, selection.set);
  }
  if (m_newDrawer == NewDrawer::Chunked) {
    if (m_chunks.Size() != record.Rank())
      RefuseView(record, "there are " + std::to_string(m_chunks.Size()) + " chunk lengths, expected " +
                             std::to_string(record.Rank()));
    for (int dim = 0; dim < record.Rank(); ++dim)
      if (m_chunks[dim] < 1)
        RefuseView(record, Along(dim) + "the chunk length is " + std::to_string(m_chunks[dim]) +
                               ", expected at least 1");
  }
  CheckInitialValue();
  if (m_serialization.IsSparse() && (record.Rank() != 2 || record.range.Key() != ORXSimTypeKey::Double))
    RefuseView(record, "a sparse matrix needs two dimensions and cells of double precision");
}

void ORXSimTransfer::CheckInitialValue() const {
  double const initial = m_initialValue.Value();
  bool const isInteger = initial == std::trunc(initial) && std::abs(initial) <= 2147483647.0;
  if (Record().range.Key() == ORXSimTypeKey::Int32 && !isInteger)
    RefuseView(Record(), "the initialization value is not a 32-bit integer");
}

void ORXSimTransfer::CheckSelections() const {
  orx::sim::DistributionRecord const& record = Record();
  if (record.drawer == nullptr) RefuseView(record, "it has no drawer yet");
  record.OpenDrawer();
  if (m_serialization.IsSparse() != record.drawer->serialization.IsSparse())
    RefuseView(record, m_serialization.IsSparse() ? "its drawer is dense, the transfer sparse"
                                                  : "its drawer is sparse, the transfer dense");
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = m_selections[dim];
    int const size = record.drawer->sizes[static_cast<std::size_t>(dim)];
    if (selection.kind == ORXSimDimSelection::Kind::Set) {
      orx::sim::CheckSet(record, dim, selection.set);
      if (m_serialization.IsSparse() &&
          selection.set.Data().memberSet != record.drawer->sets[static_cast<std::size_t>(dim)])
        RefuseView(record, Along(dim) + "other members are selected than those of the sparse drawer");
    } else if (selection.kind == ORXSimDimSelection::Kind::Range) {
      if (!selection.collection.IsNull()) orx::sim::CheckCollection(record, dim, selection.collection);
      if (selection.first < 0 || selection.last >= size || selection.last < selection.first)
        RefuseView(record, Along(dim) + "the positions are " + std::to_string(selection.first) + " to " +
                               std::to_string(selection.last) + ", the drawer has 0 to " +
                               std::to_string(size - 1));
    }
    if (m_serialization.IsSparse() && orx::sim::SelectedCount(record, selection, dim) != size)
      RefuseView(record, Along(dim) + "a part is selected, but a sparse drawer is read and written whole");
  }
}

void ORXSimTransfer::CheckExtension() const {
  orx::sim::DistributionRecord const& record = Record();
  if (record.drawer == nullptr) RefuseView(record, "it has no drawer yet");
  record.OpenDrawer();
  if (record.drawer->dense == nullptr || !record.drawer->dense->IsExtendable())
    RefuseView(record, "its drawer cannot be extended");
  CheckInitialValue();
  int const dim = orx::sim::DimensionOf(record, m_extension.Collection());
  std::int64_t const size = std::int64_t{record.drawer->sizes[static_cast<std::size_t>(dim)]} +
                            orx::sim::MembersOf(record, m_extension).Size();
  if (size > std::numeric_limits<int>::max())
    RefuseView(record,
               Along(dim) + "there would be " + std::to_string(size) + " cells, expected at most 2147483647");
}

std::int64_t ORXSimTransfer::SelectedBytes() const {
  orx::sim::DistributionRecord const& record = Record();
  return BytesOf(record, [&](int dim) { return orx::sim::SelectedCount(record, m_selections[dim], dim); });
}

void ORXSimTransfer::CheckBuffer(int index, std::int64_t bytesNeeded) const {
  Buffer const& buffer = m_buffers[static_cast<std::size_t>(index)];
  if (buffer.data == nullptr && bytesNeeded > 0)
    RefuseView(Record(), "buffer " + std::to_string(index) + " is not attached");
  if (buffer.bytes < bytesNeeded)
    RefuseView(Record(), "buffer " + std::to_string(index) + " has " + std::to_string(buffer.bytes) +
                             " bytes, the selection needs " + std::to_string(bytesNeeded));
}

// Creation and extension

std::shared_ptr<orx::sim::Drawer> ORXSimTransfer::DrawerOverSelection() const {
  orx::sim::DistributionRecord const& record = Record();
  orx::sim::Context& context = record.InContext();
  auto drawer = std::make_shared<orx::sim::Drawer>();
  drawer->serialization = m_serialization;
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = m_selections[dim];
    ORXSimCollectionID const collection = record.Collection(dim);
    ORXSimCSetID const set = selection.kind == ORXSimDimSelection::Kind::Set
                                 ? selection.set
                                 : context.AddSet(collection, context.Find(collection).members.All(), false);
    drawer->sets.push_back(set.Data().memberSet);
    drawer->sizes.push_back(context.Find(set).members->Size());
  }
  for (int const length : m_chunks)
    drawer->chunks.push_back(length);
  return drawer;
}

void ORXSimTransfer::CreateDenseDrawer() {
  orx::sim::DistributionRecord& record = Record();
  orx::sim::Context& context = record.InContext();
  context.Database().RequireWritable("create a drawer");
  auto drawer = DrawerOverSelection();
  auto const cell = record.range.Key() == ORXSimTypeKey::Double ? orx::store::CellType::Double
                                                                : orx::store::CellType::Int32;
  drawer->dense = orx::store::DenseDrawer::Create(context.Database().File(), cell, drawer->sizes,
                                                  drawer->chunks, m_initialValue.Value());
  context.InstallDrawer(record, std::move(drawer));
  m_newDrawer = NewDrawer::No;
  m_isChecked = false;
}

ORXSimTransfer& ORXSimTransfer::InitializePersistentDrawer() {
  orx::sim::DistributionRecord const& record = Record();
  if (m_newDrawer == NewDrawer::No || !m_isWrite || m_serialization.IsSparse()) {
    ORXSimException(
        ORXSimException::wrongState,
        "Initializing a drawer of " + record.Name() +
            " needs a dense transfer with SetWrite and SetMakeNewDrawer or SetMakeNewDrawerChunked.")
        .Throw(__FILE__, __LINE__);
  }
  CheckView();
  CreateDenseDrawer();
  return *this;
}

ORXSimTransfer& ORXSimTransfer::InitializeExtension() {
  orx::sim::DistributionRecord& record = Record();
  if (m_extension.IsNull()) {
    ORXSimException(ORXSimException::wrongState,
                    "Extending " + record.Name() + " needs SetDimExtension before.")
        .Throw(__FILE__, __LINE__);
  }
  CheckExtension();
  orx::sim::Context& context = record.InContext();
  context.Database().RequireWritable("extend a drawer");
  orx::sim::Drawer& drawer = *record.drawer;
  int const dim = orx::sim::DimensionOf(record, m_extension.Collection());
  ORXSimCSetID const longer =
      context.AddJoinedSet(record.Collection(dim), drawer.sets[static_cast<std::size_t>(dim)], m_extension);
  int const size = context.Find(longer).members->Size();
  double const fill = m_hasInitialValue ? m_initialValue.Value() : drawer.dense->Fill();
  drawer.dense->Extend(drawer.sizes, dim, size, fill);
  context.RecordExtension(record, dim, longer.Data().memberSet);
  m_extension = {};
  m_isChecked = false;
  return *this;
}

// Execution

void ORXSimTransfer::MoveDense(bool isWrite) {
  orx::sim::DistributionRecord const& record = Record();
  CheckBuffer(0, SelectedBytes());
  orx::sim::Selection const selection(record, m_selections);
  orx::store::DenseDrawer& drawer = *record.drawer->dense;
  void* const buffer = m_buffers[0].data;
  selection.ForEachBox([&](orx::store::DrawerBox const& box) {
    if (isWrite) {
      drawer.Write(box, selection.BufferCounts(), buffer);
    } else {
      drawer.Read(box, selection.BufferCounts(), buffer);
    }
  });
  m_result.m_items = selection.Cells();
}

void ORXSimTransfer::WriteSparse() {
  orx::sim::DistributionRecord& record = Record();
  orx::sim::Context& context = record.InContext();
  context.Database().RequireWritable("write a sparse matrix");
  if (m_newDrawer == NewDrawer::No) RefuseView(record, "a sparse matrix is written into a new drawer only");
  if (m_entries < 0) RefuseView(record, "the number of stored entries is not set");
  auto drawer = DrawerOverSelection();
  drawer->chunks.clear();
  std::int64_t const rows = drawer->sizes[0];
  bool const isSymmetric = m_serialization.Kind() == ORXSimSerializationType::Layout::SparseSym;
  CheckBuffer(0, std::int64_t{8} * m_entries);
  CheckBuffer(1, std::int64_t{4} * m_entries);
  CheckBuffer(2, 4 * (rows + 1));
  bool const hasDiagonal = m_buffers[3].data != nullptr;
  if (hasDiagonal || isSymmetric) CheckBuffer(3, 8 * rows);
  drawer->sparse = orx::store::SparseDrawer::Create(context.Database().File(), rows, drawer->sizes[1],
                                                    m_entries, SparseArrays());
  context.InstallDrawer(record, std::move(drawer));
  m_newDrawer = NewDrawer::No;
  m_isChecked = false;
}

orx::store::SparseArrays ORXSimTransfer::SparseArrays() const {
  return {.values = static_cast<double*>(m_buffers[0].data),
          .columnIndices = static_cast<std::int32_t*>(m_buffers[1].data),
          .rowPointers = static_cast<std::int32_t*>(m_buffers[2].data),
          .diagonal = static_cast<double*>(m_buffers[3].data)};
}

void ORXSimTransfer::ReadSparse() {
  orx::sim::DistributionRecord const& record = Record();
  orx::store::SparseDrawer& drawer = *record.drawer->sparse;
  ORXSimDrawerDescription const facts = record.Describe();
  int const itemBytes[maxBuffers] = {8, 4, 4, 8};
  for (int index = 0; index < maxBuffers; ++index)
    if (m_buffers[static_cast<std::size_t>(index)].data != nullptr)
      CheckBuffer(index, facts.DataSizeItems(index) * itemBytes[index]);
  if (m_buffers[3].data != nullptr && !drawer.HasDiagonal()) RefuseView(record, "its drawer has no diagonal");
  drawer.Read(SparseArrays());
  m_result.m_items = drawer.Entries();
}

ORXSimTransfer& ORXSimTransfer::ExecWrite() {
  orx::sim::DistributionRecord const& record = Record();
  if (!m_isWrite)
    ORXSimException(ORXSimException::wrongState, "Writing to " + record.Name() + " needs SetWrite before.")
        .Throw(__FILE__, __LINE__);
  CheckForm();
  if (m_serialization.IsSparse()) {
    WriteSparse();
    return *this;
  }
  if (m_newDrawer != NewDrawer::No) {
    auto const planned = DrawerOverSelection();
    CheckBuffer(0, BytesOf(record, [&](int dim) { return planned->sizes[static_cast<std::size_t>(dim)]; }));
    CreateDenseDrawer();
  } else {
    CheckSelections(); // CheckForm does not when an extension is configured
  }
  MoveDense(true);
  return *this;
}

ORXSimTransientDrawer const& ORXSimTransfer::ExecRead() {
  orx::sim::DistributionRecord const& record = Record();
  if (!m_isRead)
    ORXSimException(ORXSimException::wrongState, "Reading from " + record.Name() + " needs SetRead before.")
        .Throw(__FILE__, __LINE__);
  if (m_newDrawer != NewDrawer::No) RefuseView(record, "a new drawer can be written, not read");
  CheckSelections();
  if (m_serialization.IsSparse()) {
    ReadSparse();
  } else {
    MoveDense(false);
  }
  return m_result;
}
