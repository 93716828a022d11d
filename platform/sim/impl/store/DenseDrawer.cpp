#include "sim/impl/store/DenseDrawer.h"

#include "file/Checksum.h"
#include "file/TransactionalFile.h"
#include "sim/ORXSimException.h"
#include "sim/impl/store/Guarded.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace orx::store {

namespace {

constexpr std::int64_t smallestPiece = 256 << 10; // bytes, where the drawer has as many
constexpr std::int64_t mostPieces = 1024;         // of a new drawer
constexpr std::int64_t uncutPiece = 64 << 10;     // so small a chunk keeps its length beyond the size
constexpr std::int64_t largestWholePiece = 64 << 20;
constexpr std::int64_t largestDrawer = std::int64_t{1} << 60;
constexpr std::int64_t largestPiece = std::int64_t{2} << 30; // HDF5 refuses 4 GiB
constexpr auto pageBytes = std::int64_t{file::PageOverlay::pageBytes};
constexpr std::int64_t metadataAllowance = 64 << 10;
constexpr std::int64_t largestNumber = std::numeric_limits<std::int64_t>::max();

/// The product of numbers that are not negative, or the largest number where it has more than 63 bits.
std::int64_t Product(std::span<std::int64_t const> factors) {
  std::int64_t product = 1;
  bool isTooMuch = false;
  bool isZero = false;
  for (std::int64_t const factor : factors) {
    isZero |= factor == 0;
    isTooMuch |= __builtin_mul_overflow(product, factor, &product);
  }
  return isZero ? 0 : isTooMuch ? largestNumber : product;
}

std::int64_t CeilingDivision(std::int64_t a, std::int64_t b) { return (a + b - 1) / b; }

/// Bytes of a box, or the largest number.
std::int64_t BytesOf(std::span<std::int64_t const> lengths, std::int64_t cellBytes) {
  std::int64_t const cells = Product(lengths);
  return cells > largestNumber / cellBytes ? largestNumber : cells * cellBytes;
}

/// A negative zero is another value than the zeros of fresh space.
bool IsAllZeroBits(double value) { return value == 0.0 && !std::signbit(value); }

/// Halves the slowest dimensions until a piece is small enough.
void CutPieces(std::vector<std::int64_t>& lengths, std::int64_t cellBytes, std::int64_t limit) {
  for (std::int64_t& length : lengths)
    while (length > 1 && BytesOf(lengths, cellBytes) > limit)
      length = CeilingDivision(length, 2);
}

bool GroupPieces(std::vector<std::int64_t>& lengths, std::span<int const> sizes, std::int64_t cellBytes) {
  std::vector<std::int64_t> counts;
  for (std::size_t dim = 0; dim < lengths.size(); ++dim)
    counts.push_back(std::max<std::int64_t>(1, CeilingDivision(sizes[dim], lengths[dim])));
  std::int64_t const count = Product(counts);
  std::int64_t const bytes = BytesOf(lengths, cellBytes);
  if (bytes > largestPiece / 2 || (bytes >= smallestPiece && count <= mostPieces)) return false;
  for (std::size_t dim = lengths.size(); dim-- > 0;) {
    if (lengths[dim] >= sizes[dim]) continue;
    lengths[dim] = std::min<std::int64_t>(2 * lengths[dim], sizes[dim]);
    return true;
  }
  return false;
}

/// Pieces are all of one size. Where the last ones would be much longer than what is left for them, all
/// become shorter; else they keep the length of the chunks, so that a chunk is one run.
void BalancePieces(std::vector<std::int64_t>& lengths, std::span<int const> sizes) {
  for (std::size_t dim = 0; dim < lengths.size(); ++dim) {
    std::int64_t const size = sizes[dim];
    if (lengths[dim] >= size) continue;
    std::int64_t const count = CeilingDivision(size, lengths[dim]);
    if (count * lengths[dim] - size > size / 8) lengths[dim] = CeilingDivision(size, count);
  }
}

std::string Coordinates(std::span<std::int64_t const> numbers) {
  std::string text;
  for (std::int64_t const number : numbers)
    text += (text.empty() ? "" : " x ") + std::to_string(number);
  return text;
}

/// Strides of a packed array.
void PackedStrides(std::span<std::int64_t const> lengths, Indices& strides) {
  std::int64_t stride = 1;
  for (std::size_t dim = lengths.size(); dim-- > 0;) {
    strides[dim] = stride;
    stride *= lengths[dim];
  }
}

std::int64_t OffsetOf(int rank, Indices const& at, Indices const& strides) {
  std::int64_t offset = 0;
  for (int dim = 0; dim < rank; ++dim)
    offset += at[dim] * strides[dim];
  return offset;
}

hid_t FileType(CellType cell) { return cell == CellType::Double ? H5T_IEEE_F64LE : H5T_STD_I32LE; }
hid_t MemoryType(CellType cell) { return cell == CellType::Double ? H5T_NATIVE_DOUBLE : H5T_NATIVE_INT32; }

std::vector<hsize_t> Extents(std::span<std::int64_t const> numbers) {
  return {numbers.begin(), numbers.end()};
}

} // namespace

std::vector<std::int64_t> PieceLengths(std::span<int const> sizes, std::span<int const> chunks,
                                       int cellBytes) {
  bool const isWhole = chunks.empty();
  std::vector<std::int64_t> lengths(sizes.size());
  for (std::size_t dim = 0; dim < sizes.size(); ++dim)
    lengths[dim] = std::max(isWhole ? sizes[dim] : chunks[dim], 1);
  if (BytesOf(lengths, cellBytes) > uncutPiece)
    for (std::size_t dim = 0; dim < sizes.size(); ++dim)
      if (sizes[dim] > 0) lengths[dim] = std::min<std::int64_t>(lengths[dim], sizes[dim]);
  CutPieces(lengths, cellBytes, isWhole ? largestWholePiece : largestPiece);
  while (GroupPieces(lengths, sizes, cellBytes)) {
  }
  BalancePieces(lengths, sizes);
  return lengths;
}

struct DenseDrawer::Hdf5 {
  Hdf5Id dataset;
};

DenseDrawer::DenseDrawer(DatabaseFile& file, CellType cell, int rank)
    : m_file(file), m_cell(cell), m_rank(rank), m_hdf5(std::make_unique<Hdf5>()) {}

DenseDrawer::~DenseDrawer() {
  if (m_pending.empty() || m_path != m_pending) return;
  m_hdf5->dataset.Close();
  m_file.Remove(m_path);
}

// Creation

std::unique_ptr<DenseDrawer> DenseDrawer::Create(DatabaseFile& file, CellType cell,
                                                 std::span<int const> sizes, std::span<int const> chunks,
                                                 double fill) {
  std::unique_ptr<DenseDrawer> drawer(new DenseDrawer(file, cell, static_cast<int>(sizes.size())));
  drawer->m_extents.assign(sizes.begin(), sizes.end());
  drawer->m_pieceLengths = PieceLengths(sizes, chunks, drawer->CellBytes());
  drawer->m_fill = fill;
  Guarded(file, [&] { drawer->CreateDataset(fill); });
  return drawer;
}

std::int64_t DenseDrawer::PieceCount(int dim) const {
  auto const at = static_cast<std::size_t>(dim);
  return CeilingDivision(m_extents[at], m_pieceLengths[at]);
}

std::int64_t DenseDrawer::PieceCount() const {
  std::vector<std::int64_t> counts(static_cast<std::size_t>(m_rank));
  for (int dim = 0; dim < m_rank; ++dim)
    counts[static_cast<std::size_t>(dim)] = PieceCount(dim);
  return Product(counts);
}

std::int64_t DenseDrawer::PieceBytes() const { return Product(m_pieceLengths) * CellBytes(); }

void DenseDrawer::CreateDataset(double fill) {
  if (BytesOf(m_extents, CellBytes()) > largestDrawer) {
    ORXSimException(ORXSimException::invalidArgument,
                    "A drawer of " + Coordinates(m_extents) + " cells is larger than any file.")
        .Throw(__FILE__, __LINE__);
  }
  std::int64_t const pieceSpace = CeilingDivision(PieceBytes(), pageBytes) * pageBytes;
  // Space is found here or not at all: HDF5 does not survive a full disk inside its own allocation.
  m_file.Bytes().ReserveGrowth(static_cast<std::uint64_t>(PieceCount() * pieceSpace + metadataAllowance));
  std::uint64_t const freshFrom = m_file.Bytes().FreshFrom();

  auto const extents = Extents(m_extents);
  std::vector<hsize_t> const unlimited(extents.size(), H5S_UNLIMITED);
  auto const pieceLengths = Extents(m_pieceLengths);
  Hdf5Id const space =
      CheckedId(H5Screate_simple(m_rank, extents.data(), unlimited.data()), "describing a drawer");
  Hdf5Id const creation = CheckedId(H5Pcreate(H5P_DATASET_CREATE), "describing a drawer");
  Checked(H5Pset_chunk(creation.Get(), m_rank, pieceLengths.data()), "setting chunk lengths");
  Checked(H5Pset_fill_value(creation.Get(), H5T_NATIVE_DOUBLE, &fill), "setting the initialization value");
  Checked(H5Pset_alloc_time(creation.Get(), H5D_ALLOC_TIME_EARLY), "asking for early space");
  Checked(H5Pset_fill_time(creation.Get(), H5D_FILL_TIME_NEVER), "taking over the filling");
  m_pending = m_path = m_file.PendingPath();
  m_hdf5->dataset = CheckedId(H5Dcreate2(m_file.Id(), m_path.c_str(), FileType(m_cell), space.Get(),
                                         H5P_DEFAULT, creation.Get(), H5P_DEFAULT),
                              "creating a drawer");
  if (!LookUpChunks(m_hdf5->dataset.Get()))
    throw Hdf5Failure{.what = "creating a drawer", .cause = "not all of its chunks have space"};
  m_access = Access::Direct;
  m_isNew.assign(m_places.size(), IsAllZeroBits(fill));
  for (std::uint64_t const place : m_places)
    FillPiece(place, freshFrom, fill);
  SaveLayout();
  // HDF5 goes through all that is open when it moves a link: many new drawers must not stay so.
  m_hdf5->dataset.Close();
}

void DenseDrawer::FillPiece(std::uint64_t place, std::uint64_t freshFrom, double fill) {
  auto const bytes = static_cast<std::uint64_t>(PieceBytes());
  if (!IsAllZeroBits(fill)) {
    WriteFill(place, PieceBytes() / CellBytes(), fill);
  } else if (place < freshFrom) {
    m_file.Bytes().File().Zero(place, bytes);
  }
  m_file.Bytes().WillWriteValues();
}

void DenseDrawer::WriteFill(std::uint64_t place, std::int64_t cells, double fill) {
  constexpr std::int64_t atOnce = 1 << 17;
  std::vector<double> doubles;
  std::vector<std::int32_t> integers;
  std::int64_t const length = std::min(atOnce, cells);
  if (m_cell == CellType::Double) {
    doubles.assign(static_cast<std::size_t>(length), fill);
  } else {
    integers.assign(static_cast<std::size_t>(length), static_cast<std::int32_t>(fill));
  }
  void const* const source =
      m_cell == CellType::Double ? static_cast<void const*>(doubles.data()) : integers.data();
  for (std::int64_t done = 0; done < cells; done += length) {
    std::int64_t const bytes = std::min(length, cells - done) * CellBytes();
    m_file.Bytes().File().WriteAt(place + static_cast<std::uint64_t>(done * CellBytes()), source,
                                  static_cast<std::size_t>(bytes));
  }
}

// Opening

std::unique_ptr<DenseDrawer> DenseDrawer::Open(DatabaseFile& file, std::string const& path, CellType cell,
                                               int rank) {
  std::unique_ptr<DenseDrawer> drawer(new DenseDrawer(file, cell, rank));
  drawer->m_path = path;
  Guarded(file, [&] {
    drawer->ReadShape();
    drawer->ReleaseHandle();
  });
  return drawer;
}

std::int64_t DenseDrawer::Dataset() {
  if (m_hdf5->dataset.IsValid()) return m_hdf5->dataset.Get();
  // What is not read directly is read by the chunk, so HDF5 should keep a few.
  Hdf5Id const access = AccessInsideFile(H5P_DATASET_ACCESS, m_path);
  constexpr std::size_t cacheBytes = 64 << 20;
  CheckedRead(H5Pset_chunk_cache(access.Get(), 12421, cacheBytes, 1.0), "opening " + m_path);
  m_hdf5->dataset = CheckedReadId(H5Dopen2(m_file.Id(), m_path.c_str(), access.Get()), "opening " + m_path);
  return m_hdf5->dataset.Get();
}

void DenseDrawer::ReleaseHandle() noexcept {
  if (m_access != Access::ThroughHdf5) m_hdf5->dataset.Close();
}

void DenseDrawer::ReadShape() {
  std::int64_t const dataset = Dataset();
  Hdf5Id const space = CheckedReadId(H5Dget_space(dataset), "reading the shape of " + m_path);
  int const rank = H5Sget_simple_extent_ndims(space.Get());
  if (rank != m_rank)
    throw DamageFound{m_path + " has " + std::to_string(rank) + " dimensions, expected " +
                      std::to_string(m_rank)};
  std::vector<hsize_t> extents(static_cast<std::size_t>(rank));
  CheckedRead(H5Sget_simple_extent_dims(space.Get(), extents.data(), nullptr),
              "reading the shape of " + m_path);
  m_extents.clear();
  for (hsize_t const extent : extents) {
    if (extent > std::numeric_limits<int>::max()) throw DamageFound{m_path + " has an extent beyond 32 bits"};
    m_extents.push_back(static_cast<std::int64_t>(extent));
  }
  Hdf5Id const type = CheckedReadId(H5Dget_type(dataset), "reading the type of " + m_path);
  H5T_class_t const kind = H5Tget_class(type.Get());
  if (kind != H5T_FLOAT && kind != H5T_INTEGER) throw DamageFound{m_path + " does not hold numbers"};
  Hdf5Id const creation = CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of " + m_path);
  RequireOwnValues(creation.Get(), m_path);
  CheckedRead(H5Pget_fill_value(creation.Get(), H5T_NATIVE_DOUBLE, &m_fill),
              "reading the fill value of " + m_path);
  H5D_alloc_time_t allocation = H5D_ALLOC_TIME_ERROR;
  CheckedRead(H5Pget_alloc_time(creation.Get(), &allocation), "reading the properties of " + m_path);
  m_isExtendable = H5Pget_layout(creation.Get()) == H5D_CHUNKED && H5Pget_nfilters(creation.Get()) == 0 &&
                   allocation == H5D_ALLOC_TIME_EARLY;
}

void DenseDrawer::LookUpPieces() {
  if (m_access != Access::Unknown) return;
  if (m_extents.empty()) ReadShape();
  std::int64_t const dataset = Dataset();
  Hdf5Id const type = CheckedReadId(H5Dget_type(dataset), "reading the type of " + m_path);
  Hdf5Id const creation = CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of " + m_path);
  H5D_layout_t const layout = H5Pget_layout(creation.Get());
  bool isDirect = H5Tequal(type.Get(), FileType(m_cell)) > 0 && H5Pget_nfilters(creation.Get()) == 0;
  if (isDirect && layout == H5D_CHUNKED) {
    std::vector<hsize_t> lengths(static_cast<std::size_t>(m_rank));
    CheckedRead(H5Pget_chunk(creation.Get(), m_rank, lengths.data()),
                "reading the chunk lengths of " + m_path);
    m_pieceLengths.assign(lengths.begin(), lengths.end());
    isDirect = LookUpChunks(dataset);
    CheckSavedLayout(dataset);
  } else if (isDirect && layout == H5D_CONTIGUOUS) {
    isDirect = LookUpContiguous(dataset);
  } else {
    isDirect = false;
  }
  m_isNew.assign(m_places.size(), false);
  m_access = isDirect ? Access::Direct : Access::ThroughHdf5;
  m_isExtendable = m_isExtendable && isDirect;
  ReleaseHandle();
}

bool DenseDrawer::LookUpContiguous(std::int64_t dataset) {
  haddr_t const place = H5Dget_offset(dataset);
  if (place == HADDR_UNDEF) return false;
  m_pieceLengths.clear();
  for (std::int64_t const extent : m_extents)
    m_pieceLengths.push_back(std::max<std::int64_t>(extent, 1));
  m_places.assign(1, place);
  CheckPlaces();
  return true;
}

/// False when a chunk has no space of its own.
bool DenseDrawer::LookUpChunks(std::int64_t dataset) {
  std::int64_t const pieces = PieceCount();
  Hdf5Id const space = CheckedReadId(H5Dget_space(dataset), "reading the shape of a drawer");
  hsize_t chunks = 0;
  CheckedRead(H5Dget_num_chunks(dataset, space.Get(), &chunks), "counting chunks");
  if (static_cast<std::int64_t>(chunks) != pieces) return false;
  m_places.assign(chunks, 0);
  ForEachPiece(AllCells(), [&](std::size_t index, Indices const&, Indices const&, Indices const& corner) {
    m_places[index] = PlaceOfPiece(dataset, corner);
  });
  CheckPlaces();
  return true;
}

/// Asked for addresses, HDF5 counts through all chunks before; asked to read one, it finds it at once.
std::uint64_t DenseDrawer::PlaceOfPiece(std::int64_t dataset, Indices const& corner) const {
  std::vector<hsize_t> const first(corner.begin(), corner.begin() + m_rank);
  std::uint32_t filters = 0;
  char nothing = 0;
  file::FileRange const place = m_file.Bytes().PlaceOfValues([&] {
    CheckedRead(H5Dread_chunk(dataset, H5P_DEFAULT, first.data(), &filters, &nothing), "looking a chunk up");
  });
  if (static_cast<std::int64_t>(place.bytes) != PieceBytes())
    throw DamageFound{m_path + " has a chunk of another length"};
  return place.offset;
}

DrawerBox DenseDrawer::AllCells() const {
  DrawerBox all;
  for (int dim = 0; dim < m_rank; ++dim) {
    all.first[dim] = all.bufferFirst[dim] = 0;
    all.counts[dim] = m_extents[static_cast<std::size_t>(dim)];
  }
  return all;
}

/// No piece leaves the file or lies on another one; 0 would be the file's signature.
void DenseDrawer::CheckPlaces() const {
  std::vector<std::uint64_t> sorted = m_places;
  std::sort(sorted.begin(), sorted.end());
  auto const bytes = static_cast<std::uint64_t>(PieceBytes());
  std::uint64_t const end = m_file.Bytes().EndOfAllocation();
  for (std::size_t k = 0; k < sorted.size(); ++k) {
    std::uint64_t const next = k + 1 < sorted.size() ? sorted[k + 1] : end;
    if (sorted[k] == 0 || sorted[k] > next || next - sorted[k] < bytes)
      throw DamageFound{"the cells of " + m_path + " at offset " + std::to_string(sorted[k]) +
                        " lie outside of the file or on one another"};
  }
}

std::uint64_t DenseDrawer::LayoutChecksum() const {
  std::uint64_t sum = file::Checksum(m_extents.data(), m_extents.size() * sizeof m_extents[0], 1);
  return file::Checksum(m_places.data(), m_places.size() * sizeof m_places[0], sum);
}

namespace {
std::uint64_t ObjectAddress(hid_t object) {
  H5O_info_t info;
  CheckedRead(H5Oget_info2(object, &info, H5O_INFO_BASIC), "looking an object up");
  return info.addr;
}
} // namespace

// HDF5 guards object headers by checksums, but not the tree that says where chunks are. A copy made by
// another program has the attribute too, but its header lies elsewhere.
void DenseDrawer::CheckSavedLayout(std::int64_t dataset) const {
  if (!HasAttribute(dataset, "layout")) return;
  std::vector<std::uint64_t> const saved = ReadWords(dataset, "layout");
  if (saved.size() != 2) throw DamageFound{m_path + " has a layout attribute of another kind"};
  if (saved[0] == ObjectAddress(dataset) && saved[1] != LayoutChecksum())
    throw DamageFound{m_path + " does not have its cells where they were written"};
}

void DenseDrawer::SaveLayout() {
  if (m_isLayoutSaved || m_access != Access::Direct) return;
  std::int64_t const dataset = Dataset();
  std::uint64_t const words[] = {ObjectAddress(dataset), LayoutChecksum()};
  WriteAttribute(dataset, "layout", words);
  m_isLayoutSaved = true;
}

void DenseDrawer::PutAt(std::string const& path) {
  m_hdf5->dataset.Close();
  std::string now = path;
  m_file.Move(m_path, now);
  m_path.swap(now);
}

void DenseDrawer::TakeBack() {
  if (m_path != m_pending) PutAt(m_pending);
}

void DenseDrawer::CutTo(std::span<int const> sizes) {
  if (m_extents.empty()) LookUpPieces();
  bool isLonger = false;
  std::vector<std::int64_t> const wanted(sizes.begin(), sizes.end());
  for (std::size_t dim = 0; dim < wanted.size(); ++dim)
    isLonger |= m_extents[dim] > wanted[dim];
  if (!isLonger || !m_isExtendable) return;
  LookUpPieces();
  if (!m_isExtendable) return;
  SetExtents(wanted, m_fill);
  m_isNew.assign(m_places.size(), false);
}

/// Returns the places of pieces that are new. What fails in the midst leaves a dataset that is read anew at
/// its next use. The attribute follows at once: a commit for another context may come before the one that
/// saves this drawer.
std::vector<std::uint64_t> DenseDrawer::SetExtents(std::vector<std::int64_t> const& wanted, double fill) {
  auto const extents = Extents(wanted);
  try {
    m_isLayoutSaved = false;
    Checked(H5Dset_extent(Dataset(), extents.data()), "changing the extents of a drawer");
    // HDF5 has filled what is cut off in its cache. Were that written later, it would undo what is written
    // past it until then.
    m_hdf5->dataset.Close();
    std::vector<std::int64_t> const former = std::exchange(m_extents, wanted);
    std::vector<std::uint64_t> added = PlacesOfNewPieces(former, fill);
    SaveLayout();
    return added;
  } catch (...) {
    ForgetLayout();
    throw;
  }
}

void DenseDrawer::ForgetLayout() noexcept {
  m_hdf5->dataset.Close();
  m_extents.clear();
  m_access = Access::Unknown;
  // It may be of the former extents, and would be taken for a sign of damage.
  H5Adelete_by_name(m_file.Id(), m_path.c_str(), "layout", H5P_DEFAULT);
}

// Moving cells

template<class Visit>
void DenseDrawer::ForEachPiece(DrawerBox const& box, Visit&& visit) const {
  Indices firstPiece;
  Indices lastPiece;
  Indices piece;
  for (int dim = 0; dim < m_rank; ++dim) {
    if (box.counts[dim] == 0) return;
    std::int64_t const length = m_pieceLengths[static_cast<std::size_t>(dim)];
    firstPiece[dim] = piece[dim] = box.first[dim] / length;
    lastPiece[dim] = (box.first[dim] + box.counts[dim] - 1) / length;
  }
  for (;;) {
    Indices inPiece;
    Indices counts;
    Indices inBuffer;
    std::int64_t index = 0;
    for (int dim = 0; dim < m_rank; ++dim) {
      std::int64_t const length = m_pieceLengths[static_cast<std::size_t>(dim)];
      std::int64_t const corner = piece[dim] * length;
      std::int64_t const first = std::max(box.first[dim], corner);
      std::int64_t const end = std::min(box.first[dim] + box.counts[dim], corner + length);
      inPiece[dim] = first - corner;
      counts[dim] = end - first;
      inBuffer[dim] = box.bufferFirst[dim] + first - box.first[dim];
      index = index * PieceCount(dim) + piece[dim];
    }
    visit(static_cast<std::size_t>(index), inPiece, counts, inBuffer);
    int dim = m_rank - 1;
    for (; dim >= 0; --dim) {
      if (++piece[dim] <= lastPiece[dim]) break;
      piece[dim] = firstPiece[dim];
    }
    if (dim < 0) return;
  }
}

namespace {

/// Reads the cells of a box that lie from `place` of the file on, run by run.
template<class Cell>
void ReadByCalls(file::PositionedFile const& file, std::uint64_t place, TwoStridedBox const& cells,
                 Cell* buffer) {
  std::size_t const bytes = static_cast<std::size_t>(cells.counts[cells.rank - 1]) * sizeof(Cell);
  ForEachRun(cells, [&](std::int64_t to, std::int64_t from) {
    file.ReadAt(place + static_cast<std::uint64_t>(from) * sizeof(Cell), buffer + to, bytes);
  });
}

/// Whether the box is one run where it goes to.
bool IsOneRunInTarget(TwoStridedBox const& cells) {
  std::int64_t stride = 1;
  for (int dim = cells.rank - 1; dim >= 0; --dim) {
    if (cells.counts[dim] != 1 && cells.toStrides[dim] != stride) return false;
    stride *= cells.counts[dim];
  }
  return true;
}

/// Writes them. What is one run in the file goes by large calls, packed before where it is not one run in the
/// buffer: large calls make large pages in the system's cache, which are faster ever after.
template<class Cell>
void WriteByCalls(file::PositionedFile& file, std::uint64_t place, TwoStridedBox cells, Cell const* buffer) {
  constexpr std::int64_t packedAtOnce = (1 << 20) / static_cast<std::int64_t>(sizeof(Cell));
  int slowest = 0;
  while (slowest < cells.rank - 1 && cells.counts[slowest] == 1)
    ++slowest;
  std::int64_t const sliceCells = slowest < cells.rank - 1 ? cells.toStrides[slowest] : packedAtOnce;
  if (!IsOneRunInTarget(cells) || cells.fromStrides[slowest] == sliceCells || sliceCells >= packedAtOnce) {
    std::size_t const bytes = static_cast<std::size_t>(cells.counts[cells.rank - 1]) * sizeof(Cell);
    ForEachRun(cells, [&](std::int64_t to, std::int64_t from) {
      file.WriteAt(place + static_cast<std::uint64_t>(to) * sizeof(Cell), buffer + from, bytes);
    });
    return;
  }
  std::int64_t const slices = cells.counts[slowest];
  std::vector<Cell> packed(static_cast<std::size_t>(packedAtOnce));
  for (std::int64_t done = 0; done < slices; done += cells.counts[slowest]) {
    cells.counts[slowest] = std::min(packedAtOnce / sliceCells, slices - done);
    CopyBox<Cell>(cells, packed.data(), buffer + done * cells.fromStrides[slowest]);
    file.WriteAt(place + static_cast<std::uint64_t>(done * sliceCells) * sizeof(Cell), packed.data(),
                 static_cast<std::size_t>(cells.counts[slowest] * sliceCells) * sizeof(Cell));
  }
}

/// The same box with runs as long as they can be, each contiguous on both sides.
TwoStridedBox WithLongRuns(TwoStridedBox const& box) {
  TwoStridedBox simple = box;
  simple.Simplify();
  int const last = simple.rank - 1;
  return last >= 0 && simple.toStrides[last] == 1 && simple.fromStrides[last] == 1 ? simple : box;
}

} // namespace

/// Pages of a new file cost least when they come by a write call that is longer than they are, not by the
/// faults of a mapping.
bool DenseDrawer::GoesByCalls(std::size_t piece, bool isWrite, TwoStridedBox const& cells) const {
  if (!m_file.Bytes().File().CanMap(m_places[piece], static_cast<std::uint64_t>(PieceBytes()))) return true;
  if (!isWrite || !m_isNew[piece]) return false;
  return cells.counts[cells.rank - 1] * CellBytes() >= pageBytes;
}

template<class Cell, bool isWrite>
void DenseDrawer::Move(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, Cell* buffer) {
  Indices bufferStrides;
  Indices pieceStrides;
  PackedStrides(bufferCounts, bufferStrides);
  PackedStrides(m_pieceLengths, pieceStrides);
  auto const pieceBytes = static_cast<std::uint64_t>(PieceBytes());
  file::PositionedFile& file = m_file.Bytes().File();
  ForEachPiece(
      box, [&](std::size_t index, Indices const& inPiece, Indices const& counts, Indices const& inBuffer) {
        TwoStridedBox cells;
        cells.rank = m_rank;
        cells.counts = counts;
        cells.toStrides = isWrite ? pieceStrides : bufferStrides;
        cells.fromStrides = isWrite ? bufferStrides : pieceStrides;
        Cell* const mine = buffer + OffsetOf(m_rank, inBuffer, bufferStrides);
        std::int64_t const offset = OffsetOf(m_rank, inPiece, pieceStrides);
        std::uint64_t const place = m_places[index] + static_cast<std::uint64_t>(offset) * sizeof(Cell);
        if (GoesByCalls(index, isWrite, cells)) {
          TwoStridedBox const runs = WithLongRuns(cells);
          if constexpr (isWrite) {
            WriteByCalls<Cell>(file, place, runs, mine);
            bool const isWhole = std::equal(counts.begin(), counts.begin() + m_rank, m_pieceLengths.begin());
            if (isWhole) m_isNew[index] = false;
          } else {
            ReadByCalls<Cell>(file, place, runs, mine);
          }
          return;
        }
        std::byte* const theirs = file.Bytes(m_places[index], pieceBytes) + offset * sizeof(Cell);
        if constexpr (isWrite)
          CopyBox<Cell>(cells, theirs, mine);
        else
          CopyBox<Cell>(cells, mine, theirs);
      });
}

void DenseDrawer::Read(DrawerBox const& box, std::span<std::int64_t const> bufferCounts, void* buffer) {
  if (m_access == Access::Unknown) Guarded(m_file, [&] { LookUpPieces(); });
  if (m_access == Access::ThroughHdf5) {
    Guarded(m_file, [&] { ReadThroughHdf5(box, bufferCounts, buffer); });
  } else if (m_cell == CellType::Double) {
    GuardedBytes(m_file, [&] { Move<double, false>(box, bufferCounts, static_cast<double*>(buffer)); });
  } else {
    GuardedBytes(m_file,
                 [&] { Move<std::int32_t, false>(box, bufferCounts, static_cast<std::int32_t*>(buffer)); });
  }
}

void DenseDrawer::RequireWritable() {
  if (m_access != Access::Direct && !m_file.IsReadOnly()) Guarded(m_file, [&] { LookUpPieces(); });
  char const* const reason =
      m_file.IsReadOnly() ? "the file was opened read-only"
      : m_access == Access::ThroughHdf5
          ? "another program wrote the drawer compressed, of other numbers, or without space"
          : nullptr;
  if (reason == nullptr) return;
  ORXSimException(ORXSimException::writeFailed,
                  "Writing to " + m_path + " of " + m_file.Path() + " is not possible: " + reason + ".")
      .Throw(__FILE__, __LINE__);
}

namespace {

/// Callers tell a failed write by its code, whatever was in the way.
template<class Work>
void Writing(std::string const& path, DatabaseFile const& file, Work&& work) {
  try {
    work();
  } catch (ORXSimException const& error) {
    if (error.Code() == ORXSimException::writeFailed) throw;
    ORXSimException(ORXSimException::writeFailed, "Writing to " + path + " of " + file.Path() +
                                                      " is not possible: " + error.AsString().AsText())
        .Throw(__FILE__, __LINE__);
  }
}

} // namespace

void DenseDrawer::Write(DrawerBox const& box, std::span<std::int64_t const> bufferCounts,
                        void const* buffer) {
  // Move is one code for both directions; it does not write to the buffer in this one.
  void* const source = const_cast<void*>(buffer);
  Writing(m_path, m_file, [&] {
    RequireWritable();
    GuardedBytes(m_file, [&] {
      m_file.Bytes().WillWriteValues();
      if (m_cell == CellType::Double) {
        Move<double, true>(box, bufferCounts, static_cast<double*>(source));
      } else {
        Move<std::int32_t, true>(box, bufferCounts, static_cast<std::int32_t*>(source));
      }
    });
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
  auto const bufferShape = Extents(bufferCounts);
  std::string const what = "reading cells of " + m_path;
  std::int64_t const dataset = Dataset();
  Hdf5Id const fileSpace = CheckedReadId(H5Dget_space(dataset), what);
  Hdf5Id const bufferSpace = CheckedReadId(H5Screate_simple(m_rank, bufferShape.data(), nullptr), what);
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
  auto const along = static_cast<std::size_t>(dim);
  std::int64_t const from = sizes[along];
  Guarded(m_file, [&] {
    if (!m_isExtendable)
      throw Hdf5Failure{.what = "extending " + m_path, .cause = "its dataset has a fixed size"};
    CutTo(sizes);
    std::vector<std::int64_t> wanted = m_extents;
    wanted[along] = to;
    std::int64_t newPieces = CeilingDivision(to, m_pieceLengths[along]) - PieceCount(dim);
    for (int other = 0; other < m_rank; ++other)
      if (other != dim) newPieces *= PieceCount(other);
    std::int64_t const pieceSpace = CeilingDivision(PieceBytes(), pageBytes) * pageBytes;
    m_file.Bytes().ReserveGrowth(static_cast<std::uint64_t>(newPieces * pieceSpace + metadataAllowance));
    std::uint64_t const freshFrom = m_file.Bytes().FreshFrom();
    for (std::uint64_t const place : SetExtents(wanted, fill))
      FillPiece(place, freshFrom, fill);
  });
  // Cells that become visible inside pieces that were there hold leftovers of the padding.
  auto const edge = CeilingDivision(from, m_pieceLengths[along]) * m_pieceLengths[along];
  DrawerBox box = AllCells();
  box.first[dim] = from;
  box.counts[dim] = std::max<std::int64_t>(0, std::min(to, edge) - from);
  FillBox(box, fill);
  m_hdf5->dataset.Close();
}

/// Extends the table of places; HDF5 does not move chunks.
std::vector<std::uint64_t> DenseDrawer::PlacesOfNewPieces(std::span<std::int64_t const> formerExtents,
                                                          double fill) {
  std::vector<std::uint64_t> const formerPlaces = std::move(m_places);
  std::vector<bool> const wereNew = std::move(m_isNew);
  m_places.assign(static_cast<std::size_t>(PieceCount()), 0);
  m_isNew.assign(m_places.size(), false);
  std::vector<std::uint64_t> added;
  ForEachPiece(AllCells(), [&](std::size_t index, Indices const&, Indices const&, Indices const& corner) {
    std::int64_t former = 0;
    bool isNew = false;
    for (int dim = 0; dim < m_rank; ++dim) {
      auto const d = static_cast<std::size_t>(dim);
      std::int64_t const formerCount = CeilingDivision(formerExtents[d], m_pieceLengths[d]);
      std::int64_t const piece = corner[dim] / m_pieceLengths[d];
      isNew |= piece >= formerCount;
      former = former * formerCount + piece;
    }
    if (!isNew) {
      m_places[index] = formerPlaces[static_cast<std::size_t>(former)];
      m_isNew[index] = wereNew[static_cast<std::size_t>(former)];
      return;
    }
    std::uint64_t const place = PlaceOfPiece(Dataset(), corner);
    m_places[index] = place;
    m_isNew[index] = IsAllZeroBits(fill);
    added.push_back(place);
  });
  return added;
}

void DenseDrawer::FillBox(DrawerBox const& box, double fill) {
  std::int64_t cells = 1;
  std::vector<std::int64_t> shape;
  for (int dim = 0; dim < m_rank; ++dim) {
    // A plane of fill values serves all along the first dimension.
    shape.push_back(dim == 0 ? std::min<std::int64_t>(box.counts[0], 1) : box.counts[dim]);
    cells *= shape.back();
  }
  if (cells == 0) return;
  std::vector<double> const doubles(m_cell == CellType::Double ? static_cast<std::size_t>(cells) : 0, fill);
  std::vector<std::int32_t> const integers(m_cell == CellType::Double ? 0 : static_cast<std::size_t>(cells),
                                           static_cast<std::int32_t>(fill));
  void const* const source =
      m_cell == CellType::Double ? static_cast<void const*>(doubles.data()) : integers.data();
  DrawerBox plane = box;
  plane.counts[0] = 1;
  for (std::int64_t k = 0; k < box.counts[0]; ++k) {
    plane.first[0] = box.first[0] + k;
    Write(plane, shape, source);
  }
}

} // namespace orx::store
