#include "tools/formats/DatabaseMatrix.h"

#include "tools/terminal/Memory.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "sim/ORXSimCSet.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimException.h"
#include "sim/ORXSimTransfer.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <functional>

namespace orx::tool {
namespace {

/// Calls work(); what the database raises becomes a ToolError.
template<class Work>
auto WithToolErrors(Work const& work) {
  try {
    return work();
  } catch (ORXSimException const& e) {
    throw ToolError(ExitCode::UnusableInput, e.AsString().AsText());
  }
}

// Kinds and names

StoredMatrix::Kind KindOf(ORXSimSerializationType const& serialization) {
  switch (serialization.Kind()) {
  case ORXSimSerializationType::Layout::Sparse:
    return StoredMatrix::Kind::Sparse;
  case ORXSimSerializationType::Layout::SparseSym:
    return StoredMatrix::Kind::SparseSymmetric;
  case ORXSimSerializationType::Layout::DenseSym:
    return StoredMatrix::Kind::DenseSymmetric;
  case ORXSimSerializationType::Layout::Dense:
    break;
  }
  return StoredMatrix::Kind::Dense;
}

/// The dimension of the grid that the rows lie along.
int RowDimension(StoredMatrix const& matrix) { return matrix.IsSparse() ? 0 : 1; }

ORXSimPersistentDrawerDesc DrawerOf(ORXSimDistributionID const& id) {
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(id).QueryDrawers(drawers);
  return drawers.IsEmpty() ? ORXSimPersistentDrawerDesc() : drawers[0];
}

bool HoldsMatrix(ORXSimDistributionID const& id) {
  return ORXSimDistribution(id).RangeType().Key() == ORXSimTypeKey::Double &&
         DrawerOf(id).NumDimensions() == 2;
}

StoredMatrix DescribeMatrix(ORXSimDistributionID const& id, ORXSimTypeSchemaSnapshot const& schema) {
  ORXSimPersistentDrawerDesc const drawer = DrawerOf(id);
  StoredMatrix matrix;
  matrix.context = static_cast<int>(id.context.context);
  matrix.distribution = static_cast<int>(id.handle) - 1;
  matrix.kind = KindOf(drawer.Serialization());
  matrix.rows = drawer.DimensionSize(RowDimension(matrix));
  matrix.columns = drawer.DimensionSize(1 - RowDimension(matrix));
  matrix.entries = drawer.DataSizeItems(0);
  if (drawer.ChunkSizes().Size() == 2) {
    matrix.rowsOfChunk = drawer.ChunkSizes()[RowDimension(matrix)];
    matrix.columnsOfChunk = drawer.ChunkSizes()[1 - RowDimension(matrix)];
  }
  int const type = ORXSimDistribution(id).Type().type;
  if (type >= 0) matrix.type = schema.Name(type).AsText();
  matrix.id = id;
  return matrix;
}

std::string LowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

/// "K", "M" or nothing.
std::string RoleOf(std::string const& type) {
  std::string const lower = LowerCase(type);
  if (lower == "k" || lower == "stiffness" || lower == "stiffness matrix") return "K";
  return lower == "m" || lower == "mass" || lower == "mass matrix" ? "M" : "";
}

// Search

using Matrices = std::vector<StoredMatrix>;

Matrices Selected(Matrices const& all, std::function<bool(StoredMatrix const&)> const& test) {
  Matrices selected;
  std::ranges::copy_if(all, std::back_inserter(selected), test);
  return selected;
}

Matrices Meant(Matrices const& all, std::string const& name, std::string const& role) {
  if (!name.empty()) {
    Matrices const ofType = Selected(all, [&](StoredMatrix const& m) { return m.type == name; });
    return ofType.empty() ? Selected(all, [&](StoredMatrix const& m) { return m.Number() == name; }) : ofType;
  }
  if (role.empty()) return all;
  Matrices const ofRole = Selected(all, [&](StoredMatrix const& m) { return RoleOf(m.type) == role; });
  return ofRole.empty() ? Selected(all, [&](StoredMatrix const& m) { return RoleOf(m.type).empty(); })
                        : ofRole;
}

std::string Listed(StoredMatrix const& m) {
  char const* const kinds[] = {"sparse", "sparse symmetric", "dense", "dense symmetric"};
  std::string const type = m.type.empty() ? "" : " of type " + m.type;
  return m.Number() + type + Format(" (%s, %d x %d)", kinds[static_cast<int>(m.kind)], m.rows, m.columns);
}

std::string Listed(Matrices const& matrices) {
  constexpr std::size_t mostShown = 8;
  std::string text;
  for (std::size_t i = 0; i < matrices.size() && i < mostShown; ++i)
    text += (text.empty() ? "" : ", ") + Listed(matrices[i]);
  return matrices.size() > mostShown ? text + ", ..." : text;
}

[[noreturn]] void FailToFind(std::string const& path, std::string const& name, std::string const& role,
                             Matrices const& all, Matrices const& meant) {
  std::string const file = "'" + path + "'";
  if (all.empty())
    throw ToolError(ExitCode::UnusableInput,
                    file + " holds no matrix of doubles in two dimensions; orxmtx db lists what it holds");
  std::string const wanted = name.empty() ? role.empty() ? "" : " that can be " + role : " '" + name + "'";
  std::string const found = meant.empty() ? file + " holds no matrix" + wanted + " among "
                                          : file + " holds several matrices" + wanted + ": ";
  Matrices const& shown = meant.empty() ? all : meant;
  throw ToolError(ExitCode::UnusableInput, found + Listed(shown) +
                                               "; expected a type or a number behind a colon, such as '" +
                                               path + ":" + shown.front().Number() + "'");
}

// Values

std::vector<int> LabelsAlong(StoredMatrix const& matrix, int dimension) {
  return WithToolErrors([&] {
    ORXSimCSet const set(DrawerOf(matrix.id).DimensionCSetID(dimension));
    std::vector<int> labels(static_cast<std::size_t>(set.Size()));
    set.OrderedMembers(labels.data());
    return labels;
  });
}

ORXSrvSparseMatrix ReadSparse(StoredMatrix const& stored) {
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(stored.id);
  return stored.kind == StoredMatrix::Kind::Sparse ? std::move(matrix) : matrix.GeneralForm();
}

/// Calls visit(row, column, value) for all cells, some columns at a time.
template<class Visit>
void ForEachCell(StoredMatrix const& stored, Visit const& visit) {
  constexpr std::int64_t cellsAtOnce = std::int64_t{1} << 22;
  if (stored.rows == 0 || stored.columns == 0) return;
  auto const columnsAtOnce = static_cast<int>(std::clamp<std::int64_t>(cellsAtOnce / stored.rows, 1, 1024));
  ORXSimDistribution const distribution(stored.id);
  std::vector<double> cells(static_cast<std::size_t>(stored.rows) * columnsAtOnce);
  for (int first = 0; first < stored.columns; first += columnsAtOnce) {
    int const last = std::min(first + columnsAtOnce, stored.columns) - 1;
    ORXSimTransfer(distribution)
        .SetRead()
        .SetDimOrdinalRange(0, {}, first, last)
        .SetBuffer(0, cells.data(), static_cast<std::int64_t>(cells.size() * sizeof(double)))
        .ExecRead();
    for (int column = first; column <= last; ++column)
      for (int row = 0; row < stored.rows; ++row)
        visit(row, column, cells[static_cast<std::int64_t>(column - first) * stored.rows + row]);
  }
}

void RequireRoomForEntries(std::string const& name, StoredMatrix const& stored, std::int64_t entries) {
  constexpr std::int64_t bytesOfEntry = 40; // while they are sorted, 12 afterwards
  if (entries > INT_MAX)
    throw ToolError(ExitCode::Failure,
                    Format("'%s': the %d x %d cells hold %lld values other than 0, of which a sparse matrix "
                           "takes up to %d",
                           name.c_str(), stored.rows, stored.columns, static_cast<long long>(entries),
                           INT_MAX));
  std::optional<std::uint64_t> const available = AvailableMemory();
  auto const needed = static_cast<std::uint64_t>(entries * bytesOfEntry);
  if (!available || needed <= *available) return;
  throw ToolError(ExitCode::Failure,
                  Format("'%s': the %lld values other than 0 need %s of memory, %s are available",
                         name.c_str(), static_cast<long long>(entries),
                         Gigabytes(static_cast<double>(needed)).c_str(),
                         Gigabytes(static_cast<double>(*available)).c_str()));
}

ORXSrvSparseMatrix ReadDense(StoredMatrix const& stored, std::string const& name) {
  std::int64_t entries = 0;
  ForEachCell(stored, [&](int, int, double value) { entries += value != 0.0 ? 1 : 0; });
  RequireRoomForEntries(name, stored, entries);
  ORXSrvSparseMatrix matrix(stored.rows, stored.columns);
  ForEachCell(stored, [&](std::uint32_t row, std::uint32_t column, double value) {
    if (value != 0.0) matrix.AddData(row, column, value);
  });
  matrix.EndAssembly();
  return matrix;
}

} // namespace

std::string StoredMatrix::DrawerPath() const {
  return Format("/context_%d/distribution_%d/drawer", context, distribution);
}

std::string StoredMatrix::Number() const { return Format("%d/%d", context, distribution); }

void OpenToRead(ORXSimDatabase& database, std::string const& path) {
  WithToolErrors([&] { database.OpenFile(ORXUnicodeString(path.c_str()), true); });
}

Matrices ListMatrices(ORXSimDatabase const& database) {
  return WithToolErrors([&] {
    Matrices matrices;
    for (ORXSimContextID const& id : database.Contexts()) {
      ORXSimContext const context(id);
      ORXSimTypeSchemaSnapshot const schema = context.Schema();
      for (ORXSimDistributionID const& distribution : context.Distributions())
        if (HoldsMatrix(distribution)) matrices.push_back(DescribeMatrix(distribution, schema));
    }
    return matrices;
  });
}

StoredMatrix FindMatrix(ORXSimDatabase const& database, std::string const& path, std::string const& name,
                        std::string const& role) {
  Matrices const all = ListMatrices(database);
  Matrices const meant = Meant(all, name, role);
  if (meant.size() != 1) FailToFind(path, name, role, all, meant);
  return meant.front();
}

std::string FullName(InputFile const& file, StoredMatrix const& matrix) {
  if (!file.MatrixName().empty()) return file.Name();
  return file.Name() + ":" + (matrix.type.empty() ? matrix.Number() : matrix.type);
}

std::vector<int> RowLabels(StoredMatrix const& matrix) { return LabelsAlong(matrix, RowDimension(matrix)); }

std::vector<int> ColumnLabels(StoredMatrix const& matrix) {
  return LabelsAlong(matrix, 1 - RowDimension(matrix));
}

bool AreCounted(std::vector<int> const& labels) {
  return std::ranges::all_of(labels, [next = 0](int label) mutable { return label == next++; });
}

DatabaseMatrix ReadDatabaseMatrix(InputFile const& file, std::string const& role) {
  return file.ReadWith([&](std::string const& path) {
    ORXSimDatabase database;
    OpenToRead(database, path);
    StoredMatrix const stored = FindMatrix(database, path, file.MatrixName(), role);
    DatabaseMatrix matrix;
    matrix.name = FullName(file, stored);
    matrix.rowLabels = RowLabels(stored);
    if (AreCounted(matrix.rowLabels)) matrix.rowLabels.clear();
    matrix.entries = WithToolErrors(
        [&] { return stored.IsSparse() ? ReadSparse(stored) : ReadDense(stored, matrix.name); });
    return matrix;
  });
}

} // namespace orx::tool
