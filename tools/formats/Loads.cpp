#include "tools/formats/Loads.h"

#include "tools/formats/ModelText.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace orx::tool {
namespace {

std::string LoadsName(std::string const& path) { return "F ('" + path + "')"; }

void RequireRows(std::string const& path, int rows, bool isWhole, SourceFacts const& k) {
  if (rows == k.Order() || (rows < k.Order() && !isWhole)) return;
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s has %d rows; %s has order %d, expected the same", LoadsName(path).c_str(), rows,
                         k.FullName().c_str(), k.Order()));
}

/// Loads and displacements, both with a copy, and the residual are in memory at a time.
void RequireRoom(std::string const& path, int order, int columns) {
  std::optional<std::uint64_t> const available = AvailableMemory();
  double const bytes = 8.0 * 6.0 * order * columns;
  if (!available || bytes <= static_cast<double>(*available)) return;
  throw ToolError(ExitCode::Failure,
                  Format("%s: %d columns of %d unknowns take %s of memory, %s are available",
                         LoadsName(path).c_str(), columns, order, Gigabytes(bytes).c_str(),
                         Gigabytes(static_cast<double>(*available)).c_str()));
}

Columns ReadColumn(InputFile const& file, SourceFacts const& k) {
  std::vector<double> values = ReadColumnOfValues(file);
  RequireRows(file.Name(), static_cast<int>(values.size()), true, k);
  Columns loads;
  loads.rows = k.Order();
  loads.count = 1;
  loads.values = std::move(values);
  return loads;
}

Columns ReadMatrix(InputFile const& file, FileKind kind, SourceFacts const& k) {
  ORXSrvSparseMatrix const entries = LoadMatrix(file, {kind, {}, 0});
  RequireRows(file.Name(), entries.NumberOfRows(), HasHeader(kind), k);
  if (entries.NumberOfColumns() == 0)
    throw ToolError(ExitCode::UnusableInput,
                    LoadsName(file.Name()) + " has no column; expected one for each load");
  RequireRoom(file.Name(), k.Order(), entries.NumberOfColumns());
  Columns loads(k.Order(), entries.NumberOfColumns());
  ForEachEntry(entries.View(), [&](int row, int column, double value) { loads.Column(column)[row] = value; });
  return loads;
}

} // namespace

Columns ReadLoads(std::string const& path, SourceFacts const& k) {
  InputFile const file(path);
  FileKind const kind = KindToRead(file, {});
  bool const isColumn = kind == FileKind::Triplets && IsColumnOfValues(file);
  Columns loads = isColumn ? ReadColumn(file, k) : ReadMatrix(file, kind, k);
  auto const bad = std::ranges::find_if_not(loads.values, [](double value) { return std::isfinite(value); });
  if (bad == loads.values.end()) return loads;
  std::int64_t const at = bad - loads.values.begin();
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s: the value at (%d, %d) is %s, expected a finite number",
                         LoadsName(file.Name()).c_str(), static_cast<int>(at % loads.rows) + 1,
                         static_cast<int>(at / loads.rows) + 1, Number(*bad).c_str()));
}

} // namespace orx::tool
