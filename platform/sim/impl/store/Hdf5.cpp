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

void Hdf5Id::Close() noexcept {
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

std::vector<std::string> NamesIn(hid_t file, std::string const& path) {
  CollectedItems<std::string> names;
  auto const collect = [](hid_t, char const* name, H5L_info_t const*, void* list) {
    return static_cast<CollectedItems<std::string>*>(list)->Add(name);
  };
  return names.TakeItems(H5Literate_by_name(file, path.c_str(), H5_INDEX_NAME, H5_ITER_NATIVE, nullptr,
                                            collect, &names, H5P_DEFAULT),
                         "listing " + path);
}

namespace {

constexpr hsize_t mostValues = 65536;

/// Writes an attribute with the given shape; an empty shape is a scalar.
void WriteAttributeOfShape(hid_t object, char const* name, hid_t fileType, hid_t memoryType,
                           std::vector<hsize_t> shape, void const* values) {
  std::string const what = std::string("writing the attribute ") + name;
  if (HasAttribute(object, name)) Checked(H5Adelete(object, name), what);
  Hdf5Id const space =
      shape.empty()
          ? CheckedId(H5Screate(H5S_SCALAR), what)
          : CheckedId(H5Screate_simple(static_cast<int>(shape.size()), shape.data(), nullptr), what);
  Hdf5Id const attribute =
      CheckedId(H5Acreate2(object, name, fileType, space.Get(), H5P_DEFAULT, H5P_DEFAULT), what);
  Checked(H5Awrite(attribute.Get(), memoryType, values), what);
}

[[noreturn]] void RaiseUnexpected(char const* name, char const* expected) {
  throw Hdf5Failure{.what = std::string("reading the attribute ") + name,
                    .cause = std::string("it is not ") + expected,
                    .kind = Hdf5Failure::Kind::Damage};
}

Hdf5Id OpenAttribute(hid_t object, char const* name) {
  return CheckedReadId(H5Aopen(object, name, H5P_DEFAULT), std::string("reading the attribute ") + name);
}

template<class Value>
std::vector<Value> ReadNumbers(hid_t object, char const* name, hid_t memoryType) {
  std::string const what = std::string("reading the attribute ") + name;
  Hdf5Id const attribute = OpenAttribute(object, name);
  Hdf5Id const type = CheckedReadId(H5Aget_type(attribute.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_INTEGER) RaiseUnexpected(name, "of integers");
  Hdf5Id const space = CheckedReadId(H5Aget_space(attribute.Get()), what);
  hssize_t const count = CheckedRead(H5Sget_simple_extent_npoints(space.Get()), what);
  if (static_cast<hsize_t>(count) > mostValues) RaiseUnexpected(name, "a short list");
  std::vector<Value> values(static_cast<std::size_t>(count));
  if (count > 0) CheckedRead(H5Aread(attribute.Get(), memoryType, values.data()), what);
  return values;
}

/// Reads a text of variable length, as other programs write it.
std::string ReadTextOfAnyLength(hid_t attribute, hid_t type, std::string const& what) {
  char* chars = nullptr;
  CheckedRead(H5Aread(attribute, type, static_cast<void*>(&chars)), what);
  std::string text = chars != nullptr ? chars : "";
  H5free_memory(chars);
  return text;
}

} // namespace

void WriteAttribute(hid_t object, char const* name, std::span<int const> values) {
  WriteAttributeOfShape(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {values.size()}, values.data());
}

void WriteAttribute(hid_t object, char const* name, int value) {
  WriteAttributeOfShape(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {}, &value);
}

void WriteAttribute(hid_t object, char const* name, std::span<std::uint64_t const> values) {
  WriteAttributeOfShape(object, name, H5T_STD_U64LE, H5T_NATIVE_UINT64, {values.size()}, values.data());
}

void WriteAttribute(hid_t object, char const* name, std::int64_t value) {
  WriteAttributeOfShape(object, name, H5T_STD_I64LE, H5T_NATIVE_INT64, {}, &value);
}

void WriteAttribute(hid_t object, char const* name, std::string const& text) {
  Hdf5Id const type = CheckedReadId(H5Tcopy(H5T_C_S1), "copying a type");
  CheckedRead(H5Tset_size(type.Get(), text.size() + 1), "sizing a type");
  WriteAttributeOfShape(object, name, type.Get(), type.Get(), {}, text.c_str());
}

void WriteTableAttribute(hid_t object, char const* name, std::span<int const> values, int width) {
  auto const columns = static_cast<hsize_t>(width);
  WriteAttributeOfShape(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {values.size() / columns, columns},
                        values.data());
}

bool HasAttribute(hid_t object, char const* name) {
  return CheckedRead(H5Aexists(object, name), std::string("looking for the attribute ") + name) > 0;
}

std::vector<int> ReadIntegers(hid_t object, char const* name) {
  return ReadNumbers<int>(object, name, H5T_NATIVE_INT);
}

int ReadInteger(hid_t object, char const* name) {
  std::vector<int> const values = ReadIntegers(object, name);
  if (values.size() != 1) RaiseUnexpected(name, "one integer");
  return values[0];
}

std::vector<std::uint64_t> ReadWords(hid_t object, char const* name) {
  return ReadNumbers<std::uint64_t>(object, name, H5T_NATIVE_UINT64);
}

std::string ReadText(hid_t object, char const* name) {
  std::string const what = std::string("reading the attribute ") + name;
  Hdf5Id const attribute = OpenAttribute(object, name);
  Hdf5Id const type = CheckedReadId(H5Aget_type(attribute.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_STRING) RaiseUnexpected(name, "a text");
  Hdf5Id const space = CheckedReadId(H5Aget_space(attribute.Get()), what);
  if (H5Sget_simple_extent_npoints(space.Get()) != 1) RaiseUnexpected(name, "one text");
  if (H5Tis_variable_str(type.Get()) > 0) return ReadTextOfAnyLength(attribute.Get(), type.Get(), what);
  std::size_t const size = H5Tget_size(type.Get());
  if (size > mostValues) RaiseUnexpected(name, "a short text");
  std::string text(size, '\0');
  CheckedRead(H5Aread(attribute.Get(), type.Get(), text.data()), what);
  text.resize(std::min(text.size(), text.find('\0')));
  return text;
}

// Other files

Hdf5Id AccessInsideFile(hid_t kind, std::string const& path) {
  auto const refuse = [](char const*, char const*, char const*, char const*, unsigned*, hid_t,
                         void*) -> herr_t { return -1; };
  Hdf5Id access = CheckedReadId(H5Pcreate(kind), "opening " + path);
  CheckedRead(H5Pset_elink_cb(access.Get(), refuse, nullptr), "opening " + path);
  return access;
}

void RequireOwnRawData(hid_t creation, std::string const& path) {
  bool const isElsewhere = H5Pget_layout(creation) == H5D_VIRTUAL || H5Pget_external_count(creation) != 0;
  if (isElsewhere) throw DamageFound{path + " has its values in another file, which is not opened"};
}

std::uint64_t MostStoredBytes(hid_t dataset, std::uint64_t fileBytes) {
  constexpr std::uint64_t bestCompression = 1 << 16; // deflate reaches 1032, others more with constant values
  Hdf5Id const creation = CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of a dataset");
  std::uint64_t const stored = std::min<std::uint64_t>(H5Dget_storage_size(dataset), fileBytes);
  return H5Pget_nfilters(creation.Get()) > 0 ? stored * bestCompression : stored;
}

} // namespace orx::store
