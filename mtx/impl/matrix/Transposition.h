#pragma once

#include <cstdint>

namespace orx {

// Operations on elements and their mirror images. Matrices are stored by columns: element (i, j) has the
// index j * leadingDimension + i. All leading dimensions are fast. With 1024 rows, say, the columns begin in
// the same few cache lines, where single elements of a row evict each other: elements are therefore moved in
// blocks through registers.

/// The elements below or above the diagonal.
enum class Triangle : std::uint8_t { Lower, Upper };

/// Transposes an n x n matrix without gaps in place.
void TransposeSquare(double* values, std::int64_t n);

/// Copies one triangle of the leading square of order n onto the other.
void MirrorTriangle(Triangle source, double* values, std::int64_t leadingDimension, std::int64_t n);
/// The same with the copied values negated; the diagonal stays.
void MirrorTriangleNegated(Triangle source, double* values, std::int64_t leadingDimension, std::int64_t n);

/// True when an n x n matrix without gaps equals its transpose exactly. A NaN off the diagonal differs from
/// everything.
bool EqualsItsTranspose(double const* values, std::int64_t n);

/// True when a, rows x columns, is exactly the transpose of b, columns x rows, both without gaps. A NaN
/// differs from everything.
bool IsTransposeOf(double const* a, std::int64_t rows, std::int64_t columns, double const* b);

} // namespace orx
