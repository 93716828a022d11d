#include "mtx/impl/exchange/GeneralForm.h"

#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/exchange/TripletCompressor.h"

#include <algorithm>
#include <climits>

namespace orx {

namespace {

/// The triangle that holds all entries of a pattern whose rows ascend; Neither for any other pattern.
enum class Triangle : std::uint8_t { Lower, Upper, Neither };

Triangle TriangleOf(CompressedRowsView const& pattern) {
  bool isLower = true;
  bool isUpper = true;
  bool ascends = true;
  for (std::int32_t i = 0; i < pattern.rows && ascends && (isLower || isUpper); ++i) {
    std::uint32_t const* const columns = pattern.ColumnsOf(i);
    std::int32_t const length = pattern.Length(i);
    if (length == 0) continue;
    auto const row = static_cast<std::uint32_t>(i);
    isUpper = isUpper && columns[0] > row;
    isLower = isLower && columns[length - 1] < row;
    for (std::int32_t k = 1; k < length; ++k)
      ascends &= columns[k - 1] < columns[k];
  }
  if (!ascends || !(isLower || isUpper)) return Triangle::Neither;
  return isUpper ? Triangle::Upper : Triangle::Lower;
}

/// Sets the row pointers of the general form. Returns the position of each row's first mirrored entry.
mem_Array<std::int32_t> PlaceRows(CompressedRowsView const& pattern, Triangle triangle,
                                  CompressedRows& result) {
  auto next = mem_MakeArray<std::int32_t>(pattern.rows);
  std::fill_n(next.get(), pattern.rows, 0);
  for (std::int32_t k = 0; k < pattern.Entries(); ++k)
    ++next[pattern.columnIndices[k]];
  result.rowPointers[0] = 0;
  for (std::int32_t i = 0; i < pattern.rows; ++i) {
    std::int32_t const ownEntries = pattern.Length(i) + 1;
    result.rowPointers[i + 1] = result.rowPointers[i] + ownEntries + next[i];
    next[i] = result.rowPointers[i] + (triangle == Triangle::Lower ? ownEntries : 0);
  }
  return next;
}

/// Mirrors one triangle. Rows and columns ascend without sorting:
///
///     upper   row i:   mirrored, from the rows above | diagonal | stored
///     lower   row i:   stored | diagonal | mirrored, from the rows below
CompressedRows MirrorTriangle(CompressedRowsView const& pattern, Triangle triangle, double const* mirrored,
                              double const* stored) {
  std::int32_t const n = pattern.rows;
  std::int64_t const entries = n + std::int64_t{2} * pattern.Entries();
  CompressedRows result;
  ResizeEntries(result, entries <= INT_MAX ? entries : -1);
  AllocateRowPointers(result, n, n);
  auto const next = PlaceRows(pattern, triangle, result);
  result.entries = result.numberOfNonzeros = static_cast<std::int32_t>(entries);
  for (std::int32_t i = 0; i < n; ++i) {
    std::int32_t const begin = pattern.rowPointers[i];
    std::int32_t const length = pattern.Length(i);
    std::int32_t const first = triangle == Triangle::Lower ? result.rowPointers[i] : next[i] + 1;
    std::int32_t const diagonal = triangle == Triangle::Lower ? first + length : next[i];
    std::copy_n(pattern.ColumnsOf(i), length, result.columnIndices.get() + first);
    std::copy_n(stored + begin, length, result.values.get() + first);
    result.columnIndices[diagonal] = static_cast<std::uint32_t>(i);
    result.values[diagonal] = pattern.diagonal[i];
    for (std::int32_t k = begin; k < begin + length; ++k) {
      std::int32_t const to = next[pattern.columnIndices[k]]++;
      result.columnIndices[to] = static_cast<std::uint32_t>(i);
      result.values[to] = mirrored[k];
    }
  }
  return result;
}

/// Does the same for a pattern in any order.
CompressedRows Assemble(CompressedRowsView const& pattern, double const* mirrored, double const* stored) {
  auto const rows = static_cast<std::uint32_t>(pattern.rows);
  std::uint32_t const* const columns = pattern.columnIndices;
  TripletCompressor compressor(pattern.rows, pattern.rows,
                               pattern.rows + std::int64_t{2} * pattern.Entries());
  auto const add = [&](std::uint32_t row, std::uint32_t column, double value) {
    ORXSrvSparseMatrixEntry const triplet{row, column, value};
    compressor.Add({&triplet, 1});
  };
  for (std::uint32_t i = 0; i < rows; ++i)
    add(i, i, pattern.diagonal[i]);
  for (std::uint32_t i = 0; i < rows; ++i)
    for (std::int32_t k = pattern.rowPointers[i]; k < pattern.rowPointers[i + 1]; ++k)
      add(columns[k], i, mirrored[k]);
  for (std::uint32_t i = 0; i < rows; ++i)
    for (std::int32_t k = pattern.rowPointers[i]; k < pattern.rowPointers[i + 1]; ++k)
      add(i, columns[k], stored[k]);
  return compressor.Compress();
}

} // namespace

CompressedRows MakeGeneralForm(CompressedRowsView const& pattern, double const* mirrored,
                               double const* stored) {
  Triangle const triangle = TriangleOf(pattern);
  return triangle == Triangle::Neither ? Assemble(pattern, mirrored, stored)
                                       : MirrorTriangle(pattern, triangle, mirrored, stored);
}

} // namespace orx
