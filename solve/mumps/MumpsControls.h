#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <dmumps_c.h>
#include <optional>
#include <string>

// Names for the elements of MUMPS's control and information arrays, as its users' guide numbers them, and
// what they are set to in every build of it.

namespace orx::mumps {

enum Job { begin = -1, end = -2, analyse = 1, factorize = 2, solve = 3 };

inline MUMPS_INT& Control(DMUMPS_STRUC_C& id, int number) { return id.icntl[number - 1]; }
/// Of all processes.
inline MUMPS_INT Info(DMUMPS_STRUC_C const& id, int number) { return id.infog[number - 1]; }

/// A number of entries; MUMPS gives large ones in millions, with a minus sign.
inline std::int64_t Count(MUMPS_INT info) { return info >= 0 ? info : -std::int64_t{1000000} * info; }

constexpr std::int64_t megabyte = 1000000;

/// Nothing is printed. Factors go to disk by way of a buffer, and without the thread that usually writes:
/// when the disk is full it ends, and MUMPS waits for it forever.
inline void SetForAll(DMUMPS_STRUC_C& id) {
  constexpr int writeInTurn = 3;
  for (int const messages : {1, 2, 3, 4})
    Control(id, messages) = 0;
  id.keep[98] = writeInTurn;
}

/// Codes of Info(id, 1)
constexpr int singular = -10, diskFailed = -90;

inline bool IsOutOfMemory(int code) {
  constexpr std::array codes{-5, -7, -13};
  return std::ranges::find(codes, code) != codes.end();
}

/// Factorizes with more and more workspace beyond the estimate, for delayed pivots, until it suffices. `run`
/// runs the job.
template<class Run>
void FactorizeWithSlack(DMUMPS_STRUC_C& id, Run run) {
  constexpr std::array workspaceTooSmall{-8, -9, -14, -15, -17, -18, -20};
  for (int percent = 30; percent <= 1000; percent *= 3) {
    Control(id, 14) = percent;
    run();
    if (std::ranges::find(workspaceTooSmall, Info(id, 1)) == workspaceTooSmall.end()) return;
  }
}

/// While it lives, SCOTCH does without threads of its own: with them orderings differ from run to run. It
/// asks the environment, and nobody else reads it meanwhile: all calls into the library come from one thread.
class OneThread {
public:
  OneThread() {
    if (char const* const value = std::getenv(name)) m_before = value;
    setenv(name, "1", 1);
  }
  OneThread(OneThread const&) = delete;
  OneThread& operator=(OneThread const&) = delete;
  ~OneThread() {
    if (m_before) {
      setenv(name, m_before->c_str(), 1);
    } else {
      unsetenv(name);
    }
  }

private:
  static constexpr char name[] = "SCOTCH_PTHREAD_NUMBER";
  std::optional<std::string> m_before;
};

} // namespace orx::mumps
