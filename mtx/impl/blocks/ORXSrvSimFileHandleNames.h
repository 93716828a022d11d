#pragma once

#include "core/atr_String.h"

#include <functional>

namespace orx {

/// Calls create(name) with a name for the scratch file of an object: "CLASS", the object's address and
/// ".sim". Where create fails and a file of that name exists, tries numbered names. The address alone is not
/// enough: a view may still hold the file of an earlier object, another process may have an object at the
/// same address, and a file that a dead process has left may not be ours to remove. An error of create for a
/// name that is free passes through.
void CreateUnderFreeName(char const* className, void const* object,
                         std::function<void(atr_String const& name)> const& create);

} // namespace orx
