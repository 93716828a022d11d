#include "Session.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"

#include <cmath>
#include <numeric>

// What a session does with fields as block matrices: columns are along dimension 0, rows along dimension 1.

namespace {

constexpr double largestValue = 1e12; // sums of products stay exact

bool IsMatrix(Session::Field const& field) {
  return field.drawer != nullptr && !field.drawer->isSparse && !field.isInteger && field.sizes.size() == 2 &&
         !field.drawer->cells.empty();
}

bool IsSmall(Session::Field const& field) {
  return std::ranges::all_of(field.drawer->cells, [](double cell) { return std::abs(cell) < largestValue; });
}

} // namespace

void Session::ChangeMatrix() {
  Context& context = DrawFrom(m_contexts);
  Field* const field = DrawField(context, IsMatrix);
  if (field == nullptr) return;
  switch (Draw(0, 3)) {
  case 0:
    return Scale(*field);
  case 1:
    return AddTo(context, *field);
  case 2:
    return Lengthen(context, *field, true);
  default:
    return WriteView(*field);
  }
}

void Session::Scale(Field& field) {
  Live([&] { ORXSrvDenseMatrix(field.id).Scale(-1.0); });
  for (double& cell : field.drawer->cells)
    cell = -cell;
}

void Session::AddTo(Context& context, Field& field) {
  Field const* const other = DrawField(context, [&](Field const& candidate) {
    return IsMatrix(candidate) && candidate.sizes == field.sizes && candidate.drawer != field.drawer;
  });
  if (other == nullptr || !IsSmall(*other) || !IsSmall(field)) return;
  Live([&] { ORXSrvDenseMatrix(field.id).AddAssign(ORXSrvDenseMatrix(other->id)); });
  for (std::size_t k = 0; k < field.drawer->cells.size(); ++k)
    field.drawer->cells[k] += other->drawer->cells[k];
}

/// Writes a rectangle through a view that holds it, and reads it back.
void Session::WriteView(Field& field) {
  int const columns = field.sizes[0], rows = field.sizes[1];
  int const firstColumn = Draw(0, columns - 1), firstRow = Draw(0, rows - 1);
  int const width = Draw(1, columns - firstColumn), height = Draw(1, rows - firstRow);
  std::vector<std::vector<int>> chosen{std::vector<int>(width), std::vector<int>(height)};
  std::iota(chosen[0].begin(), chosen[0].end(), firstColumn);
  std::iota(chosen[1].begin(), chosen[1].end(), firstRow);
  std::vector<double> written = DrawValues(static_cast<std::size_t>(width) * height);
  Live([&] {
    ORXSrvDenseMatrix const matrix(field.id);
    std::unique_ptr<ORXSrvDenseMatrix> const view(
        matrix.Submatrix(firstRow, rows - 1, firstColumn, columns - 1));
    ORXSrvMatrix const values(height, width, written.data());
    view->SetValues(0, height - 1, 0, width - 1, values);
    ORXSrvMatrix found(height, width);
    view->GetValues(0, height - 1, 0, width - 1, found);
    if (!(found == values)) Fail("a view reads other values than were written");
  });
  field.drawer->Set(chosen, written);
}

void Session::ReadProduct() {
  Field const* const field = DrawField(DrawFrom(m_contexts), IsMatrix);
  if (field == nullptr) return;
  auto const columns = static_cast<std::size_t>(field->sizes[0]),
             rows = static_cast<std::size_t>(field->sizes[1]);
  std::vector<double> x(columns), y(rows), expected(rows);
  std::ranges::generate(x, [&] { return Draw(-3, 3); });
  for (std::size_t c = 0; c < columns; ++c)
    for (std::size_t r = 0; r < rows; ++r)
      expected[r] += field->drawer->cells[c * rows + r] * x[c];
  Live([&] {
    ORXSrvDenseMatrix(field->id).Multiply(x.data(), 1, y.data());
    if (y != expected) Fail("a product differs");
  });
}
