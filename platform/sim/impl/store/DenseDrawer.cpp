#include "sim/impl/store/DenseDrawer.h"

#include "file/TransactionalFile.h"
#include "sim/impl/RaiseError.h"
#include "sim/impl/store/Guarded.h"
#include "sim/impl/store/Hdf5.h"

#include <algorithm>
#include <limits>

namespace orx::store {

namespace {

constexpr std::int64_t largestDrawer = std::int64_t{1} << 60;
constexpr auto pageBytes = std::int64_t{file::PageOverlay::pageBytes};
constexpr std::int64_t metadataAllowance = 64 << 10;

std::string DescribeShape(std::span<std::int64_t const> numbers) {
  std::string text;
  for (std::int64_t const number : numbers)
    text += (text.empty() ? "" : " x ") + std::to_string(number);
  return text;
}

hid_t FileType(CellType cell) { return cell == CellType::Double ? H5T_IEEE_F64LE : H5T_STD_I32LE; }
hid_t MemoryType(CellType cell) { return cell == CellType::Double ? H5T_NATIVE_DOUBLE : H5T_NATIVE_INT32; }

/// The numbers as HDF5 takes them.
std::vector<hsize_t> AsHdf5(std::span<std::int64_t const> numbers) {
  return {numbers.begin(), numbers.end()};
}

Handle CreationOf(std::int64_t dataset, std::string const& path) {
  return CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of " + path);
}

} // namespace

DenseDrawer::DenseDrawer(DatabaseFile& file, CellType cell, int rank)
    : DrawerObject(file), m_cell(cell), m_rank(rank), m_copier(file.Bytes(), m_chunks, cell) {}

// Creation

std::unique_ptr<DenseDrawer> DenseDrawer::Create(DatabaseFile& file, CellType cell,
                                                 std::span<int const> sizes, std::span<int const> chunks,
                                                 double fill) {
  std::unique_ptr<DenseDrawer> drawer(new DenseDrawer(file, cell, static_cast<int>(sizes.size())));
  drawer->CreateDataset(sizes, chunks, fill);
  return drawer;
}

void DenseDrawer::CreateDataset(std::span<int const> sizes, std::span<int const> chunks, double fill) {
  m_chunks.SetExtents({sizes.begin(), sizes.end()});
  m_chunks.SetLengths(ChunkLengths(sizes, chunks, CellBytes()));
  m_fill = fill;
  Guarded(m_file, [&] { CreateFilled(fill); });
}

void DenseDrawer::CreateFilled(double fill) {
  RequirePossibleSize();
  std::uint64_t const freshFrom = ReserveChunks(m_chunks.CountChunks());
  MakeDataset(fill);
  if (!LookUpChunkOffsets(m_object.Get(), IsAllZeroBits(fill)))
    throw Hdf5Failure{.what = "creating a drawer", .cause = "not all of its chunks have space"};
  m_access = Access::Direct;
  for (std::uint64_t const offset : m_chunks.Offsets())
    m_copier.FillChunk(offset, freshFrom, fill);
  SaveLayout();
  // HDF5 visits every open object when it moves a link, so many new drawers must not stay open.
  m_object.Close();
}

void DenseDrawer::RequirePossibleSize() const {
  if (SaturatedBytes(m_chunks.Extents(), CellBytes()) <= largestDrawer) return;
  sim::RaiseError(ORXSimException::invalidArgument,
                  "A drawer of " + DescribeShape(m_chunks.Extents()) + " cells is larger than any file.");
}

/// Reserves the space of new chunks: HDF5 does not survive a full disk inside its own allocation. Returns the
/// offset from which on the file has never held anything.
std::uint64_t DenseDrawer::ReserveChunks(std::int64_t count) {
  std::int64_t const chunkSpace = CeilingDivision(m_copier.ChunkBytes(), pageBytes) * pageBytes;
  m_file.Bytes().ReserveGrowth(static_cast<std::uint64_t>(count * chunkSpace + metadataAllowance));
  return m_file.Bytes().FreshFrom();
}

void DenseDrawer::MakeDataset(double fill) {
  auto const extents = AsHdf5(m_chunks.Extents());
  std::vector<hsize_t> const unlimited(extents.size(), H5S_UNLIMITED);
  auto const lengths = AsHdf5(m_chunks.Lengths());
  Handle const space =
      CheckedId(H5Screate_simple(m_rank, extents.data(), unlimited.data()), "describing a drawer");
  Handle const creation = CheckedId(H5Pcreate(H5P_DATASET_CREATE), "describing a drawer");
  Checked(H5Pset_chunk(creation.Get(), m_rank, lengths.data()), "setting chunk lengths");
  Checked(H5Pset_fill_value(creation.Get(), H5T_NATIVE_DOUBLE, &fill), "setting the initialization value");
  Checked(H5Pset_alloc_time(creation.Get(), H5D_ALLOC_TIME_EARLY), "asking for early space");
  Checked(H5Pset_fill_time(creation.Get(), H5D_FILL_TIME_NEVER), "taking over the filling");
  m_pending = m_path = m_file.PendingPath();
  m_object = CheckedId(H5Dcreate2(m_file.Id(), m_path.c_str(), FileType(m_cell), space.Get(), H5P_DEFAULT,
                                  creation.Get(), H5P_DEFAULT),
                       "creating a drawer");
}

// Opening

std::unique_ptr<DenseDrawer> DenseDrawer::Open(DatabaseFile& file, std::string const& path, CellType cell,
                                               int rank) {
  std::unique_ptr<DenseDrawer> drawer(new DenseDrawer(file, cell, rank));
  drawer->OpenDataset(path);
  return drawer;
}

void DenseDrawer::OpenDataset(std::string const& path) {
  m_path = path;
  Guarded(m_file, [&] {
    ReadShape();
    ReleaseHandle();
  });
}

void DenseDrawer::RequireCells(std::span<int const> sizes) const {
  for (int dim = 0; dim < m_rank; ++dim) {
    int const size = sizes[static_cast<std::size_t>(dim)];
    if (Extent(dim) < size)
      throw DamageFound{m_path + " has the extent " + std::to_string(Extent(dim)) + " along dimension " +
                        std::to_string(dim) + ", its member set has " + std::to_string(size)};
  }
}

std::int64_t DenseDrawer::Dataset() {
  if (m_object.IsValid()) return m_object.Get();
  // Cells that HDF5 reads are read by the chunk, so HDF5 should keep a few chunks.
  Handle const access = AccessInsideFile(H5P_DATASET_ACCESS, m_path);
  constexpr std::size_t cacheBytes = 64 << 20;
  CheckedRead(H5Pset_chunk_cache(access.Get(), 12421, cacheBytes, 1.0), "opening " + m_path);
  m_object = CheckedReadId(H5Dopen2(m_file.Id(), m_path.c_str(), access.Get()), "opening " + m_path);
  return m_object.Get();
}

void DenseDrawer::ReleaseHandle() noexcept {
  if (m_access != Access::ThroughHdf5) m_object.Close();
}

void DenseDrawer::ReadShape() {
  std::int64_t const dataset = Dataset();
  ReadExtents(dataset);
  RequireNumbers(dataset);
  ReadProperties(dataset);
}

void DenseDrawer::ReadExtents(std::int64_t dataset) {
  std::string const what = "reading the shape of " + m_path;
  Handle const space = CheckedReadId(H5Dget_space(dataset), what);
  int const rank = H5Sget_simple_extent_ndims(space.Get());
  if (rank != m_rank)
    throw DamageFound{m_path + " has " + std::to_string(rank) + " dimensions, expected " +
                      std::to_string(m_rank)};
  std::vector<hsize_t> extents(static_cast<std::size_t>(rank));
  CheckedRead(H5Sget_simple_extent_dims(space.Get(), extents.data(), nullptr), what);
  for (hsize_t const extent : extents)
    if (extent > std::numeric_limits<int>::max()) throw DamageFound{m_path + " has an extent beyond 32 bits"};
  m_chunks.SetExtents({extents.begin(), extents.end()});
}

void DenseDrawer::RequireNumbers(std::int64_t dataset) const {
  Handle const type = CheckedReadId(H5Dget_type(dataset), "reading the type of " + m_path);
  H5T_class_t const kind = H5Tget_class(type.Get());
  if (kind != H5T_FLOAT && kind != H5T_INTEGER) throw DamageFound{m_path + " does not hold numbers"};
}

void DenseDrawer::ReadProperties(std::int64_t dataset) {
  Handle const creation = CreationOf(dataset, m_path);
  RequireOwnRawData(creation.Get(), m_path);
  CheckedRead(H5Pget_fill_value(creation.Get(), H5T_NATIVE_DOUBLE, &m_fill),
              "reading the fill value of " + m_path);
  H5D_alloc_time_t allocation = H5D_ALLOC_TIME_ERROR;
  CheckedRead(H5Pget_alloc_time(creation.Get(), &allocation), "reading the properties of " + m_path);
  m_isExtendable = H5Pget_layout(creation.Get()) == H5D_CHUNKED && H5Pget_nfilters(creation.Get()) == 0 &&
                   allocation == H5D_ALLOC_TIME_EARLY;
}

// Looking up chunks

void DenseDrawer::LookUpChunks() {
  if (m_access != Access::Unknown) return;
  if (m_chunks.Extents().empty()) ReadShape();
  bool const isDirect = LookUpOffsets(Dataset());
  m_access = isDirect ? Access::Direct : Access::ThroughHdf5;
  m_isExtendable = m_isExtendable && isDirect;
  ReleaseHandle();
}

/// Returns false when the cells can only be read through HDF5.
bool DenseDrawer::LookUpOffsets(std::int64_t dataset) {
  Handle const type = CheckedReadId(H5Dget_type(dataset), "reading the type of " + m_path);
  Handle const creation = CreationOf(dataset, m_path);
  if (H5Tequal(type.Get(), FileType(m_cell)) <= 0 || H5Pget_nfilters(creation.Get()) != 0) return false;
  H5D_layout_t const layout = H5Pget_layout(creation.Get());
  if (layout == H5D_CONTIGUOUS) return LookUpContiguous(dataset);
  if (layout != H5D_CHUNKED) return false;
  std::vector<hsize_t> lengths(static_cast<std::size_t>(m_rank));
  CheckedRead(H5Pget_chunk(creation.Get(), m_rank, lengths.data()), "reading the chunk lengths of " + m_path);
  m_chunks.SetLengths({lengths.begin(), lengths.end()});
  bool const haveSpace = LookUpChunkOffsets(dataset, false);
  CheckSavedLayout();
  return haveSpace;
}

/// Takes a contiguous dataset as one chunk. Returns false when the dataset has no space yet.
bool DenseDrawer::LookUpContiguous(std::int64_t dataset) {
  haddr_t const offset = H5Dget_offset(dataset);
  if (offset == HADDR_UNDEF) return false;
  std::vector<std::int64_t> lengths = m_chunks.Extents();
  for (std::int64_t& length : lengths)
    length = std::max<std::int64_t>(length, 1);
  m_chunks.SetLengths(std::move(lengths));
  m_chunks.SetOffsets({offset}, false);
  CheckOffsets();
  return true;
}

/// Returns false when a chunk has no space.
bool DenseDrawer::LookUpChunkOffsets(std::int64_t dataset, bool areUnwritten) {
  Handle const space = CheckedReadId(H5Dget_space(dataset), "reading the shape of a drawer");
  hsize_t count = 0;
  CheckedRead(H5Dget_num_chunks(dataset, space.Get(), &count), "counting chunks");
  if (static_cast<std::int64_t>(count) != m_chunks.CountChunks()) return false;
  m_chunks.FindOffsets([&](Indices const& firstCell) { return OffsetOfChunk(dataset, firstCell); },
                       areUnwritten);
  CheckOffsets();
  return true;
}

/// Lets HDF5 begin to read a chunk, and catches where: HDF5 finds a chunk that it reads at once, but
/// H5Dget_chunk_info walks from the first chunk on, which would be quadratic.
std::uint64_t DenseDrawer::OffsetOfChunk(std::int64_t dataset, Indices const& firstCell) const {
  std::vector<hsize_t> const first(firstCell.begin(), firstCell.begin() + m_rank);
  std::uint32_t filters = 0;
  char nothing = 0;
  file::FileRange const range = m_file.Bytes().FindRawData([&] {
    CheckedRead(H5Dread_chunk(dataset, H5P_DEFAULT, first.data(), &filters, &nothing), "looking a chunk up");
  });
  if (static_cast<std::int64_t>(range.bytes) != m_copier.ChunkBytes())
    throw DamageFound{m_path + " has a chunk of another length"};
  return range.offset;
}

void DenseDrawer::CheckOffsets() const {
  auto const misplaced = m_chunks.FindMisplaced(static_cast<std::uint64_t>(m_copier.ChunkBytes()),
                                                m_file.Bytes().EndOfAllocation());
  if (misplaced)
    throw DamageFound{"the cells of " + m_path + " at offset " + std::to_string(*misplaced) +
                      " lie outside of the file or on one another"};
}

// Saving

namespace {
std::uint64_t ObjectAddress(hid_t object) {
  H5O_info_t info;
  CheckedRead(H5Oget_info2(object, &info, H5O_INFO_BASIC), "looking an object up");
  return info.addr;
}
} // namespace

/// Raises DamageFound when the offsets differ from the saved ones: HDF5 guards object headers by
/// checksums, but not the tree that holds the offsets of chunks. The attribute means nothing in a copy of the
/// dataset that another program made; the header of the copy lies elsewhere.
void DenseDrawer::CheckSavedLayout() const {
  if (!HasAttribute(m_object, "layout")) return;
  std::vector<std::uint64_t> const saved = ReadWords(m_object, "layout");
  if (saved.size() != 2) throw DamageFound{m_path + " has a layout attribute of another kind"};
  if (saved[0] == ObjectAddress(m_object.Get()) && saved[1] != m_chunks.Checksum())
    throw DamageFound{m_path + " does not have its cells where they were written"};
}

void DenseDrawer::SaveLayout() {
  if (m_isLayoutSaved || m_access != Access::Direct) return;
  std::int64_t const dataset = Dataset();
  std::uint64_t const words[] = {ObjectAddress(dataset), m_chunks.Checksum()};
  WriteAttribute(m_object, "layout", words);
  m_isLayoutSaved = true;
}

void DenseDrawer::CutTo(std::span<int const> sizes) {
  if (m_chunks.Extents().empty()) LookUpChunks();
  bool isLonger = false;
  std::vector<std::int64_t> const wanted(sizes.begin(), sizes.end());
  for (std::size_t dim = 0; dim < wanted.size(); ++dim)
    isLonger |= m_chunks.Extents()[dim] > wanted[dim];
  if (!isLonger || !m_isExtendable) return;
  LookUpChunks();
  if (!m_isExtendable) return;
  SetExtents(wanted, false);
  m_chunks.MarkAllWritten();
}

/// Changes the extents of the dataset and returns the offsets of the chunks that are new. After a failure the
/// dataset is read again at its next use. The layout is saved at once, because a commit for another context
/// may come before the commit that saves this drawer.
std::vector<std::uint64_t> DenseDrawer::SetExtents(std::vector<std::int64_t> const& wanted,
                                                   bool areUnwritten) {
  auto const extents = AsHdf5(wanted);
  try {
    m_isLayoutSaved = false;
    Checked(H5Dset_extent(Dataset(), extents.data()), "changing the extents of a drawer");
    // HDF5's cache may hold fill values for the cells that are cut off. They must be written now: later, they
    // would overwrite cells that CellCopier has written.
    m_object.Close();
    std::vector<std::uint64_t> added = m_chunks.Resize(
        wanted, [&](Indices const& firstCell) { return OffsetOfChunk(Dataset(), firstCell); }, areUnwritten);
    SaveLayout();
    return added;
  } catch (...) {
    ForgetLayout();
    throw;
  }
}

void DenseDrawer::ForgetLayout() noexcept {
  m_object.Close();
  m_chunks.SetExtents({});
  m_access = Access::Unknown;
  // The attribute may belong to the former extents, and would be taken for a sign of damage.
  H5Adelete_by_name(m_file.Id(), m_path.c_str(), "layout", H5P_DEFAULT);
}

// Cells

void DenseDrawer::Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer) {
  if (m_access == Access::Unknown) Guarded(m_file, [&] { LookUpChunks(); });
  if (m_access == Access::ThroughHdf5) {
    Guarded(m_file, [&] { ReadThroughHdf5(box, bufferCounts, buffer); });
  } else {
    GuardedBytes(m_file, [&] { m_copier.Read(box, bufferCounts, buffer); });
  }
}

void DenseDrawer::RequireWritable() {
  if (m_access != Access::Direct && !m_file.IsReadOnly()) Guarded(m_file, [&] { LookUpChunks(); });
  char const* const reason =
      m_file.IsReadOnly() ? "the file was opened read-only"
      : m_access == Access::ThroughHdf5
          ? "another program wrote the drawer compressed, of other numbers, or without space"
          : nullptr;
  if (reason == nullptr) return;
  sim::RaiseError(ORXSimException::writeFailed,
                  "Writing to " + m_path + " of " + m_file.Path() + " is not possible: " + reason + ".");
}

namespace {

/// Runs `work` and raises its errors as writeFailed: callers tell a failed write by this code.
template<class Work>
void RaiseAsFailedWrite(std::string const& path, DatabaseFile const& file, Work&& work) {
  try {
    work();
  } catch (ORXSimException const& error) {
    if (error.Code() == ORXSimException::writeFailed) throw;
    sim::RaiseError(ORXSimException::writeFailed, "Writing to " + path + " of " + file.Path() +
                                                      " is not possible: " + error.AsString().AsText());
  }
}

} // namespace

void DenseDrawer::Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts,
                        void const* buffer) {
  RaiseAsFailedWrite(m_path, m_file, [&] {
    RequireWritable();
    GuardedBytes(m_file, [&] { m_copier.Write(box, bufferCounts, buffer); });
  });
}

void DenseDrawer::ReadThroughHdf5(DrawerBox const& box, std::span<std::int64_t const> bufferCounts,
                                  void* buffer) {
  auto const ranked = [this](Indices const& numbers) {
    return std::vector<hsize_t>(numbers.begin(), numbers.begin() + m_rank);
  };
  auto const first = ranked(box.first);
  auto const counts = ranked(box.counts);
  auto const bufferFirst = ranked(box.bufferFirst);
  auto const bufferShape = AsHdf5(bufferCounts);
  std::string const what = "reading cells of " + m_path;
  std::int64_t const dataset = Dataset();
  Handle const fileSpace = CheckedReadId(H5Dget_space(dataset), what);
  Handle const bufferSpace = CheckedReadId(H5Screate_simple(m_rank, bufferShape.data(), nullptr), what);
  CheckedRead(
      H5Sselect_hyperslab(fileSpace.Get(), H5S_SELECT_SET, first.data(), nullptr, counts.data(), nullptr),
      what);
  CheckedRead(H5Sselect_hyperslab(bufferSpace.Get(), H5S_SELECT_SET, bufferFirst.data(), nullptr,
                                  counts.data(), nullptr),
              what);
  CheckedRead(H5Dread(dataset, MemoryType(m_cell), bufferSpace.Get(), fileSpace.Get(), H5P_DEFAULT, buffer),
              what);
}

// Extension

void DenseDrawer::Extend(std::span<int const> sizes, int dim, std::int64_t to, double fill) {
  RequireWritable();
  Guarded(m_file, [&] { AddChunks(sizes, dim, to, fill); });
  // New cells in a chunk that was there hold leftovers of its padding.
  auto const along = static_cast<std::size_t>(dim);
  std::int64_t const from = sizes[along];
  std::int64_t const length = m_chunks.Lengths()[along];
  std::int64_t const edge = CeilingDivision(from, length) * length;
  DrawerBox box = m_chunks.AllCells();
  box.first[dim] = from;
  box.counts[dim] = std::max<std::int64_t>(0, std::min(to, edge) - from);
  FillBox(box, fill);
  m_object.Close();
}

/// Extends the dataset, and fills the chunks that this adds.
void DenseDrawer::AddChunks(std::span<int const> sizes, int dim, std::int64_t to, double fill) {
  if (!m_isExtendable)
    throw Hdf5Failure{.what = "extending " + m_path, .cause = "its dataset has a fixed size"};
  DenseDrawer::CutTo(sizes);
  auto const along = static_cast<std::size_t>(dim);
  std::int64_t newChunks = CeilingDivision(to, m_chunks.Lengths()[along]) - m_chunks.CountAlong(dim);
  for (int other = 0; other < m_rank; ++other)
    if (other != dim) newChunks *= m_chunks.CountAlong(other);
  std::uint64_t const freshFrom = ReserveChunks(newChunks);
  std::vector<std::int64_t> wanted = m_chunks.Extents();
  wanted[along] = to;
  for (std::uint64_t const offset : SetExtents(wanted, IsAllZeroBits(fill)))
    m_copier.FillChunk(offset, freshFrom, fill);
}

void DenseDrawer::FillBox(DrawerBox const& box, double fill) {
  // One plane of fill values serves all positions along the first dimension.
  std::vector<std::int64_t> shape(box.counts.begin(), box.counts.begin() + m_rank);
  shape[0] = std::min<std::int64_t>(shape[0], 1);
  std::int64_t const cells = SaturatedProduct(shape);
  if (cells == 0) return;
  std::vector<std::byte> const filled = FilledCells(m_cell, cells, fill);
  DrawerBox plane = box;
  plane.counts[0] = 1;
  for (std::int64_t k = 0; k < box.counts[0]; ++k) {
    plane.first[0] = box.first[0] + k;
    DenseDrawer::Write(plane, shape, filled.data());
  }
}

} // namespace orx::store
