#include "sim/impl/store/Hdf5.h"

#include <algorithm>
#include <array>
#include <sys/types.h>

namespace orx::store {

namespace {

/// Replaces HDF5's own handler of the process's exit. HDF5's handler ends HDF5 before the host's static
/// objects are destroyed, which may own databases; it crashes on a file that could not be closed, and prints
/// errors about the leftovers of failed calls. This handler runs after the host's objects and closes the
/// files that are still open.
class ExitHandler {
public:
  ExitHandler() { H5dont_atexit(); }
  ExitHandler(ExitHandler const&) = delete;
  ExitHandler& operator=(ExitHandler const&) = delete;
  ~ExitHandler() {
    if (!s_isHdf5Damaged) CloseFiles();
  }

  static bool s_isHdf5Damaged; ///< HDF5's list of open files has one that was freed

private:
  static void CloseFiles() {
    QuietErrors const quiet;
    std::array<hid_t, 64> files{};
    ssize_t const count = H5Fget_obj_ids(H5F_OBJ_ALL, H5F_OBJ_FILE, files.size(), files.data());
    for (ssize_t k = 0; k < count; ++k) {
      H5Fflush(files[static_cast<std::size_t>(k)], H5F_SCOPE_GLOBAL);
      H5Fclose(files[static_cast<std::size_t>(k)]);
    }
  }
};
bool ExitHandler::s_isHdf5Damaged = false;
ExitHandler const exitHandler;

} // namespace

void Handle::Close() noexcept {
  if (m_id < 0) return;
  QuietErrors const quiet;
  // After a failure HDF5 1.10 keeps the identifier of an object that it has freed.
  if (H5Idec_ref(m_id) < 0) ExitHandler::s_isHdf5Damaged = true;
  m_id = -1;
}

QuietErrors::QuietErrors() noexcept {
  H5Eget_auto2(H5E_DEFAULT, &m_handler, &m_handlerData);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

QuietErrors::~QuietErrors() { H5Eset_auto2(H5E_DEFAULT, m_handler, m_handlerData); }

namespace {

/// Notes one error of an upward walk. The first error is the root cause; later errors show its kind.
herr_t NoteError(unsigned number, H5E_error2_t const* error, void* into) {
  auto& failure = *static_cast<Hdf5Failure*>(into);
  try {
    if (number == 0 && error->desc != nullptr) failure.cause = error->desc;
  } catch (std::bad_alloc const&) {
    failure.cause.clear(); // no exception passes through C
  }
  if (error->min_num == H5E_CANTLOAD) failure.kind = Hdf5Failure::Kind::Damage;
  if (error->maj_num == H5E_RESOURCE && error->min_num == H5E_NOSPACE)
    failure.kind = Hdf5Failure::Kind::Memory;
  return 0;
}

} // namespace

Hdf5Failure LastHdf5Failure(std::string const& what) {
  Hdf5Failure failure{.what = what, .cause = ""};
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, NoteError, &failure);
  return failure;
}

Handle CreateContiguous(hid_t place, char const* name, hid_t type, std::int64_t count,
                        std::string const& what) {
  auto const extent = static_cast<hsize_t>(count);
  Handle const space = CheckedId(H5Screate_simple(1, &extent, nullptr), what);
  Handle const creation = CheckedId(H5Pcreate(H5P_DATASET_CREATE), what);
  Checked(H5Pset_layout(creation.Get(), H5D_CONTIGUOUS), what);
  Checked(H5Pset_alloc_time(creation.Get(), H5D_ALLOC_TIME_EARLY), what);
  Checked(H5Pset_fill_time(creation.Get(), H5D_FILL_TIME_NEVER), what);
  return CheckedId(H5Dcreate2(place, name, type, space.Get(), H5P_DEFAULT, creation.Get(), H5P_DEFAULT),
                   what);
}

// Other files

Handle AccessInsideFile(hid_t kind, std::string const& path) {
  auto const refuse = [](char const*, char const*, char const*, char const*, unsigned*, hid_t,
                         void*) -> herr_t { return -1; };
  Handle access = CheckedReadId(H5Pcreate(kind), "opening " + path);
  CheckedRead(H5Pset_elink_cb(access.Get(), refuse, nullptr), "opening " + path);
  return access;
}

void RequireOwnRawData(hid_t creation, std::string const& path) {
  bool const isElsewhere = H5Pget_layout(creation) == H5D_VIRTUAL || H5Pget_external_count(creation) != 0;
  if (isElsewhere) throw DamageFound{path + " has its values in another file, which is not opened"};
}

std::uint64_t MostStoredBytes(hid_t dataset, std::uint64_t fileBytes) {
  constexpr std::uint64_t bestCompression = 1 << 16; // deflate reaches 1032, others more with constant values
  Handle const creation = CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of a dataset");
  std::uint64_t const stored = std::min<std::uint64_t>(H5Dget_storage_size(dataset), fileBytes);
  return H5Pget_nfilters(creation.Get()) > 0 ? stored * bestCompression : stored;
}

} // namespace orx::store
