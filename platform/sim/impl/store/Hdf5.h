#pragma once

#include "sim/impl/store/FileObjects.h"

#include <cstdint>
#include <hdf5.h>
#include <new>
#include <string>
#include <utility>
#include <vector>

// How calls of HDF5 are checked, and how objects are kept to their own file.

namespace orx::store {

/// Raised inside the storage layer by a failed call; DatabaseFile turns it into an ORXSimException.
struct Hdf5Failure {
  enum class Kind : std::uint8_t { Other, Damage, Memory };

  std::string what;  ///< the failed operation: "creating the group /context_0"
  std::string cause; ///< HDF5's description; "" when it gives none
  Kind kind = Kind::Other;
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
inline Handle CheckedId(hid_t id, std::string const& what) { return Handle(Checked(id, what)); }
/// Does the same for calls that read from the file: content that HDF5 cannot read is damaged.
template<class Result>
Result CheckedRead(Result result, std::string const& what) {
  if (result < 0) throw AsDamage(LastHdf5Failure(what));
  return result;
}
inline Handle CheckedReadId(hid_t id, std::string const& what) { return Handle(CheckedRead(id, what)); }

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

/// Creates a contiguous dataset with one dimension, whose space is allocated now and not filled.
Handle CreateContiguous(hid_t place, char const* name, hid_t type, std::int64_t count,
                        std::string const& what);

// A database is read from its own file alone: a file may come from a stranger, and other files that it names
// are not opened.

/// An access list of the class H5P_DATASET_ACCESS or H5P_GROUP_ACCESS. With it, opening a link to another
/// file fails.
Handle AccessInsideFile(hid_t kind, std::string const& path);
/// Raises DamageFound when the raw data of the dataset with these properties lies in other files.
void RequireOwnRawData(hid_t creation, std::string const& path);
/// Upper bound for the bytes of a dataset in a file of `fileBytes`: its space, or for a compressed dataset
/// the most that this space can unpack to.
std::uint64_t MostStoredBytes(hid_t dataset, std::uint64_t fileBytes);

} // namespace orx::store
