#pragma once

#include "tools/formats/MatrixSource.h"
#include "tools/numerics/ModalProblem.h"
#include "tools/numerics/Symmetry.h"

#include <functional>
#include <string>

namespace orx::tool {

struct ModesOptions {
  std::string stiffnessPath;
  std::string massPath; ///< empty: M is in the database that K is in
  ModeChoice choice;
  bool explains = false;  ///< prints what the factorization takes, before it begins
  std::string shapesPath; ///< of a type by its extension, else triplets; empty: the shapes are not written
};

/// Two inputs from standard input, and shapes that would replace an input, are a ToolError.
void RequireUsableNames(ModesOptions const& options);

/// The name that M is read by: where none is given, the database that K is in. A ToolError where K is in
/// none.
std::string MassName(ModesOptions const& options);
/// A ToolError when no M is given and the database has one matrix for both.
void RequireTwoMatrices(ModesOptions const& options, SourceFacts const& k, SourceFacts const& m);

/// Prints what `orxmtx modes` prints, by `print`: lines starting with '#' that say what was found and done,
/// then one line per mode. Then writes the shapes file when one is asked for, which is begun before all else:
/// it shows at once when it cannot be, and when it cannot be written later, the modes have been printed.
void PrintModes(ModesOptions const& options, std::function<void(std::string const&)> const& print);

} // namespace orx::tool
