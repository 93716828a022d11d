#pragma once

#include "bench/Process.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// How claims about speed are measured: our code and a peer do the same task in turn in one run, and what is
// printed is the median over these pairs. A machine that is slow for a while is slow for both.

namespace bench {

/// Takes and returns that much memory in 2 MB pages. A virtual machine may have given its free memory back to
/// its host; the next one to touch it then waits for the host, up to 30 ns for 16 bytes, and large pages,
/// which come from large free ranges, wait more often than small ones do. Called before each run of ours and
/// of a peer that takes much memory, this gives both the memory of a machine of their own.
void WarmMemory(std::int64_t bytes);

/// Does its preparations untimed, then the work, and returns the seconds of the work.
using TimedRun = std::function<double()>;

/// REQUIRES: at least one value.
double Median(std::vector<double> values);

/// Medians over pairs of runs.
struct Pairs {
  double ours;       ///< seconds
  double peers;      ///< seconds
  double ratio;      ///< of each pair: ours / peer's
  double difference; ///< of each pair: ours - peer's, in seconds
};

/// Runs ours, peer, peer, ours, ours, peer ... until `seconds` have passed (preparations included), at least
/// `leastPairs` times. A first pair is not counted when the budget is for many: it warms caches up.
Pairs MeasurePairs(TimedRun const& ours, TimedRun const& peer, double seconds, int leastPairs);

/// Runs `task` in a forked process: its memory is clean and its peak is its own. The child leaves the result
/// in `result`, `bytes` long; raises std::runtime_error when the child does not come to its end.
void RunForked(std::function<void()> const& task, void* result, std::size_t bytes);

/// A forked run that returns a plain struct.
template<class Result>
Result InChild(std::function<Result()> const& task) {
  static_assert(std::is_trivially_copyable_v<Result>);
  Result result{};
  RunForked([&] { result = task(); }, &result, sizeof result);
  return result;
}

/// Runs a command of the shell that prints "name value" lines. Raises std::runtime_error when it fails.
std::map<std::string, std::string> RunProgram(std::string const& command);
/// The number of that name; raises std::runtime_error when there is none.
double Number(std::map<std::string, std::string> const& lines, std::string const& name);

struct Goal {
  enum class Kind : std::uint8_t { None, AtMost, AtLeast };
  Kind kind = Kind::None;
  double bound = 0.0;
};
constexpr Goal AtMost(double bound) { return {Goal::Kind::AtMost, bound}; }
constexpr Goal AtLeast(double bound) { return {Goal::Kind::AtLeast, bound}; }

/// The table: one line per claim, "claim | ratio | goal | ok" or "short", printed as it is known.
class Report {
public:
  /// Only claims whose text contains `word`, in upper or lower case, are wanted; "" wants all.
  explicit Report(std::string_view word);

  bool Wants(std::string_view claim) const;
  /// True when the word is `name` itself: for claims that take so long that they are only made when asked
  /// for.
  bool IsAskedFor(std::string_view name) const { return m_word == name; }
  void Heading() const;
  /// `value` is a ratio, or has a unit. `figures` is what was measured, printed behind the claim.
  void Line(std::string const& claim, std::string const& figures, double value, char const* unit, Goal goal);
  /// A claim whose peer is not installed.
  void Absent(std::string const& claim, char const* peer);
  /// Performs a measurement; when it raises an exception, a line says so and the exit code becomes 1.
  void Try(std::string const& claim, std::function<void()> const& measurement);
  int ExitCode() const { return m_failures == 0 ? 0 : 1; }
  void Summary() const;

private:
  void Print(std::string const& claim, std::string const& value, std::string const& goal,
             char const* verdict) const;

  std::string m_word; ///< lower case
  int m_ok = 0;
  int m_short = 0;
  int m_failures = 0;
};

/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string Format(char const* format, ...);

/// Raises std::runtime_error when the results that two contenders should share differ.
void RequireAgreement(bool agree, std::string const& what);

} // namespace bench
