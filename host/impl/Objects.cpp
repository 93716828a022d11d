#include "host/impl/Objects.h"

#include "host/impl/HostError.h"
#include "host/impl/Kinds.h"

#include <string>
#include <utility>
#include <vector>

namespace orx::host {
namespace {

struct Place {
  std::uint32_t generation = 0; ///< of the object that is or was here last
  std::shared_ptr<Object> object;
};

struct Table {
  std::vector<Place> places;
  std::vector<std::uint32_t> free;

  ~Table() { RemoveAllObjects(); }
};

/// Ends with the process, and with it the objects that the host left: their scratch files go.
Table& TheTable() {
  static Table table;
  return table;
}

constexpr std::uint32_t lastGeneration = INT32_MAX;

std::uint32_t GenerationOf(std::int64_t handle) noexcept {
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(handle) >> 32);
}

/// The place that a handle names, whatever is there now; null for a number that was never a handle.
Place* PlaceOf(std::int64_t handle) noexcept {
  std::vector<Place>& places = TheTable().places;
  std::uint32_t const position = static_cast<std::uint32_t>(handle) - 1; // of 0 the largest number
  if (position >= places.size()) return nullptr;
  Place& place = places[position];
  return GenerationOf(handle) >= 1 && GenerationOf(handle) <= place.generation ? &place : nullptr;
}

bool IsAlive(Place const* place, std::int64_t handle) noexcept {
  return place != nullptr && place->generation == GenerationOf(handle) && place->object != nullptr;
}

std::string NameOf(std::type_info const& kind) {
  for (auto const& [type, name] :
       {std::pair{&typeid(Database), "a database"}, std::pair{&typeid(Registry), "a registry"},
        std::pair{&typeid(BlockMatrix), "a block matrix"},
        std::pair{&typeid(SparseMatrix), "a sparse matrix"}, std::pair{&typeid(Factor), "a factor"},
        std::pair{&typeid(Modes), "modes"}})
    if (*type == kind) return name;
  return "an object";
}

[[noreturn]] void RaiseWrongHandle(char const* argument, std::int64_t handle,
                                   std::type_info const& expected) {
  Place const* const place = PlaceOf(handle);
  std::string found = std::to_string(handle) + ", which is no handle";
  if (handle == 0) {
    found = "0, the handle of nothing";
  } else if (IsAlive(place, handle)) {
    Object const& object = *place->object;
    found = "a handle of " + NameOf(typeid(object));
  } else if (place != nullptr) {
    found = "a handle of an object that was deleted";
  }
  RaiseHostError(HostError::wrongHandle,
                 std::string(argument) + " is " + found + "; expected one of " + NameOf(expected) + ".");
}

} // namespace

std::int64_t AddObject(std::shared_ptr<Object> object) {
  Table& table = TheTable();
  if (table.free.empty()) {
    table.free.reserve(table.places.size() + 1); // so that RemoveObject does not fail
    table.places.emplace_back();
    table.free.push_back(static_cast<std::uint32_t>(table.places.size() - 1));
  }
  std::uint32_t const position = table.free.back();
  table.free.pop_back();
  Place& place = table.places[position];
  place = {place.generation + 1, std::move(object)};
  return static_cast<std::int64_t>(std::uint64_t{place.generation} << 32 | (position + 1));
}

void RemoveObject(std::int64_t handle) {
  Place* const place = PlaceOf(handle);
  if (!IsAlive(place, handle)) RaiseWrongHandle("object", handle, typeid(Object));
  std::shared_ptr<Object> const object = std::move(place->object);
  Table& table = TheTable();
  if (place->generation < lastGeneration)
    table.free.push_back(static_cast<std::uint32_t>(place - table.places.data()));
}

void RemoveAllObjects() noexcept {
  Table& table = TheTable();
  for (std::size_t i = 0; i < table.places.size(); ++i)
    if (std::shared_ptr<Object> const object = std::move(table.places[i].object))
      if (table.places[i].generation < lastGeneration) table.free.push_back(static_cast<std::uint32_t>(i));
}

int CountObjects() noexcept {
  int count = 0;
  for (Place const& place : TheTable().places)
    count += place.object != nullptr ? 1 : 0;
  return count;
}

Object& FindObject(char const* argument, std::int64_t handle, std::type_info const& kind) {
  Place* const place = PlaceOf(handle);
  if (IsAlive(place, handle)) {
    Object& object = *place->object;
    if (typeid(object) == kind) return object;
  }
  RaiseWrongHandle(argument, handle, kind);
}

} // namespace orx::host
