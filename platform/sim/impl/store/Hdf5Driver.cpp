#include "sim/impl/store/Hdf5Driver.h"

#include "file/TransactionalFile.h"

#include <exception>

namespace orx::store {

namespace {

/// An open file as HDF5 holds it. HDF5's own fields come first, because HDF5 passes their address around.
struct AdoptedFile {
  H5FD_t hdf5;
  file::TransactionalFile* file;
};

/// The driver's entry in a file access list.
struct DriverInfo {
  file::TransactionalFile* file;
};

file::TransactionalFile& FileOf(H5FD_t* driver) { return *reinterpret_cast<AdoptedFile*>(driver)->file; }
file::TransactionalFile const& FileOf(H5FD_t const* driver) {
  return *reinterpret_cast<AdoptedFile const*>(driver)->file;
}

void PushError(char const* text) {
  H5Epush2(H5E_DEFAULT, "Hdf5Driver", "driver", 0, H5E_ERR_CLS, H5E_VFL, H5E_CANTOPERATE, "%s", text);
}

/// Runs the work of a callback. An exception may not pass through HDF5, which is C: the file keeps it, and
/// HDF5 gets a failure.
template<class Work>
herr_t RunCallback(file::TransactionalFile& file, Work work) noexcept {
  try {
    work();
    return 0;
  } catch (std::exception const& error) {
    file.KeepFailure();
    PushError(error.what());
  }
  return -1;
}

// Callbacks

/// The reason why HDF5 cannot open the file with these flags, or null.
char const* FindObstacle(file::TransactionalFile const& file, unsigned flags) {
  bool const isToBeCreated = (flags & (H5F_ACC_TRUNC | H5F_ACC_CREAT)) != 0;
  bool const isEmpty = file.EndOfFile() == 0;
  if (file.IsAttached()) return "the file is open already";
  if (isToBeCreated && !isEmpty) return "the file to be created is not empty";
  if (!isToBeCreated && isEmpty) return "the file is empty"; // HDF5 would create a file in it
  if ((flags & H5F_ACC_RDWR) != 0 && file.IsReadOnly()) return "the file is open for reading only";
  return nullptr;
}

H5FD_t* OpenFile(char const*, unsigned flags, hid_t access, haddr_t) {
  auto const* const info = static_cast<DriverInfo const*>(H5Pget_driver_info(access));
  if (info == nullptr || info->file == nullptr) return nullptr;
  if (char const* const obstacle = FindObstacle(*info->file, flags)) {
    PushError(obstacle);
    return nullptr;
  }
  auto* const adopted = new (std::nothrow) AdoptedFile{.hdf5 = {}, .file = info->file};
  if (adopted == nullptr) return nullptr;
  adopted->file->Attach();
  return &adopted->hdf5;
}

/// Never commits, because HDF5 also closes files when the process exits during a transaction. Never fails,
/// because HDF5 1.10 does not survive that.
herr_t CloseFile(H5FD_t* driver) {
  FileOf(driver).Detach();
  delete reinterpret_cast<AdoptedFile*>(driver);
  return 0;
}

/// Two openings are always different files for HDF5, because each belongs to its own TransactionalFile.
int CompareFiles(H5FD_t const* left, H5FD_t const* right) {
  std::less<file::TransactionalFile const*> const isBefore;
  if (isBefore(&FileOf(left), &FileOf(right))) return -1;
  return isBefore(&FileOf(right), &FileOf(left)) ? 1 : 0;
}

/// HDF5 allocates small metadata together. It gets no sieve buffer, so raw data is written during the call
/// that writes it.
herr_t QueryFeatures(H5FD_t const*, unsigned long* features) {
  *features = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
  return 0;
}

/// Large objects begin on a page, so that zeroing them needs few partial pages. All others begin at multiples
/// of the largest cell: a power cut could tear a cell that lies in two sectors.
constexpr hsize_t largeObject = 65536;
constexpr hsize_t pageBytes = 4096;
constexpr hsize_t largestCell = 8;

haddr_t RoundUp(haddr_t value, hsize_t unit) { return (value + unit - 1) / unit * unit; }

haddr_t EndOfAllocation(H5FD_t const* driver, H5FD_mem_t) { return FileOf(driver).EndOfAllocation(); }

herr_t SetEndOfAllocation(H5FD_t* driver, H5FD_mem_t type, haddr_t end) {
  file::TransactionalFile& file = FileOf(driver);
  // Other programs end files at any offset. Without the rounding, HDF5 would align the object behind the
  // offset that Allocate has already aligned.
  if (!file.IsReadOnly()) end = RoundUp(end, largestCell);
  return RunCallback(
      file, [&] { type == H5FD_MEM_DRAW ? file.SetEndOfAllocation(end) : file.SetEndOfMetadata(end); });
}

/// Allocates at the end of the file. HDF5 supports one alignment for all objects; it is the smaller one, and
/// HDF5 applies it where it uses freed space again.
haddr_t Allocate(H5FD_t* driver, H5FD_mem_t type, hid_t, hsize_t bytes) {
  haddr_t const end = FileOf(driver).EndOfAllocation();
  haddr_t const offset = RoundUp(end, bytes >= largeObject ? pageBytes : largestCell);
  return SetEndOfAllocation(driver, type, offset + bytes) < 0 ? HADDR_UNDEF : offset;
}

haddr_t EndOfFile(H5FD_t const* driver, H5FD_mem_t) { return FileOf(driver).EndOfFile(); }

herr_t Free(H5FD_t* driver, H5FD_mem_t, hid_t, haddr_t offset, hsize_t bytes) {
  file::TransactionalFile& file = FileOf(driver);
  return RunCallback(file, [&] { file.Free(offset, bytes); });
}

herr_t Read(H5FD_t* driver, H5FD_mem_t type, hid_t, haddr_t offset, std::size_t bytes, void* to) {
  file::TransactionalFile& file = FileOf(driver);
  return RunCallback(file, [&] {
    type == H5FD_MEM_DRAW ? file.ReadRawData(offset, to, bytes) : file.ReadMetadata(offset, to, bytes);
  });
}

herr_t Write(H5FD_t* driver, H5FD_mem_t type, hid_t, haddr_t offset, std::size_t bytes, void const* from) {
  file::TransactionalFile& file = FileOf(driver);
  return RunCallback(file, [&] {
    type == H5FD_MEM_DRAW ? file.WriteRawData(offset, from, bytes) : file.WriteMetadata(offset, from, bytes);
  });
}

/// Flushing and truncating are steps of a commit, which TransactionalFile does.
herr_t DoNothing(H5FD_t*, hid_t, hbool_t) { return 0; }

// Registration

H5FD_class_t DriverClass() {
  H5FD_class_t driver{};
  driver.name = "transactional";
  driver.maxaddr = haddr_t{1} << 62;
  driver.fc_degree = H5F_CLOSE_STRONG;
  driver.fapl_size = sizeof(DriverInfo);
  driver.open = OpenFile;
  driver.close = CloseFile;
  driver.cmp = CompareFiles;
  driver.query = QueryFeatures;
  driver.alloc = Allocate;
  driver.get_eoa = EndOfAllocation;
  driver.set_eoa = SetEndOfAllocation;
  driver.get_eof = EndOfFile;
  driver.free = Free;
  driver.read = Read;
  driver.write = Write;
  driver.flush = DoNothing;
  driver.truncate = DoNothing;
  // Raw data and metadata have separate free lists: held metadata must never cover raw data.
  for (H5FD_mem_t& list : driver.fl_map)
    list = H5FD_MEM_SUPER;
  driver.fl_map[H5FD_MEM_DEFAULT] = H5FD_MEM_DEFAULT;
  driver.fl_map[H5FD_MEM_DRAW] = H5FD_MEM_DRAW;
  return driver;
}

/// Registers the driver for each list, which then keeps the registration. An identifier kept here would be
/// invalid, or name another driver, after a host has shut HDF5 down and used it again.
bool SetDriver(hid_t access, file::TransactionalFile& file) {
  H5FD_class_t const description = DriverClass();
  DriverInfo const info{.file = &file};
  hid_t const driver = H5FDregister(&description);
  if (driver < 0) return false;
  bool const isSet = H5Pset_driver(access, driver, &info) >= 0;
  H5FDunregister(driver);
  return isSet;
}

bool SetAccess(hid_t access, file::TransactionalFile& file) {
  return SetDriver(access, file) &&
         // HDF5 refuses a file in the newest format after its writer was killed.
         H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_V18) >= 0 &&
         H5Pset_fclose_degree(access, H5F_CLOSE_STRONG) >= 0 &&
         // Without a chunk cache, a failed write fails in its own call.
         H5Pset_cache(access, 0, 521, 0, 0.75) >= 0 &&
         H5Pset_alignment(access, largestCell, largestCell) >= 0;
}

bool SetCreation(hid_t creation) {
  return H5Pset_file_space_strategy(creation, H5F_FSPACE_STRATEGY_FSM_AGGR, 0, 1) >= 0;
}

} // namespace

hid_t MakeFileAccess(file::TransactionalFile& file) {
  hid_t const access = H5Pcreate(H5P_FILE_ACCESS);
  if (access < 0 || SetAccess(access, file)) return access;
  H5Pclose(access);
  return -1;
}

hid_t MakeFileCreation() {
  hid_t const creation = H5Pcreate(H5P_FILE_CREATE);
  if (creation < 0 || SetCreation(creation)) return creation;
  H5Pclose(creation);
  return -1;
}

} // namespace orx::store
