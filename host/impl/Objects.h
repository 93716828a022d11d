#pragma once

#include <cstdint>
#include <memory>
#include <typeinfo>

// The objects of hosts, and the table in which their handles are positions. A handle is
//
//     63          32 31           0
//     | generation | position + 1 |
//
// where the generation counts the objects that a position has held, from 1: no handle is ever given twice,
// and small numbers, whose generation is 0, are none.

namespace orx::host {

/// What a handle stands for. Objects are held by the table and by objects that need them.
class Object : public std::enable_shared_from_this<Object> {
public:
  Object() = default;
  Object(Object const&) = delete;
  Object& operator=(Object const&) = delete;
  virtual ~Object() = default;
};

std::int64_t AddObject(std::shared_ptr<Object> object);
/// Takes an object out of the table; it lives as long as somebody holds it.
void RemoveObject(std::int64_t handle);
void RemoveAllObjects() noexcept;
int CountObjects() noexcept;

/// The object of a handle. Raises wrongHandle, naming the argument, unless there is one of this kind.
Object& FindObject(char const* argument, std::int64_t handle, std::type_info const& kind);

template<class Kind>
Kind& Find(char const* argument, std::int64_t handle) {
  return static_cast<Kind&>(FindObject(argument, handle, typeid(Kind)));
}

} // namespace orx::host
