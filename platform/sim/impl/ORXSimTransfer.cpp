#include "sim/ORXSimTransfer.h"

#include "sim/impl/OpenDatabase.h"
#include "sim/impl/RaiseError.h"
#include "sim/impl/Selection.h"
#include "sim/impl/store/SparseDrawer.h"
#include "sim/impl/store/SymmetricDrawer.h"

using namespace orx::sim;

ORXSimTransfer::ORXSimTransfer(ORXSimDistribution const& distribution)
    : m_distribution(distribution), m_selections(distribution.NumDimensions()) {}

ORXSimTransfer::~ORXSimTransfer() = default;

DistributionRecord& ORXSimTransfer::Record() const {
  return RequireRecord(m_distribution.m_participation.Record(), "transfer");
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
  m_checkedShape = 0;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetMakeNewDrawerChunked(ORXSimArray<int> const& chunks) {
  m_newDrawer = NewDrawer::Chunked;
  m_chunks = chunks;
  m_checkedShape = 0;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetInitializationValue(ORXSimRangeValue const& value) noexcept {
  m_initialValue = value;
  m_hasInitialValue = true;
  m_checkedShape = 0;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetDimExtension(ORXSimCSetID const& members) noexcept {
  m_extension = members;
  m_checkedShape = 0;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetSelection(int dim, ORXSimDimSelection const& selection) {
  if (dim < 0 || dim >= m_selections.Size())
    RaiseError(ORXSimException::invalidArgument, "There is no dimension " + std::to_string(dim) +
                                                     " to select along: the distribution has " +
                                                     std::to_string(m_selections.Size()) + ".");
  m_selections[dim] = selection;
  m_checkedShape = 0;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetDim(int dim, ORXSimCSetID const& members) {
  return SetSelection(dim, {.kind = ORXSimDimSelection::Kind::Set, .set = members, .collection = {}});
}

ORXSimTransfer& ORXSimTransfer::SetDimOrdinalRange(int dim, ORXSimCollectionID const& collection, int first,
                                                   int last) {
  return SetSelection(dim, {.kind = ORXSimDimSelection::Kind::Range,
                            .set = {},
                            .collection = collection,
                            .first = first,
                            .last = last});
}

ORXSimTransfer& ORXSimTransfer::SetBuffer(int index, void* data, std::int64_t bytes) {
  if (index < 0 || index >= maxBuffers || bytes < 0)
    RaiseError(ORXSimException::invalidArgument,
               "Buffer " + std::to_string(index) + " of " + std::to_string(bytes) +
                   " bytes cannot be attached: expected a buffer from 0 to 3 and at least 0 bytes.");
  m_buffers[static_cast<std::size_t>(index)] = {.data = data, .bytes = bytes};
  // After CheckView a buffer that is too small is refused here, and not only by the execution.
  if (m_checkedShape != 0 && index == 0 && !m_serialization.IsSparse()) {
    CheckSelections(); // the drawer may have been replaced since CheckView
    CheckBuffer(0, SelectedBytes(Record(), m_selections));
  }
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetBuffer(int index, void const* data, std::int64_t bytes) {
  return SetBuffer(index, const_cast<void*>(data), bytes); // ExecWrite only reads it
}

ORXSimTransfer& ORXSimTransfer::SetBufferPadding(bool padding) {
  if (padding) RaiseError(ORXSimException::invalidArgument, "Padded buffers are not supported.");
  return *this;
}

ORXSimTransfer& ORXSimTransfer::RelinquishBuffers() noexcept {
  m_buffers = {};
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetSerialization(ORXSimSerializationType const& serialization) noexcept {
  m_serialization = serialization;
  m_checkedShape = 0;
  return *this;
}

ORXSimTransfer& ORXSimTransfer::SetSparseNNonzero(int count) noexcept {
  m_entries = count;
  m_checkedShape = 0;
  return *this;
}

// Checking

ORXSimTransfer& ORXSimTransfer::CheckView() {
  CheckForm();
  if (m_checkedShape != 0 && !m_serialization.IsSparse()) CheckMembers(Record(), m_selections);
  return *this;
}

/// Checks everything but that the drawer has each selected member, which executions check when they look the
/// members up.
void ORXSimTransfer::CheckForm() {
  DistributionRecord const& record = Record();
  if (m_newDrawer != NewDrawer::No) {
    CheckNewSets(record, m_selections);
    if (m_newDrawer == NewDrawer::Chunked) CheckChunkLengths(record, m_chunks);
    CheckInitialValue(record, m_initialValue);
    if (m_serialization.IsSparse()) CheckSparsePossible(record);
    if (m_serialization.IsDenseSym()) CheckSymmetricPossible(record, m_selections, m_chunks);
  } else if (!m_extension.IsNull()) {
    CheckExtension(record, m_extension, m_initialValue);
  } else {
    CheckSelections();
  }
  m_checkedShape = m_newDrawer == NewDrawer::No && m_extension.IsNull() ? record.drawer->shape : 0;
}

/// Checks the selections, unless they were checked against the present shape of the drawer.
void ORXSimTransfer::CheckSelections() const {
  DistributionRecord const& record = Record();
  if (record.drawer != nullptr && record.drawer->shape == m_checkedShape) return;
  orx::sim::CheckSelections(record, m_selections, m_serialization);
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

std::shared_ptr<Drawer> ORXSimTransfer::DrawerOverSelection() const {
  DistributionRecord const& record = Record();
  Context& context = record.InContext();
  auto drawer = std::make_shared<Drawer>();
  drawer->serialization = m_serialization;
  for (int dim = 0; dim < record.Rank(); ++dim) {
    ORXSimDimSelection const& selection = m_selections[dim];
    ORXSimCollectionID const collection = record.Collection(dim);
    ORXSimCSetID const set =
        selection.kind == ORXSimDimSelection::Kind::Set
            ? selection.set
            : context.AddSet(collection, context.FindRecord(collection).members.AllLabels(), false);
    drawer->sets.push_back(set.Data().memberSet);
    drawer->sizes.push_back(context.FindRecord(set).members->Size());
  }
  for (int const length : m_chunks)
    drawer->chunks.push_back(length);
  return drawer;
}

void ORXSimTransfer::CreateDenseDrawer() {
  DistributionRecord& record = Record();
  Context& context = record.InContext();
  context.Database().RequireWritable("create a drawer");
  auto drawer = DrawerOverSelection();
  auto const cell = record.range.Key() == ORXSimTypeKey::Double ? orx::store::CellType::Double
                                                                : orx::store::CellType::Int32;
  orx::store::DatabaseFile& file = context.Database().File();
  if (m_serialization.IsDenseSym()) {
    drawer->dense = orx::store::SymmetricDrawer::Create(
        file, drawer->sizes[0], drawer->chunks.empty() ? 0 : drawer->chunks[0], m_initialValue.Value());
  } else {
    drawer->dense =
        orx::store::DenseDrawer::Create(file, cell, drawer->sizes, drawer->chunks, m_initialValue.Value());
  }
  context.InstallDrawer(record, std::move(drawer));
  m_newDrawer = NewDrawer::No;
  m_checkedShape = 0;
}

ORXSimTransfer& ORXSimTransfer::InitializePersistentDrawer() {
  DistributionRecord const& record = Record();
  if (m_newDrawer == NewDrawer::No || !m_isWrite || m_serialization.IsSparse())
    RaiseError(ORXSimException::wrongState,
               "Initializing a drawer of " + record.Name() +
                   " needs a dense transfer with SetWrite and SetMakeNewDrawer or SetMakeNewDrawerChunked.");
  CheckView();
  CreateDenseDrawer();
  return *this;
}

ORXSimTransfer& ORXSimTransfer::InitializeExtension() {
  DistributionRecord& record = Record();
  if (m_extension.IsNull())
    RaiseError(ORXSimException::wrongState, "Extending " + record.Name() + " needs SetDimExtension before.");
  CheckExtension(record, m_extension, m_initialValue);
  Context& context = record.InContext();
  context.Database().RequireWritable("extend a drawer");
  Drawer& drawer = *record.drawer;
  int const dim = DimensionOf(record, m_extension.Collection());
  ORXSimCSetID const longer =
      context.AddJoinedSet(record.Collection(dim), drawer.sets[static_cast<std::size_t>(dim)], m_extension);
  int const size = context.FindRecord(longer).members->Size();
  double const fill = m_hasInitialValue ? m_initialValue.Value() : drawer.dense->Fill();
  drawer.dense->Extend(drawer.sizes, dim, size, fill);
  context.RecordExtension(record, dim, longer.Data().memberSet);
  m_extension = {};
  m_checkedShape = 0;
  return *this;
}

// Execution

void ORXSimTransfer::TransferDense(bool isWrite) {
  DistributionRecord const& record = Record();
  CheckBuffer(0, SelectedBytes(record, m_selections));
  Selection const selection(record, m_selections);
  orx::store::DenseDrawer& drawer = *record.drawer->dense;
  void* const buffer = m_buffers[0].data;
  if (isWrite && record.drawer->serialization.IsDenseSym())
    CheckMirrors(record, selection, static_cast<double const*>(buffer));
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
  DistributionRecord& record = Record();
  Context& context = record.InContext();
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
                                                    m_entries, AttachedArrays());
  context.InstallDrawer(record, std::move(drawer));
  m_newDrawer = NewDrawer::No;
  m_checkedShape = 0;
}

orx::store::SparseArrays ORXSimTransfer::AttachedArrays() const {
  return {.values = static_cast<double*>(m_buffers[0].data),
          .columnIndices = static_cast<std::int32_t*>(m_buffers[1].data),
          .rowPointers = static_cast<std::int32_t*>(m_buffers[2].data),
          .diagonal = static_cast<double*>(m_buffers[3].data)};
}

void ORXSimTransfer::ReadSparse() {
  DistributionRecord const& record = Record();
  orx::store::SparseDrawer& drawer = *record.drawer->sparse;
  ORXSimDrawerDescription const facts = record.Describe();
  int const itemBytes[maxBuffers] = {8, 4, 4, 8};
  for (int index = 0; index < maxBuffers; ++index)
    if (m_buffers[static_cast<std::size_t>(index)].data != nullptr)
      CheckBuffer(index, facts.DataSizeItems(index) * itemBytes[index]);
  if (m_buffers[3].data != nullptr && !drawer.HasDiagonal()) RefuseView(record, "its drawer has no diagonal");
  drawer.Read(AttachedArrays());
  m_result.m_items = drawer.Entries();
}

ORXSimTransfer& ORXSimTransfer::ExecWrite() {
  DistributionRecord const& record = Record();
  if (!m_isWrite)
    RaiseError(ORXSimException::wrongState, "Writing to " + record.Name() + " needs SetWrite before.");
  CheckForm();
  if (m_serialization.IsSparse()) {
    WriteSparse();
    return *this;
  }
  if (m_newDrawer != NewDrawer::No) {
    CheckBuffer(0, DrawerBytes(record, *DrawerOverSelection()));
    CreateDenseDrawer();
  } else {
    CheckSelections(); // CheckForm does not when an extension is configured
  }
  TransferDense(true);
  return *this;
}

ORXSimTransientDrawer const& ORXSimTransfer::ExecRead() {
  DistributionRecord const& record = Record();
  if (!m_isRead)
    RaiseError(ORXSimException::wrongState, "Reading from " + record.Name() + " needs SetRead before.");
  if (m_newDrawer != NewDrawer::No) RefuseView(record, "a new drawer can be written, not read");
  CheckSelections();
  if (m_serialization.IsSparse()) {
    ReadSparse();
  } else {
    TransferDense(false);
  }
  return m_result;
}
