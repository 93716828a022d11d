#pragma once

#include "sim/impl/store/Handle.h"

#include <string>

namespace orx::store {

class DatabaseFile;

/// The group or dataset of a drawer, at a pending path until the drawer is saved.
class DrawerObject {
public:
  DrawerObject(DrawerObject const&) = delete;
  DrawerObject& operator=(DrawerObject const&) = delete;

  /// Moves the object from its pending path to its own; MoveBack undoes this. To be called inside Guarded.
  void MoveTo(std::string const& path);
  void MoveBack();

protected:
  explicit DrawerObject(DatabaseFile& file) noexcept : m_file(file) {}
  /// Removes an object that is still pending, which frees its space.
  ~DrawerObject();

  DatabaseFile& m_file;
  Handle m_object;       ///< the dataset while it is open; a group is open during a call only
  std::string m_path;    ///< present path
  std::string m_pending; ///< path before MoveTo; "" for an object that was opened
};

} // namespace orx::store
