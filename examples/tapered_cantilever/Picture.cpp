#include "examples/tapered_cantilever/Picture.h"

#include "examples/support/Drawing.h"
#include "examples/support/SvgPath.h"
#include "examples/tapered_cantilever/Benchmark.h"
#include "examples/tapered_cantilever/Contours.h"
#include "examples/tapered_cantilever/Element.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace fv32 {
namespace {

using namespace support;

//     +---------------------------------+
//     | heading                         |
//     |   panel 0          panel 1      |   panelPitch.x
//     |   panel 2          panel 3      |   panelPitch.y
//     |   panel 4          panel 5      |
//     | colour bar                      |
//     +---------------------------------+

constexpr int width = 12000;
constexpr int height = 12000;
constexpr int margin = 500;
constexpr int panelRight = 5270; ///< right end of a panel's title, from the panel's left edge
constexpr int panelsTop = 1700;
constexpr Point panelPitch{5730.0, 3080.0};
constexpr int barTop = height - 1120;

/// Where the middle of the root lies in a panel, below the title.
constexpr Point rootPlace{260.0, 1350.0};
constexpr double unitsPerMetre = 435.0;
/// The largest displacement as drawn, in metres of the structure.
constexpr double drawnDisplacement = 1.4;

/// Points of the sampled field per element side.
constexpr int samples = 3;

constexpr char styles[] = R"(.clamp{fill:none;stroke:#52606d;stroke-width:14}
.undeformed{fill:#eceff2}
.before{fill:none;stroke:#c3cad1;stroke-opacity:.7;stroke-width:12}
.mesh{fill:none;stroke:#0b1a2b;stroke-opacity:.3;stroke-width:7}
.outline{fill:none;stroke:#0b1a2b;stroke-opacity:.85;stroke-width:15}
)";

/// A place of the structure in the panel: y points down there.
Point InPanel(Point p) { return {rootPlace.x + unitsPerMetre * p.x, rootPlace.y - unitsPerMetre * p.y}; }

/// Draws one mode of the mesh in the coordinates of its panel.
class Panel {
public:
  Panel(Mesh const& mesh, std::vector<Point> const& displacement)
      : m_mesh(mesh), m_displacement(displacement) {}

  std::string Draw() const {
    return PathElement("class=\"undeformed\"", Undeformed()) + Bands() +
           PathElement("class=\"mesh\"", MeshLines()) + PathElement("class=\"before\"", Undeformed()) +
           PathElement("class=\"outline\"", Outline()) + PathElement("class=\"clamp\"", Clamp());
  }

private:
  Point Deformed(int node) const {
    return InPanel(m_mesh.Nodes()[node] + drawnDisplacement * m_displacement[node]);
  }

  static SvgPath Undeformed() {
    SvgPath path;
    path.MoveTo(InPanel({0.0, -rootDepth / 2}));
    path.LineTo(InPanel({length, -tipDepth / 2}));
    path.LineTo(InPanel({length, tipDepth / 2}));
    path.LineTo(InPanel({0.0, rootDepth / 2}));
    path.Close();
    return path;
  }

  /// The wall: its edge, and strokes that lean away from the structure.
  static SvgPath Clamp() {
    constexpr int strokes = 16;
    constexpr double lean = 0.3;
    SvgPath path;
    path.MoveTo(InPanel({0.0, -rootDepth / 2}));
    path.LineTo(InPanel({0.0, rootDepth / 2}));
    for (int k = 0; k < strokes; ++k) {
      double const y = rootDepth * ((k + 1.0) / strokes - 0.5);
      path.MoveTo(InPanel({0.0, y}));
      path.LineTo(InPanel({-lean, y - lean}));
    }
    return path;
  }

  /// Each band covers the ones below, so that no seams show between neighbours.
  std::string Bands() const {
    SampledField const field = SampleMagnitude();
    std::string svg;
    for (int band = 0; band < colourBands; ++band) {
      SvgPath path;
      for (Polygon const& polygon : RegionAbove(field, static_cast<double>(band) / colourBands))
        AppendPolygon(path, polygon);
      svg += PathElement(("fill=\"" + BandColour(band) + "\"").c_str(), path);
    }
    return svg;
  }

  static void AppendPolygon(SvgPath& path, Polygon const& polygon) {
    path.MoveTo(polygon.front());
    for (Point const p : polygon)
      path.LineTo(p);
    path.Close();
  }

  SampledField SampleMagnitude() const {
    SampledField field{Mesh::columns * samples + 1, Mesh::rows * samples + 1, {}, {}};
    for (int column = 0; column < field.columns; ++column)
      for (int row = 0; row < field.rows; ++row) {
        int const elementColumn = std::min(column / samples, Mesh::columns - 1);
        int const elementRow = std::min(row / samples, Mesh::rows - 1);
        double const r = 2.0 * (column - samples * elementColumn) / samples - 1.0;
        double const s = 2.0 * (row - samples * elementRow) / samples - 1.0;
        AppendSample(field, m_mesh.Element(elementColumn, elementRow), r, s);
      }
    return field;
  }

  void AppendSample(SampledField& field, ElementNodes const& nodes, double r, double s) const {
    std::array<Point, 8> places;
    std::array<Point, 8> displacements;
    for (int a = 0; a < 8; ++a) {
      places[a] = Deformed(nodes[a]);
      displacements[a] = m_displacement[nodes[a]];
    }
    Point const displacement = Interpolate(displacements, r, s);
    field.points.push_back(Interpolate(places, r, s));
    field.values.push_back(std::hypot(displacement.x, displacement.y));
  }

  /// One side of an element, by the numbers of its nodes in the element.
  void AppendSide(SvgPath& path, ElementNodes const& nodes, int start, int middle, int end,
                  bool first) const {
    if (first) path.MoveTo(Deformed(nodes[start]));
    path.ParabolaTo(Deformed(nodes[middle]), Deformed(nodes[end]));
  }
  void AppendLowerSides(SvgPath& path, int row) const {
    for (int column = 0; column < Mesh::columns; ++column)
      AppendSide(path, m_mesh.Element(column, row), 0, 4, 1, column == 0);
  }
  void AppendUpperSides(SvgPath& path, int row) const {
    for (int column = 0; column < Mesh::columns; ++column)
      AppendSide(path, m_mesh.Element(column, row), 3, 6, 2, column == 0);
  }
  void AppendRightSides(SvgPath& path, int column) const {
    for (int row = 0; row < Mesh::rows; ++row)
      AppendSide(path, m_mesh.Element(column, row), 1, 5, 2, row == 0);
  }

  SvgPath MeshLines() const {
    SvgPath path;
    for (int row = 1; row < Mesh::rows; ++row)
      AppendLowerSides(path, row);
    for (int column = 0; column < Mesh::columns - 1; ++column)
      AppendRightSides(path, column);
    return path;
  }

  SvgPath Outline() const {
    SvgPath path;
    AppendLowerSides(path, 0);
    AppendRightSides(path, Mesh::columns - 1);
    AppendUpperSides(path, Mesh::rows - 1);
    return path;
  }

  Mesh const& m_mesh;
  std::vector<Point> const& m_displacement;
};

/// `published` as printed in the source: five digits.
std::string Title(int number, Mode const& mode, double published) {
  return Format("<text><tspan class=\"strong\">mode %d</tspan><tspan dx=\"190\">%#.5g Hz</tspan>"
                "<tspan class=\"soft\" dx=\"190\">(published %#.5g)</tspan></text>\n"
                "<text class=\"soft end\" x=\"%d\">%s</text>\n",
                number, mode.frequency, published, panelRight, mode.isAxial ? "axial" : "bending");
}

std::string Heading(Mesh const& mesh) {
  return Format(
      "<text class=\"heading\" x=\"%d\" y=\"720\">Natural modes of a tapered cantilever membrane</text>\n"
      "<text class=\"soft\" x=\"%d\" y=\"1090\">NAFEMS benchmark FV32, clamped at the left: %d "
      "quadrilaterals "
      "with eight nodes, %d unknowns</text>\n",
      margin, margin, static_cast<int>(mesh.Elements().size()), mesh.NumberOfUnknowns());
}

} // namespace

std::string DrawModes(std::vector<Mode> const& modes, Mesh const& mesh) {
  std::string svg = BeginPage(width, height, "Mode shapes of the tapered cantilever membrane", styles);
  svg += Heading(mesh);
  for (int k = 0; k < modeCount; ++k) {
    int const left = margin + static_cast<int>(panelPitch.x) * (k % 2);
    int const top = panelsTop + static_cast<int>(panelPitch.y) * (k / 2);
    svg += Format("<g transform=\"translate(%d %d)\">\n", left, top);
    svg += Title(k + 1, modes[k], publishedFrequencies[k]);
    svg += Panel(mesh, modes[k].displacement).Draw();
    svg += "</g>\n";
  }
  return svg + ColourBar(width / 2, barTop) + EndPage();
}

} // namespace fv32
