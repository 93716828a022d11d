#include "bench/Contenders.h"

#include <algorithm>

namespace bench {

double Contender::MedianSecondsOf(std::string const& task) const {
  std::vector<double> seconds;
  for (Timings const& round : rounds)
    seconds.push_back(round.at(task).seconds);
  return Median(seconds);
}

Timings TimeProgram(std::string const& command, std::vector<std::string> const& tasks) {
  auto const lines = RunProgram(command);
  Timings timings;
  for (std::string const& task : tasks)
    timings[task] = {Number(lines, task), Number(lines, task + "_checksum")};
  return timings;
}

double Ratio(Contender const& ours, Contender const& other, std::string const& task) {
  std::vector<double> ratios;
  for (std::size_t r = 0; r < ours.rounds.size(); ++r)
    ratios.push_back(ours.rounds[r].at(task).seconds / other.rounds[r].at(task).seconds);
  return Median(ratios);
}

void ReportAgainstPeers(Report& report, std::string const& claim, std::string const& task,
                        Contender const& ours, std::vector<Contender> const& peers, Goal goal) {
  double largest = 0.0;
  std::string figures;
  for (Contender const& peer : peers) {
    if (!peer.rounds[0].contains(task)) continue;
    RequireAgreement(peer.rounds[0].at(task).checksum == ours.rounds[0].at(task).checksum,
                     claim + ", " + peer.name);
    largest = std::max(largest, Ratio(ours, peer, task));
    figures +=
        Format("%s %s %.1f", figures.empty() ? "" : ",", peer.name.c_str(), peer.MedianSecondsOf(task) * 1e3);
  }
  if (figures.empty()) return report.Absent(claim, "every peer");
  report.Line(claim, Format("%.1f :", ours.MedianSecondsOf(task) * 1e3) + figures + " ms", largest, "", goal);
}

} // namespace bench
