#include "sim/impl/store/DrawerObject.h"

#include "sim/impl/store/DatabaseFile.h"

namespace orx::store {

DrawerObject::~DrawerObject() {
  if (m_pending.empty() || m_path != m_pending) return;
  m_object.Close();
  m_file.RemoveObject(m_path);
}

void DrawerObject::MoveTo(std::string const& path) {
  m_object.Close();
  std::string now = path;
  m_file.MoveObject(m_path, now);
  m_path.swap(now);
}

void DrawerObject::MoveBack() {
  if (m_path != m_pending) MoveTo(m_pending);
}

} // namespace orx::store
