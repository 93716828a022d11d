#include "tools/formats/ModelText.h"

#include "tools/formats/TextLines.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>

namespace orx::tool {
namespace {

std::string_view WithoutComment(std::string_view line) { return line.substr(0, line.find('#')); }

/// Calls visit(line, item) for what stands between blanks and commas.
template<class Visit>
void ForEachItem(TextLines& lines, Visit visit) {
  constexpr std::string_view separators = " \t\r\v\f,";
  while (lines.NextLine()) {
    std::string_view rest = WithoutComment(lines.Line());
    while (true) {
      rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
      if (rest.empty()) break;
      std::string_view const item = rest.substr(0, rest.find_first_of(separators));
      visit(item);
      rest.remove_prefix(item.size());
    }
  }
}

} // namespace

std::vector<HeldUnknown> ReadHeldUnknowns(InputFile const& file, int order) {
  std::map<int, double> held;
  file.ReadWith([&](std::string const& path) {
    TextLines lines(path);
    ForEachItem(lines, [&](std::string_view item) {
      std::size_t const sign = item.find('=');
      auto const unknown =
          static_cast<int>(lines.IntegerOf(item.substr(0, sign), "an unknown", 1, order)) - 1;
      double const value = sign == std::string_view::npos ? 0.0 : lines.ValueOf(item.substr(sign + 1));
      if (!std::isfinite(value)) lines.Fail("a finite value", Number(value));
      auto const [known, isNew] = held.try_emplace(unknown, value);
      if (!isNew && known->second != value)
        lines.Fail(
            Format("the value %s, which unknown %d has before,", Number(known->second).c_str(), unknown + 1),
            Number(value));
    });
  });
  std::vector<HeldUnknown> list;
  list.reserve(held.size());
  for (auto const& [unknown, value] : held)
    list.push_back({unknown, value});
  return list;
}

Nodes ReadNodes(InputFile const& file, int order) {
  Nodes nodes;
  file.ReadWith([&](std::string const& path) {
    TextLines lines(path);
    while (lines.Next(' ')) {
      if (lines.Line().starts_with('#')) continue;
      lines.RequireFields(3, "x y z");
      Point const point{lines.Value(0), lines.Value(1), lines.Value(2)};
      for (double const value : point)
        if (!std::isfinite(value)) lines.Fail("a finite value", Number(value));
      nodes.points.push_back(point);
    }
  });
  auto const count = std::ssize(nodes.points);
  for (int const unknowns : {3, 6}) {
    nodes.unknownsOfNode = unknowns;
    if (count * unknowns == order) return nodes;
  }
  throw ToolError(ExitCode::UnusableInput,
                  Format("'%s' has %s; the matrices have order %d, expected 3 or 6 for each node",
                         file.Name().c_str(), Counted(count, "node", "nodes").c_str(), order));
}

bool IsColumnOfValues(InputFile const& file) {
  return file.ReadWith([](std::string const& path) {
    TextLines lines(path);
    while (lines.Next(' '))
      if (!lines.Line().starts_with('#')) return lines.FieldCount() == 1;
    return false;
  });
}

std::vector<double> ReadColumnOfValues(InputFile const& file) {
  std::vector<double> values;
  file.ReadWith([&](std::string const& path) {
    TextLines lines(path);
    while (lines.Next(' ')) {
      if (lines.Line().starts_with('#')) continue;
      lines.RequireFields(1, "one value");
      values.push_back(lines.Value(0));
    }
  });
  return values;
}

} // namespace orx::tool
