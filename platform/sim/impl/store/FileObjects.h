#pragma once

#include "sim/impl/store/DatabaseFile.h"
#include "sim/impl/store/Handle.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Groups, datasets and attributes of a database file. To be used inside Guarded.

namespace orx::store {

/// Raised inside the storage layer when the content of the file cannot be right; `text` says what is wrong.
/// Guarded raises it as the error `damaged`.
struct DamageFound {
  std::string text;
};

Handle CreateGroup(DatabaseFile const& file, std::string const& path);
Handle OpenGroup(DatabaseFile const& file, std::string const& path);
/// Opens a group or a dataset.
Handle OpenObject(DatabaseFile const& file, std::string const& path);
/// Does the same, and raises DamageFound unless one link leads to the object: objects read once for each of
/// many links could fill the memory from a small file.
Handle OpenUnsharedObject(DatabaseFile const& file, std::string const& path);
bool IsDataset(Handle const& object);
/// The names of the links in a group.
std::vector<std::string> NamesIn(DatabaseFile const& file, std::string const& path);
/// Reads a dataset of integers. Raises DamageFound, with the words of `name`, when it is something else, or
/// is compressed or without space in the file: it may then claim more elements than fit in memory.
std::vector<int> ReadIntegerList(DatabaseFile const& file, Handle const& dataset, std::string const& name);

// Attributes of an object. Writing replaces an existing attribute. Reading raises the error `damaged` when
// the attribute does not exist, has another type, or has more than 65536 values.

void WriteAttribute(Handle const& object, char const* name, std::span<int const> values);
void WriteAttribute(Handle const& object, char const* name, int value);
void WriteAttribute(Handle const& object, char const* name, std::span<std::uint64_t const> values);
void WriteAttribute(Handle const& object, char const* name, std::int64_t value);
void WriteAttribute(Handle const& object, char const* name, std::string const& text);
void RemoveAttribute(Handle const& object, char const* name);

bool HasAttribute(Handle const& object, char const* name);
std::vector<int> ReadIntegers(Handle const& object, char const* name);
int ReadInteger(Handle const& object, char const* name);
std::vector<std::uint64_t> ReadWords(Handle const& object, char const* name);
std::string ReadText(Handle const& object, char const* name);

} // namespace orx::store
