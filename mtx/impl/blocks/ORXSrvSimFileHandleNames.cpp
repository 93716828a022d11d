#include "mtx/impl/blocks/ORXSrvSimFileHandleNames.h"

#include "sim/ORXSimException.h"

#include <array>
#include <cstdio>
#include <filesystem>

namespace orx {

namespace {

/// Returns the name of a choice, with a number from the second choice on.
atr_String Name(char const* className, void const* object, int choice) {
  std::array<char, 80> name{};
  if (choice == 0) {
    std::snprintf(name.data(), name.size(), "%s%p.sim", className, object);
  } else {
    std::snprintf(name.data(), name.size(), "%s%p-%d.sim", className, object, choice);
  }
  return atr_String(name.data());
}

bool IsTaken(atr_String const& name) noexcept {
  std::error_code ignored;
  return std::filesystem::exists(std::filesystem::symlink_status(name.AsText(), ignored));
}

} // namespace

void CreateUnderFreeName(char const* className, void const* object,
                         std::function<void(atr_String const& name)> const& create) {
  constexpr int choices = 1000;
  for (int choice = 0;; ++choice) {
    atr_String const name = Name(className, object, choice);
    try {
      return create(name);
    } catch (ORXSimException const&) {
      if (choice == choices - 1 || !IsTaken(name)) throw;
    }
  }
}

} // namespace orx
