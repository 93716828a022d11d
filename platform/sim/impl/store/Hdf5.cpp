#include "sim/impl/store/Hdf5.h"

#include <algorithm>

namespace orx::store {

void Hdf5Id::Close() noexcept {
  if (m_id < 0) return;
  QuietErrors const quiet;
  H5Idec_ref(m_id);
  m_id = -1;
}

QuietErrors::QuietErrors() noexcept {
  H5Eget_auto2(H5E_DEFAULT, &m_handler, &m_handlerData);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

QuietErrors::~QuietErrors() { H5Eset_auto2(H5E_DEFAULT, m_handler, m_handlerData); }

std::string LastHdf5Error() {
  std::string cause;
  auto const takeFirst = [](unsigned, H5E_error2_t const* error, void* text) -> herr_t {
    if (error->desc != nullptr) *static_cast<std::string*>(text) = error->desc;
    return 1; // the first of an upward walk is the root
  };
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, takeFirst, &cause);
  return cause;
}

namespace {

constexpr hsize_t mostElements = 65536;

void WriteValues(hid_t object, char const* name, hid_t fileType, hid_t memoryType, std::vector<hsize_t> shape,
                 void const* values) {
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
                    .cause = std::string("it is not ") + expected};
}

Hdf5Id OpenAttribute(hid_t object, char const* name) {
  return CheckedId(H5Aopen(object, name, H5P_DEFAULT), std::string("reading the attribute ") + name);
}

template<class Value>
std::vector<Value> ReadNumbers(hid_t object, char const* name, hid_t memoryType) {
  std::string const what = std::string("reading the attribute ") + name;
  Hdf5Id const attribute = OpenAttribute(object, name);
  Hdf5Id const type = CheckedId(H5Aget_type(attribute.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_INTEGER) RaiseUnexpected(name, "of integers");
  Hdf5Id const space = CheckedId(H5Aget_space(attribute.Get()), what);
  hssize_t const count = Checked(H5Sget_simple_extent_npoints(space.Get()), what);
  if (static_cast<hsize_t>(count) > mostElements) RaiseUnexpected(name, "a short list");
  std::vector<Value> values(static_cast<std::size_t>(count));
  if (count > 0) Checked(H5Aread(attribute.Get(), memoryType, values.data()), what);
  return values;
}

/// Other programs write texts so.
std::string ReadTextOfAnyLength(hid_t attribute, hid_t type, std::string const& what) {
  char* chars = nullptr;
  Checked(H5Aread(attribute, type, static_cast<void*>(&chars)), what);
  std::string text = chars != nullptr ? chars : "";
  H5free_memory(chars);
  return text;
}

} // namespace

void WriteAttribute(hid_t object, char const* name, std::span<int const> values) {
  WriteValues(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {values.size()}, values.data());
}

void WriteAttribute(hid_t object, char const* name, int value) {
  WriteValues(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {}, &value);
}

void WriteAttribute(hid_t object, char const* name, std::span<std::uint64_t const> values) {
  WriteValues(object, name, H5T_STD_U64LE, H5T_NATIVE_UINT64, {values.size()}, values.data());
}

void WriteAttribute(hid_t object, char const* name, std::int64_t value) {
  WriteValues(object, name, H5T_STD_I64LE, H5T_NATIVE_INT64, {}, &value);
}

void WriteAttribute(hid_t object, char const* name, std::string const& text) {
  Hdf5Id const type = CheckedId(H5Tcopy(H5T_C_S1), "copying a type");
  Checked(H5Tset_size(type.Get(), text.size() + 1), "sizing a type");
  WriteValues(object, name, type.Get(), type.Get(), {}, text.c_str());
}

void WriteTableAttribute(hid_t object, char const* name, std::span<int const> values, int width) {
  auto const columns = static_cast<hsize_t>(width);
  WriteValues(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {values.size() / columns, columns}, values.data());
}

bool HasAttribute(hid_t object, char const* name) {
  return Checked(H5Aexists(object, name), std::string("looking for the attribute ") + name) > 0;
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
  Hdf5Id const type = CheckedId(H5Aget_type(attribute.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_STRING) RaiseUnexpected(name, "a text");
  Hdf5Id const space = CheckedId(H5Aget_space(attribute.Get()), what);
  if (H5Sget_simple_extent_npoints(space.Get()) != 1) RaiseUnexpected(name, "one text");
  if (H5Tis_variable_str(type.Get()) > 0) return ReadTextOfAnyLength(attribute.Get(), type.Get(), what);
  std::size_t const size = H5Tget_size(type.Get());
  if (size > mostElements) RaiseUnexpected(name, "a short text");
  std::string text(size, '\0');
  Checked(H5Aread(attribute.Get(), type.Get(), text.data()), what);
  text.resize(std::min(text.size(), text.find('\0')));
  return text;
}

// Other files

Hdf5Id AccessInsideFile(hid_t kind, std::string const& path) {
  auto const refuse = [](char const*, char const*, char const*, char const*, unsigned*, hid_t,
                         void*) -> herr_t { return -1; };
  Hdf5Id access = CheckedId(H5Pcreate(kind), "opening " + path);
  Checked(H5Pset_elink_cb(access.Get(), refuse, nullptr), "opening " + path);
  return access;
}

void RequireOwnValues(hid_t creation, std::string const& path) {
  bool const isElsewhere = H5Pget_layout(creation) == H5D_VIRTUAL || H5Pget_external_count(creation) != 0;
  if (isElsewhere) throw DamageFound{path + " has its values in another file, which is not opened"};
}

std::uint64_t MostStoredBytes(hid_t dataset, std::uint64_t fileBytes) {
  constexpr std::uint64_t bestCompression = 1 << 16; // deflate reaches 1032, others more with constant values
  Hdf5Id const creation = CheckedId(H5Dget_create_plist(dataset), "reading the properties of a dataset");
  std::uint64_t const stored = std::min<std::uint64_t>(H5Dget_storage_size(dataset), fileBytes);
  return H5Pget_nfilters(creation.Get()) > 0 ? stored * bestCompression : stored;
}

} // namespace orx::store
