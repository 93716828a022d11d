#include "tools/mpi/FillReducingOrder.h"

#include "solve/mumps/MumpsControls.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <scotch.h>
#include <unordered_map>
#include <utility>

namespace orx::mpi {
namespace {

constexpr int unknownsOfNode = 3;

std::uint64_t Hash(std::uint64_t x) noexcept { // the finalizer of splitmix64
  x += 0x9e3779b97f4a7c15;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9;
  x = (x ^ (x >> 27)) * 0x94d049bb133111eb;
  return x ^ (x >> 31);
}

/// Of the patterns of this rank's rows, with the diagonal.
std::vector<std::uint64_t> HashPatterns(LocalRows const& rows, int firstRow) {
  std::vector<std::uint64_t> patterns(static_cast<std::size_t>(rows.Count()));
  for (std::size_t i = 0; i < patterns.size(); ++i)
    patterns[i] = Hash(static_cast<std::uint64_t>(firstRow) + i);
  rows.ForEachEntry([&](int row, int column, double) {
    if (row != column)
      patterns[static_cast<std::size_t>(row)] += Hash(static_cast<std::uint64_t>(rows.UnknownOf(column)));
  });
  return patterns;
}

/// The values of all ranks behind one another, on the root.
template<class T>
std::vector<T> GatherOnRoot(Ranks const& ranks, std::vector<T> const& own) {
  MPI_Datatype type = MPI_DATATYPE_NULL;
  MPI_Type_contiguous(sizeof(T), MPI_BYTE, &type);
  MPI_Type_commit(&type);
  std::vector<int> const counts = ranks.Gathered(static_cast<int>(own.size()));
  std::vector<int> firsts(counts.size());
  std::exclusive_scan(counts.begin(), counts.end(), firsts.begin(), 0);
  std::vector<T> all;
  ranks.OnRoot(
      [&] { all.resize(static_cast<std::size_t>(firsts.back()) + static_cast<std::size_t>(counts.back())); });
  MPI_Gatherv(own.data(), static_cast<int>(own.size()), type, all.data(), counts.data(), firsts.data(), type,
              0, ranks.Communicator());
  MPI_Type_free(&type);
  return all;
}

/// Numbers groups of equal keys in the order of their first members.
std::vector<int> NumberGroups(std::vector<std::uint64_t> const& keys) {
  std::unordered_map<std::uint64_t, int> numbers;
  std::vector<int> groups;
  groups.reserve(keys.size());
  for (std::uint64_t const key : keys)
    groups.push_back(numbers.try_emplace(key, static_cast<int>(numbers.size())).first->second);
  return groups;
}

/// Share of the positions that are entries, among those of all blocks of three by three that have entries.
double FillOfNodes(LocalRows const& rows, int order, int firstRow, Ranks const& ranks) {
  std::vector<int> lastRow(static_cast<std::size_t>(order / unknownsOfNode) + 1, -1); // by node
  std::int64_t entries = 0, positions = 0;
  rows.ForEachEntry([&](int row, int column, double) {
    int const node = (firstRow + row) / unknownsOfNode;
    auto const other = static_cast<std::size_t>(rows.UnknownOf(column) / unknownsOfNode);
    ++entries;
    if (std::exchange(lastRow[other], node) != node) positions += unknownsOfNode * unknownsOfNode;
  });
  return static_cast<double>(ranks.Sum(entries)) / static_cast<double>(ranks.Sum(positions));
}

/// The group of each unknown, on all ranks. Where zeros that were left out make the patterns of a node
/// differ, three consecutive unknowns are taken for one if blocks of that size are full for the most part.
std::vector<int> FindGroups(LocalRows const& rows, int order, int firstRow, Ranks const& ranks) {
  constexpr double worthwhileShare = 0.7, leastFill = 0.6;
  std::vector<std::uint64_t> const patterns = GatherOnRoot(ranks, HashPatterns(rows, firstRow));
  bool const mayBeNodes =
      order % unknownsOfNode == 0 && FillOfNodes(rows, order, firstRow, ranks) >= leastFill;
  std::vector<int> groupOf;
  ranks.OnEach([&] {
    groupOf.resize(static_cast<std::size_t>(order));
    if (!ranks.IsRoot()) return;
    groupOf = NumberGroups(patterns);
    int const count = 1 + *std::ranges::max_element(groupOf);
    if (!mayBeNodes || count <= worthwhileShare * order) return;
    for (int i = 0; i < order; ++i)
      groupOf[static_cast<std::size_t>(i)] = i / unknownsOfNode;
  });
  MPI_Bcast(groupOf.data(), order, MPI_INT, 0, ranks.Communicator());
  return groupOf;
}

/// Neighbours of groups, as rows tell: a group, the number of its neighbours, and these.
std::vector<int> ListNeighbours(LocalRows const& rows, std::vector<int> const& groupOf, int firstRow) {
  std::vector<int> lists, list, before;
  int listedGroup = -1;
  auto const end = [&](int row) {
    std::ranges::sort(list);
    list.erase(std::unique(list.begin(), list.end()), list.end());
    int const group = groupOf[static_cast<std::size_t>(firstRow) + static_cast<std::size_t>(row)];
    if (group != listedGroup || list != before) {
      lists.push_back(group);
      lists.push_back(static_cast<int>(list.size()));
      lists.insert(lists.end(), list.begin(), list.end());
    }
    listedGroup = group;
    before.swap(list);
    list.clear();
  };
  int current = 0;
  rows.ForEachEntry([&](int row, int column, double) {
    for (; current < row; ++current)
      end(current);
    int const group = groupOf[static_cast<std::size_t>(rows.UnknownOf(column))];
    if (group != groupOf[static_cast<std::size_t>(firstRow) + static_cast<std::size_t>(row)])
      list.push_back(group);
  });
  for (; current < rows.Count(); ++current)
    end(current);
  return lists;
}

/// An undirected graph in compressed lists.
struct Graph {
  std::vector<SCOTCH_Num> first, neighbours, weights;
};

Graph MakeGraph(std::vector<int> const& lists, std::vector<int> const& groupOf) {
  int const count = 1 + *std::ranges::max_element(groupOf);
  std::vector<std::vector<SCOTCH_Num>> neighbours(static_cast<std::size_t>(count));
  for (auto at = lists.begin(); at != lists.end();) {
    auto const group = static_cast<std::size_t>(*at++);
    int const length = *at++;
    for (int k = 0; k < length; ++k, ++at) { // the pattern may be symmetric in one of both ways only
      neighbours[group].push_back(*at);
      neighbours[static_cast<std::size_t>(*at)].push_back(static_cast<SCOTCH_Num>(group));
    }
  }
  Graph graph{{0}, {}, std::vector<SCOTCH_Num>(static_cast<std::size_t>(count), 0)};
  for (int const group : groupOf)
    ++graph.weights[static_cast<std::size_t>(group)];
  for (std::vector<SCOTCH_Num>& list : neighbours) {
    std::ranges::sort(list);
    graph.neighbours.insert(graph.neighbours.end(), list.begin(), std::unique(list.begin(), list.end()));
    graph.first.push_back(static_cast<SCOTCH_Num>(graph.neighbours.size()));
    std::vector<SCOTCH_Num>().swap(list);
  }
  return graph;
}

/// The place of each vertex in the order of elimination, zero-based.
std::vector<SCOTCH_Num> Dissect(Graph& graph) {
  mumps::OneThread const oneThread;
  auto const count = static_cast<SCOTCH_Num>(graph.weights.size());
  std::vector<SCOTCH_Num> places(graph.weights.size());
  SCOTCH_Graph vertices;
  SCOTCH_Strat strategy;
  SCOTCH_randomSeed(1);
  SCOTCH_randomReset();
  SCOTCH_graphInit(&vertices);
  SCOTCH_stratInit(&strategy);
  bool const isDone =
      SCOTCH_graphBuild(&vertices, 0, count, graph.first.data(), nullptr, graph.weights.data(), nullptr,
                        static_cast<SCOTCH_Num>(graph.neighbours.size()), graph.neighbours.data(),
                        nullptr) == 0 &&
      SCOTCH_graphOrder(&vertices, &strategy, places.data(), nullptr, nullptr, nullptr, nullptr) == 0;
  SCOTCH_stratExit(&strategy);
  SCOTCH_graphExit(&vertices);
  if (!isDone) throw tool::ToolError(tool::ExitCode::Failure, "SCOTCH cannot order the unknowns");
  return places;
}

/// One-based places of unknowns: those of one group follow one another.
std::vector<int> PlacesOfUnknowns(std::vector<SCOTCH_Num> const& placeOfGroup,
                                  std::vector<int> const& groupOf, std::vector<SCOTCH_Num> const& sizes) {
  std::vector<int> next(sizes.size() + 1, 0);
  for (std::size_t group = 0; group < sizes.size(); ++group)
    next[static_cast<std::size_t>(placeOfGroup[group]) + 1] = sizes[group];
  std::partial_sum(next.begin(), next.end(), next.begin());
  std::vector<int> places;
  places.reserve(groupOf.size());
  for (int const group : groupOf)
    places.push_back(++next[static_cast<std::size_t>(placeOfGroup[static_cast<std::size_t>(group)])]);
  return places;
}

} // namespace

std::vector<int> FindFillReducingOrder(LocalRows const& rows, int order, Ranks const& ranks) {
  int const firstRow = ranks.OwnShare(order).first;
  std::vector<int> const groupOf = FindGroups(rows, order, firstRow, ranks);
  std::vector<int> const lists = GatherOnRoot(ranks, ListNeighbours(rows, groupOf, firstRow));
  std::vector<int> places;
  ranks.OnRoot([&] {
    Graph graph = MakeGraph(lists, groupOf);
    places = PlacesOfUnknowns(Dissect(graph), groupOf, graph.weights);
  });
  return places;
}

} // namespace orx::mpi
