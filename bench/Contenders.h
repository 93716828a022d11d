#pragma once

#include "bench/Harness.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

// Claims with several peers: in each round every contender has its turn with all tasks; what is reported are
// medians over the rounds.

namespace bench {

struct Timing {
  double seconds;
  double checksum; ///< contenders that agree share it
};
/// By task.
using Timings = std::map<std::string, Timing>;

struct Contender {
  std::string name;
  std::function<Timings()> run;
  std::vector<Timings> rounds{};

  void TakeTurn() { rounds.push_back(run()); }
  double MedianSecondsOf(std::string const& task) const;
};

/// Runs a command that prints "TASK SECONDS" and "TASK_checksum NUMBER" for each of the tasks.
Timings TimeProgram(std::string const& command, std::vector<std::string> const& tasks);

/// The median over the rounds of the ratio of times.
double Ratio(Contender const& ours, Contender const& other, std::string const& task);

/// Reports the largest of the ratios to the peers that have the task, after a look at their checksums.
void ReportAgainstPeers(Report& report, std::string const& claim, std::string const& task,
                        Contender const& ours, std::vector<Contender> const& peers, Goal goal);

} // namespace bench
