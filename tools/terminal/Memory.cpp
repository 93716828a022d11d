#include "tools/terminal/Memory.h"

#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <fstream>
#include <string>

namespace orx::tool {
namespace {

/// LAPACK multiplies orders and block sizes in 32 bits; above this the products overflow.
constexpr int largestOrder = 32766;

std::optional<std::uint64_t> FirstNumber(char const* path) {
  std::ifstream file(path);
  std::uint64_t value = 0;
  if (file >> value) return value;
  return {};
}

std::optional<std::uint64_t> AvailableInSystem() {
  std::ifstream file("/proc/meminfo");
  std::string name;
  std::uint64_t kilobytes = 0;
  std::string unit;
  while (file >> name >> kilobytes && std::getline(file, unit))
    if (name == "MemAvailable:") return kilobytes * 1024;
  return {};
}

/// A limit of "max" is not a number, hence no limit.
std::optional<std::uint64_t> AvailableInControlGroup() {
  auto const limit = FirstNumber("/sys/fs/cgroup/memory.max");
  auto const used = FirstNumber("/sys/fs/cgroup/memory.current");
  if (!limit || !used) return {};
  return *limit - std::min(*limit, *used);
}

} // namespace

std::optional<std::uint64_t> AvailableMemory() {
  auto const inSystem = AvailableInSystem();
  auto const inGroup = AvailableInControlGroup();
  if (!inSystem || !inGroup) return inSystem ? inSystem : inGroup;
  return std::min(*inSystem, *inGroup);
}

std::uint64_t EigensolutionMemory(int order) noexcept {
  constexpr std::uint64_t matrices = 4;
  constexpr std::uint64_t workColumns = 100;
  auto const n = static_cast<std::uint64_t>(order);
  return (matrices * n + workColumns) * n * sizeof(double);
}

void RequireFits(int order, std::optional<std::uint64_t> available) {
  if (order > largestOrder)
    throw ToolError(ExitCode::Failure,
                    Format("order %d: the dense eigensolver takes orders up to %d", order, largestOrder));
  std::uint64_t const needed = EigensolutionMemory(order);
  if (available && needed > *available)
    throw ToolError(ExitCode::Failure,
                    Format("order %d: the dense matrices need %s of memory, %s are available", order,
                           Gigabytes(static_cast<double>(needed)).c_str(),
                           Gigabytes(static_cast<double>(*available)).c_str()));
}

void RequireRoomForTables(std::string const& name, std::int64_t rows, std::int64_t columns,
                          std::optional<std::uint64_t> available) {
  constexpr std::uint64_t bytesOfLine = 50;
  std::uint64_t const needed = bytesOfLine * static_cast<std::uint64_t>(std::max(rows, columns));
  if (available && needed > *available)
    throw ToolError(ExitCode::Failure,
                    Format("'%s': the matrix is %lld x %lld, whose tables of rows and columns need %s of "
                           "memory, %s are available",
                           name.c_str(), static_cast<long long>(rows), static_cast<long long>(columns),
                           Gigabytes(static_cast<double>(needed)).c_str(),
                           Gigabytes(static_cast<double>(*available)).c_str()));
}

} // namespace orx::tool
