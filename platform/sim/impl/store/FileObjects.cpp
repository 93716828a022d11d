#include "sim/impl/store/FileObjects.h"

#include "file/TransactionalFile.h"
#include "sim/impl/store/Hdf5.h"

#include <algorithm>
#include <limits>

namespace orx::store {

Handle CreateGroup(DatabaseFile const& file, std::string const& path) {
  return CheckedId(H5Gcreate2(file.Id(), path.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                   "creating " + path);
}

Handle OpenGroup(DatabaseFile const& file, std::string const& path) {
  return CheckedReadId(H5Gopen2(file.Id(), path.c_str(), H5P_DEFAULT), "opening " + path);
}

Handle OpenObject(DatabaseFile const& file, std::string const& path) {
  return CheckedReadId(H5Oopen(file.Id(), path.c_str(), H5P_DEFAULT), "opening " + path);
}

Handle OpenUnsharedObject(DatabaseFile const& file, std::string const& path) {
  Handle object = OpenObject(file, path);
  H5O_info_t info;
  CheckedRead(H5Oget_info2(object.Get(), &info, H5O_INFO_BASIC), "looking at " + path);
  if (info.rc != 1) throw DamageFound{path + " has " + std::to_string(info.rc) + " links, expected 1"};
  return object;
}

bool IsDataset(Handle const& object) { return H5Iget_type(object.Get()) == H5I_DATASET; }

std::vector<std::string> NamesIn(DatabaseFile const& file, std::string const& path) {
  CollectedItems<std::string> names;
  auto const collect = [](hid_t, char const* name, H5L_info_t const*, void* list) {
    return static_cast<CollectedItems<std::string>*>(list)->Add(name);
  };
  return names.TakeItems(H5Literate_by_name(file.Id(), path.c_str(), H5_INDEX_NAME, H5_ITER_NATIVE, nullptr,
                                            collect, &names, H5P_DEFAULT),
                         "listing " + path);
}

namespace {

/// True when all elements of the dataset lie in the file uncompressed.
bool IsStoredWhole(DatabaseFile const& file, hid_t dataset, hid_t type, hssize_t count) {
  Handle const creation = CheckedReadId(H5Dget_create_plist(dataset), "reading the properties of labels");
  std::uint64_t const stored = H5Dget_storage_size(dataset);
  return H5Pget_nfilters(creation.Get()) == 0 && H5Pget_external_count(creation.Get()) <= 0 &&
         stored <= file.Bytes().EndOfAllocation() &&
         stored / std::max<std::size_t>(H5Tget_size(type), 1) >= static_cast<std::uint64_t>(count);
}

} // namespace

std::vector<int> ReadIntegerList(DatabaseFile const& file, Handle const& dataset, std::string const& name) {
  std::string const what = "reading " + name;
  Handle const space = CheckedReadId(H5Dget_space(dataset.Get()), what);
  Handle const type = CheckedReadId(H5Dget_type(dataset.Get()), what);
  hssize_t const count = CheckedRead(H5Sget_simple_extent_npoints(space.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_INTEGER || count > std::numeric_limits<int>::max() ||
      !IsStoredWhole(file, dataset.Get(), type.Get(), count))
    throw DamageFound{name + " are not a list of integers"};
  std::vector<int> integers(static_cast<std::size_t>(count));
  if (count > 0)
    CheckedRead(H5Dread(dataset.Get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, integers.data()), what);
  return integers;
}

// Attributes

namespace {

constexpr hsize_t mostValues = 65536;

/// Writes an attribute with the given shape; an empty shape is a scalar.
void WriteAttributeOfShape(Handle const& object, char const* name, hid_t fileType, hid_t memoryType,
                           std::vector<hsize_t> shape, void const* values) {
  std::string const what = std::string("writing the attribute ") + name;
  if (HasAttribute(object, name)) Checked(H5Adelete(object.Get(), name), what);
  Handle const space =
      shape.empty()
          ? CheckedId(H5Screate(H5S_SCALAR), what)
          : CheckedId(H5Screate_simple(static_cast<int>(shape.size()), shape.data(), nullptr), what);
  Handle const attribute =
      CheckedId(H5Acreate2(object.Get(), name, fileType, space.Get(), H5P_DEFAULT, H5P_DEFAULT), what);
  Checked(H5Awrite(attribute.Get(), memoryType, values), what);
}

[[noreturn]] void RaiseUnexpected(char const* name, char const* expected) {
  throw Hdf5Failure{.what = std::string("reading the attribute ") + name,
                    .cause = std::string("it is not ") + expected,
                    .kind = Hdf5Failure::Kind::Damage};
}

Handle OpenAttribute(Handle const& object, char const* name) {
  return CheckedReadId(H5Aopen(object.Get(), name, H5P_DEFAULT),
                       std::string("reading the attribute ") + name);
}

template<class Value>
std::vector<Value> ReadNumbers(Handle const& object, char const* name, hid_t memoryType) {
  std::string const what = std::string("reading the attribute ") + name;
  Handle const attribute = OpenAttribute(object, name);
  Handle const type = CheckedReadId(H5Aget_type(attribute.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_INTEGER) RaiseUnexpected(name, "of integers");
  Handle const space = CheckedReadId(H5Aget_space(attribute.Get()), what);
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

void WriteAttribute(Handle const& object, char const* name, std::span<int const> values) {
  WriteAttributeOfShape(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {values.size()}, values.data());
}

void WriteAttribute(Handle const& object, char const* name, int value) {
  WriteAttributeOfShape(object, name, H5T_STD_I32LE, H5T_NATIVE_INT, {}, &value);
}

void WriteAttribute(Handle const& object, char const* name, std::span<std::uint64_t const> values) {
  WriteAttributeOfShape(object, name, H5T_STD_U64LE, H5T_NATIVE_UINT64, {values.size()}, values.data());
}

void WriteAttribute(Handle const& object, char const* name, std::int64_t value) {
  WriteAttributeOfShape(object, name, H5T_STD_I64LE, H5T_NATIVE_INT64, {}, &value);
}

void WriteAttribute(Handle const& object, char const* name, std::string const& text) {
  Handle const type = CheckedReadId(H5Tcopy(H5T_C_S1), "copying a type");
  CheckedRead(H5Tset_size(type.Get(), text.size() + 1), "sizing a type");
  WriteAttributeOfShape(object, name, type.Get(), type.Get(), {}, text.c_str());
}

void RemoveAttribute(Handle const& object, char const* name) {
  Checked(H5Adelete(object.Get(), name), std::string("removing the attribute ") + name);
}

bool HasAttribute(Handle const& object, char const* name) {
  return CheckedRead(H5Aexists(object.Get(), name), std::string("looking for the attribute ") + name) > 0;
}

std::vector<int> ReadIntegers(Handle const& object, char const* name) {
  return ReadNumbers<int>(object, name, H5T_NATIVE_INT);
}

int ReadInteger(Handle const& object, char const* name) {
  std::vector<int> const values = ReadIntegers(object, name);
  if (values.size() != 1) RaiseUnexpected(name, "one integer");
  return values[0];
}

std::vector<std::uint64_t> ReadWords(Handle const& object, char const* name) {
  return ReadNumbers<std::uint64_t>(object, name, H5T_NATIVE_UINT64);
}

std::string ReadText(Handle const& object, char const* name) {
  std::string const what = std::string("reading the attribute ") + name;
  Handle const attribute = OpenAttribute(object, name);
  Handle const type = CheckedReadId(H5Aget_type(attribute.Get()), what);
  if (H5Tget_class(type.Get()) != H5T_STRING) RaiseUnexpected(name, "a text");
  Handle const space = CheckedReadId(H5Aget_space(attribute.Get()), what);
  if (H5Sget_simple_extent_npoints(space.Get()) != 1) RaiseUnexpected(name, "one text");
  if (H5Tis_variable_str(type.Get()) > 0) return ReadTextOfAnyLength(attribute.Get(), type.Get(), what);
  std::size_t const size = H5Tget_size(type.Get());
  if (size > mostValues) RaiseUnexpected(name, "a short text");
  std::string text(size, '\0');
  CheckedRead(H5Aread(attribute.Get(), type.Get(), text.data()), what);
  text.resize(std::min(text.size(), text.find('\0')));
  return text;
}

} // namespace orx::store
