#include "sim/impl/store/Hdf5Driver.h"

#include "sim/impl/store/Hdf5.h"

#include <new>

namespace store {

namespace {

constexpr hsize_t alignedFrom = 64 << 10; // objects of that size start at a page
constexpr hsize_t metadataBlock = 16 << 10;

/// What HDF5 holds of an open file.
struct DriverFile {
  H5FD_t base; ///< HDF5's part comes first
  TransactionalFile* file;
};

/// What a property list carries.
struct DriverInfo {
  TransactionalFile* file;
};

TransactionalFile& FileOf(H5FD_t const* base) {
  return *reinterpret_cast<DriverFile const*>(base)->file; // base is its first member
}

/// Runs a callback's work; HDF5 is C code, through which no exception passes.
template<class Work>
herr_t Perform(TransactionalFile& file, Work&& work) noexcept {
  try {
    work();
    return 0;
  } catch (FileError const& error) {
    file.RememberFailure(error);
    H5Epush2(H5E_DEFAULT, __FILE__, "Perform", __LINE__, H5E_ERR_CLS, H5E_IO, H5E_WRITEERROR, "%s",
             error.what());
  } catch (std::bad_alloc const&) {
    H5Epush2(H5E_DEFAULT, __FILE__, "Perform", __LINE__, H5E_ERR_CLS, H5E_RESOURCE, H5E_NOSPACE,
             "out of memory");
  }
  return -1;
}

H5FD_t* Open(char const*, unsigned, hid_t access, haddr_t) {
  auto const* const info = static_cast<DriverInfo const*>(H5Pget_driver_info(access));
  if (info == nullptr) return nullptr;
  auto* const file = new (std::nothrow) DriverFile{};
  if (file == nullptr) return nullptr;
  file->file = info->file;
  return &file->base;
}

// HDF5 does not survive a close that fails, and closes files when the process ends, in the midst of
// transactions: so this one neither fails nor commits.
herr_t Close(H5FD_t* base) {
  delete reinterpret_cast<DriverFile*>(base);
  return 0;
}

int Compare(H5FD_t const* a, H5FD_t const* b) {
  PositionedFile const& first = FileOf(a).File();
  PositionedFile const& second = FileOf(b).File();
  if (first.Device() != second.Device()) return first.Device() < second.Device() ? -1 : 1;
  if (first.Inode() != second.Inode()) return first.Inode() < second.Inode() ? -1 : 1;
  return 0;
}

// No accumulation of metadata and no sieve: values reach the file inside the call that writes them.
herr_t Query(H5FD_t const*, unsigned long* flags) {
  *flags = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
  return 0;
}

haddr_t GetEndOfAllocation(H5FD_t const* base, H5FD_mem_t) { return FileOf(base).EndOfAllocation(); }

herr_t SetEndOfAllocation(H5FD_t* base, H5FD_mem_t, haddr_t end) {
  TransactionalFile& file = FileOf(base);
  return Perform(file, [&] { file.SetEndOfAllocation(end); });
}

haddr_t GetEndOfFile(H5FD_t const* base, H5FD_mem_t) { return FileOf(base).EndOfFile(); }

herr_t Free(H5FD_t* base, H5FD_mem_t, hid_t, haddr_t offset, hsize_t bytes) {
  FileOf(base).Free(offset, bytes);
  return 0;
}

herr_t Read(H5FD_t* base, H5FD_mem_t kind, hid_t, haddr_t offset, std::size_t bytes, void* to) {
  TransactionalFile& file = FileOf(base);
  return Perform(file, [&] {
    if (kind == H5FD_MEM_DRAW) {
      file.ReadValues(offset, to, bytes);
    } else {
      file.ReadMetadata(offset, to, bytes);
    }
  });
}

herr_t Write(H5FD_t* base, H5FD_mem_t kind, hid_t, haddr_t offset, std::size_t bytes, void const* from) {
  TransactionalFile& file = FileOf(base);
  return Perform(file, [&] {
    if (kind == H5FD_MEM_DRAW) {
      file.WriteValues(offset, from, bytes);
    } else {
      file.WriteMetadata(offset, from, bytes);
    }
  });
}

herr_t NothingToDo(H5FD_t*, hid_t, hbool_t) { return 0; }

H5FD_class_t DriverClass() {
  H5FD_class_t driver{};
  driver.name = "orx_transactional";
  driver.maxaddr = haddr_t{1} << 62;
  driver.fc_degree = H5F_CLOSE_STRONG;
  driver.fapl_size = sizeof(DriverInfo);
  driver.open = Open;
  driver.close = Close;
  driver.cmp = Compare;
  driver.query = Query;
  driver.get_eoa = GetEndOfAllocation;
  driver.set_eoa = SetEndOfAllocation;
  driver.get_eof = GetEndOfFile;
  driver.free = Free;
  driver.read = Read;
  driver.write = Write;
  driver.flush = NothingToDo;
  driver.truncate = NothingToDo;
  H5FD_mem_t const map[] = H5FD_FLMAP_DICHOTOMY;
  std::copy(std::begin(map), std::end(map), std::begin(driver.fl_map));
  return driver;
}

/// Registers the driver, again when the host has closed HDF5 meanwhile.
hid_t DriverId() {
  static H5FD_class_t const driver = DriverClass();
  static hid_t id = -1;
  if (id < 0 || H5Iis_valid(id) <= 0) id = H5FDregister(&driver);
  return id;
}

} // namespace

hid_t MakeFileAccess(TransactionalFile& file) {
  Hdf5Id access(H5Pcreate(H5P_FILE_ACCESS));
  DriverInfo const info{.file = &file};
  hid_t const list = access.Get();
  bool const isSet = H5Pset_driver(list, DriverId(), &info) >= 0 &&
                     // The latest format marks a file as open, and a killed writer's file is then refused.
                     H5Pset_libver_bounds(list, H5F_LIBVER_V18, H5F_LIBVER_V18) >= 0 &&
                     H5Pset_fclose_degree(list, H5F_CLOSE_STRONG) >= 0 &&
                     // Without a chunk cache a write that fails does so in its own call.
                     H5Pset_cache(list, 0, 521, 0, 0.75) >= 0 &&
                     H5Pset_alignment(list, alignedFrom, pageBytes) >= 0 &&
                     H5Pset_meta_block_size(list, metadataBlock) >= 0;
  if (!isSet) return -1;
  H5Iinc_ref(list);
  return list;
}

hid_t MakeFileCreation() {
  Hdf5Id creation(H5Pcreate(H5P_FILE_CREATE));
  if (H5Pset_file_space_strategy(creation.Get(), H5F_FSPACE_STRATEGY_FSM_AGGR, false, 1) < 0) return -1;
  H5Iinc_ref(creation.Get());
  return creation.Get();
}

} // namespace store
