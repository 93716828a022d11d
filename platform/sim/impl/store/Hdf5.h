#pragma once

#include <cstdint>
#include <hdf5.h>
#include <new>
#include <span>
#include <string>
#include <utility>
#include <vector>

// Thin wrappers of the HDF5 C interface: owned identifiers, quiet errors, attributes.

namespace orx::store {

/// An owned HDF5 identifier of any kind.
class Hdf5Id {
public:
  explicit Hdf5Id(hid_t id = -1) noexcept : m_id(id) {}
  Hdf5Id(Hdf5Id&& other) noexcept : m_id(std::exchange(other.m_id, -1)) {}
  Hdf5Id& operator=(Hdf5Id&& other) noexcept {
    std::swap(m_id, other.m_id);
    return *this;
  }
  ~Hdf5Id() { Close(); }

  bool IsValid() const noexcept { return m_id >= 0; }
  hid_t Get() const noexcept { return m_id; }
  void Close() noexcept;

private:
  hid_t m_id;
};

/// Keeps HDF5 from printing errors in this thread; the destructor restores the host's handler.
class QuietErrors {
public:
  QuietErrors() noexcept;
  QuietErrors(QuietErrors const&) = delete;
  QuietErrors& operator=(QuietErrors const&) = delete;
  ~QuietErrors();

private:
  H5E_auto2_t m_handler = nullptr;
  void* m_handlerData = nullptr;
};

/// Raised inside the storage layer by a failed call; DatabaseFile turns it into an ORXSimException.
struct Hdf5Failure {
  enum class Kind : std::uint8_t { Other, Damage, Memory };

  std::string what;  ///< the failed operation: "creating the group /context_0"
  std::string cause; ///< HDF5's description; "" when it gives none
  Kind kind = Kind::Other;
};

/// Raised inside the storage layer when the content of the file cannot be right; `text` says what is wrong.
struct DamageFound {
  std::string text;
};

/// The failure of the last call. Call this at once: the next successful call of HDF5 erases the failure.
Hdf5Failure LastHdf5Failure(std::string const& what);

/// Returns the failure as damage of the file, unless it is a shortage of memory.
inline Hdf5Failure AsDamage(Hdf5Failure failure) {
  if (failure.kind == Hdf5Failure::Kind::Other) failure.kind = Hdf5Failure::Kind::Damage;
  return failure;
}

/// Returns the result of a call; raises an Hdf5Failure when it is negative.
template<class Result>
Result Checked(Result result, std::string const& what) {
  if (result < 0) throw LastHdf5Failure(what);
  return result;
}
inline Hdf5Id CheckedId(hid_t id, std::string const& what) { return Hdf5Id(Checked(id, what)); }
/// Does the same for calls that read from the file: content that HDF5 cannot read is damaged.
template<class Result>
Result CheckedRead(Result result, std::string const& what) {
  if (result < 0) throw AsDamage(LastHdf5Failure(what));
  return result;
}
inline Hdf5Id CheckedReadId(hid_t id, std::string const& what) { return Hdf5Id(CheckedRead(id, what)); }

/// A list that a callback of HDF5 fills. No exception may pass through C, so a shortage of memory is raised
/// only after HDF5 has returned.
template<class Item>
class CollectedItems {
public:
  /// Adds an item; the callback returns the result to HDF5.
  template<class... Fields>
  herr_t Add(Fields&&... fields) noexcept {
    try {
      m_items.push_back(Item{std::forward<Fields>(fields)...});
      return 0;
    } catch (std::bad_alloc const&) {
      m_isOutOfMemory = true;
      return -1;
    }
  }
  /// Moves the list out. `result` is what HDF5 has returned, `what` names the operation.
  std::vector<Item> TakeItems(herr_t result, std::string const& what) {
    if (m_isOutOfMemory) throw std::bad_alloc();
    CheckedRead(result, what);
    return std::move(m_items);
  }

private:
  std::vector<Item> m_items;
  bool m_isOutOfMemory = false;
};

// A database is read from its own file alone: a file may come from a stranger, and other files that it names
// are not opened.

/// An access list of the class H5P_DATASET_ACCESS or H5P_GROUP_ACCESS. With it, opening a link to another
/// file fails.
Hdf5Id AccessInsideFile(hid_t kind, std::string const& path);
/// Raises DamageFound when the raw data of the dataset with these properties lies in other files.
void RequireOwnRawData(hid_t creation, std::string const& path);
/// Upper bound for the bytes of a dataset in a file of `fileBytes`: its space, or for a compressed dataset
/// the most that this space can unpack to.
std::uint64_t MostStoredBytes(hid_t dataset, std::uint64_t fileBytes);

/// The names of the links in a group.
std::vector<std::string> NamesIn(hid_t file, std::string const& path);

// Attributes of an object. Writing replaces an existing attribute. Reading raises an Hdf5Failure when the
// attribute does not exist, has another type, or has more than 65536 values.

void WriteAttribute(hid_t object, char const* name, std::span<int const> values);
void WriteAttribute(hid_t object, char const* name, int value);
void WriteAttribute(hid_t object, char const* name, std::span<std::uint64_t const> values);
void WriteAttribute(hid_t object, char const* name, std::int64_t value);
void WriteAttribute(hid_t object, char const* name, std::string const& text);
/// Writes a two-dimensional attribute with `width` values in each row.
void WriteTableAttribute(hid_t object, char const* name, std::span<int const> values, int width);

bool HasAttribute(hid_t object, char const* name);
std::vector<int> ReadIntegers(hid_t object, char const* name);
int ReadInteger(hid_t object, char const* name);
std::vector<std::uint64_t> ReadWords(hid_t object, char const* name);
std::string ReadText(hid_t object, char const* name);

} // namespace orx::store
