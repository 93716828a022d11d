#pragma once

#include <array>
#include <optional>
#include <span>

namespace orx {

/// The processes that share out the rows of a problem, in ascending order, and do the same steps at the same
/// time; this one is alone. What each step decides by is equal on all of them.
class Processes {
public:
  using Values = std::array<double, 4>;

  Processes() = default;
  Processes(Processes const&) = delete;
  Processes& operator=(Processes const&) = delete;
  virtual ~Processes() = default;

  /// Number of this process, from 0.
  virtual int Rank() const noexcept { return 0; }
  /// Replaces values by their sums over all processes.
  virtual void Sum(std::span<double>) const {}
  virtual double Largest(double value) const { return value; }
  /// The values of the first process that has some.
  virtual std::optional<Values> First(std::optional<Values> const& values) const { return values; }
  /// Replaces values by those of the first process.
  virtual void Agree(std::span<double>) const {}

  double Sum(double value) const {
    Sum(std::span(&value, 1));
    return value;
  }
};

} // namespace orx
