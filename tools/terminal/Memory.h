#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orx::tool {

/// Bytes that this process can still get: what the system counts as available, less if the control group of
/// the process allows less. Empty where the system does not say.
std::optional<std::uint64_t> AvailableMemory();

/// Peak bytes of a dense eigensolution of this order: the pair, the eigenvectors, one factor, and columns of
/// workspace.
std::uint64_t EigensolutionMemory(int order) noexcept;

/// Refuses an order whose dense matrices do not fit, before any of them is allocated.
void RequireFits(int order, std::optional<std::uint64_t> available);

/// Refuses a sparse matrix whose rows and columns, with or without entries, do not fit: 50 bytes each, of row
/// pointers and sums.
void RequireRoomForTables(std::string const& name, std::int64_t rows, std::int64_t columns,
                          std::optional<std::uint64_t> available);

} // namespace orx::tool
