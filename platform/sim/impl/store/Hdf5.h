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

/// While it lives HDF5 prints nothing in this thread; afterwards the host's handler is back.
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

/// What a failed call raises inside the storage layer; DatabaseFile turns it into an ORXSimException.
struct Hdf5Failure {
  enum class Kind : std::uint8_t { Other, Damage, Memory };

  std::string what;  ///< "creating the group /context_0"
  std::string cause; ///< in HDF5's words; "" when it gives none
  Kind kind = Kind::Other;
};

/// Raised inside the storage layer: something read does not make sense.
struct DamageFound {
  std::string text;
};

/// The failure of the last call. To be asked at once: any further call that succeeds forgets it.
Hdf5Failure LastHdf5Failure(std::string const& what);

/// A failure that is not a shortage of memory as one of the file.
inline Hdf5Failure AsDamage(Hdf5Failure failure) {
  if (failure.kind == Hdf5Failure::Kind::Other) failure.kind = Hdf5Failure::Kind::Damage;
  return failure;
}

/// Passes a result on, or raises an Hdf5Failure when it is negative.
template<class Result>
Result Checked(Result result, std::string const& what) {
  if (result < 0) throw LastHdf5Failure(what);
  return result;
}
inline Hdf5Id CheckedId(hid_t id, std::string const& what) { return Hdf5Id(Checked(id, what)); }
/// The same for calls that read what is in the file: what HDF5 cannot read is damaged.
template<class Result>
Result CheckedRead(Result result, std::string const& what) {
  if (result < 0) throw AsDamage(LastHdf5Failure(what));
  return result;
}
inline Hdf5Id CheckedReadId(hid_t id, std::string const& what) { return Hdf5Id(CheckedRead(id, what)); }

/// A list that a callback fills. No exception passes through C, so a shortage of memory waits until HDF5 has
/// returned.
template<class Item>
class CollectedItems {
public:
  /// What the callback returns.
  template<class... Parts>
  herr_t Add(Parts&&... parts) noexcept {
    try {
      m_items.push_back(Item{std::forward<Parts>(parts)...});
      return 0;
    } catch (std::bad_alloc const&) {
      m_isOutOfMemory = true;
      return -1;
    }
  }
  std::vector<Item> Take(herr_t result, std::string const& what) {
    if (m_isOutOfMemory) throw std::bad_alloc();
    CheckedRead(result, what);
    return std::move(m_items);
  }

private:
  std::vector<Item> m_items;
  bool m_isOutOfMemory = false;
};

// Other files. A database is read from its own file alone: what a stranger's file names elsewhere is not
// opened.

/// An access list, of H5P_DATASET_ACCESS or H5P_GROUP_ACCESS, with which a link to another file is a failure.
Hdf5Id AccessInsideFile(hid_t kind, std::string const& path);
/// Raises DamageFound when the values of the dataset with these properties lie in other files.
void RequireOwnRawData(hid_t creation, std::string const& path);
/// Bytes that a dataset may have: its space in the file of `fileBytes`, or what that may be unpacked to.
std::uint64_t MostStoredBytes(hid_t dataset, std::uint64_t fileBytes);

/// The names of the links in a group.
std::vector<std::string> NamesIn(hid_t file, std::string const& path);

// Attributes of an object. A present one is replaced. Reading raises an Hdf5Failure when the attribute is not
// there or has another type or more than 65536 elements.

void WriteAttribute(hid_t object, char const* name, std::span<int const> values);
void WriteAttribute(hid_t object, char const* name, int value);
void WriteAttribute(hid_t object, char const* name, std::span<std::uint64_t const> values);
void WriteAttribute(hid_t object, char const* name, std::int64_t value);
void WriteAttribute(hid_t object, char const* name, std::string const& text);
/// Values in rows of `width`.
void WriteTableAttribute(hid_t object, char const* name, std::span<int const> values, int width);

bool HasAttribute(hid_t object, char const* name);
std::vector<int> ReadIntegers(hid_t object, char const* name);
int ReadInteger(hid_t object, char const* name);
std::vector<std::uint64_t> ReadWords(hid_t object, char const* name);
std::string ReadText(hid_t object, char const* name);

} // namespace orx::store
