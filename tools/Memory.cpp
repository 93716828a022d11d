#include "tools/Memory.h"

#include "tools/Text.h"
#include "tools/ToolError.h"

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

std::string Gigabytes(std::uint64_t bytes) { return Format("%.1f GB", static_cast<double>(bytes) / 1e9); }

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
                           Gigabytes(needed).c_str(), Gigabytes(*available).c_str()));
}

} // namespace orx::tool
