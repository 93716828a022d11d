#pragma once

#include "tools/mpi/Ranks.h"

#include <hdf5.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orx::mpi {

/// Owns an identifier of HDF5. Closing is collective, so that it is left undone while an error is on its way,
/// see Handle.
class StoredObject {
public:
  using Close = herr_t (*)(hid_t);

  StoredObject(hid_t id, Close close) noexcept : m_id(id), m_close(close) {}
  StoredObject(StoredObject&& other) noexcept : m_id(std::exchange(other.m_id, -1)), m_close(other.m_close) {}
  StoredObject& operator=(StoredObject&& other) = delete;
  ~StoredObject();

  hid_t Get() const noexcept { return m_id; }

private:
  hid_t m_id;
  Close m_close;
};

/// A rectangle of an array: the last two dimensions; those before are at one position.
struct StoredRectangle {
  std::vector<std::int64_t> first; ///< of each dimension
  std::int64_t count, length;      ///< along the last but one and the last dimension
};

/// An array in a database, from which each rank reads what it needs.
class StoredArray {
public:
  /// Of each dimension.
  std::vector<std::int64_t> const& Shape() const noexcept { return m_shape; }
  /// Of an array of one dimension.
  std::int64_t Length() const noexcept { return m_shape.front(); }
  /// Of all its bytes as they are in memory; none in files of other programs.
  std::optional<std::uint64_t> const& Checksum() const noexcept { return m_checksum; }
  /// "model.sim: /context_0/distribution_0/drawer/ir", for messages.
  std::string const& Name() const noexcept { return m_name; }

  /// Elements `first` to first + count - 1, by this rank alone: other ranks may read others or none. What
  /// cannot be read is a ToolError.
  void Read(std::int64_t first, std::int64_t count, std::int32_t* to) const;
  void Read(std::int64_t first, std::int64_t count, double* to) const;
  /// A rectangle of an array of two or more dimensions, whose runs of `length` come `distance` apart.
  void Read(StoredRectangle const& rectangle, double* to, std::int64_t distance) const;

private:
  friend class ParallelFile;
  StoredArray(StoredObject dataset, std::string name, int dimensions);
  void Read(std::int64_t first, std::int64_t count, hid_t type, void* to) const;

  StoredObject m_dataset;
  std::string m_name;
  std::vector<std::int64_t> m_shape;
  std::optional<std::uint64_t> m_checksum;
};

/// A database file that all ranks have open for reading, through HDF5 on MPI. REQUIRES that one rank has it
/// open with the library, whose lock keeps writers away, and which has looked at its structure.
class ParallelFile {
public:
  /// Collective, as Open is. Failures are a ToolError of all ranks.
  ParallelFile(std::string path, Ranks const& ranks);

  StoredArray Open(std::string const& object, int dimensions = 1) const;
  std::string const& Path() const noexcept { return m_path; }

private:
  std::string m_path;
  Ranks const& m_ranks;
  std::unique_ptr<StoredObject> m_file;
};

} // namespace orx::mpi
