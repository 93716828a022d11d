#pragma once

#include "core/atr_String.h"

#include <functional>

namespace orx {

/// Calls create(name) with a name for the scratch file of an object, "CLASS" followed by the object's address
/// and ".sim"; with numbered ones while there is a file of that name which stays. The address alone is not
/// enough: a view may still hold the file of an object that was here before, another process may have an
/// object at the same address, and what a dead one has left may not be ours to remove. What create raises for
/// a name that is free passes through.
void CreateUnderFreeName(char const* className, void const* object,
                         std::function<void(atr_String const& name)> const& create);

} // namespace orx
