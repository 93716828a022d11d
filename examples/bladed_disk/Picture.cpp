#include "examples/bladed_disk/Picture.h"

#include "examples/support/Drawing.h"
#include "examples/support/SvgPath.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace disk {
namespace {

using namespace support;

//     +---------------------------------+
//     | heading                         |
//     |   panel 0          panel 1      |   panelWidth, panelHeight
//     |   ...              ...          |
//     | colour bar                      |
//     +---------------------------------+

constexpr int width = 12000;
constexpr int panelWidth = width / 2, panelHeight = 4900;
constexpr int panelsTop = 1500, barHeight = 1300;
constexpr Point middleOfPanel{panelWidth / 2.0, 2600.0};
constexpr double unitsPerMetre = 14000.0;
/// The largest displacement as drawn, in metres of the structure.
constexpr double drawnDisplacement = 0.02;

constexpr char styles[] = ".face{stroke:#0b1a2b;stroke-opacity:.3;stroke-width:4}\n";

/// The viewer looks from the front, from above.
constexpr double elevation = 0.85;
Vector const towardsViewer{0, -std::cos(elevation), std::sin(elevation)};
Vector const upwards{0, std::sin(elevation), std::cos(elevation)};
Vector const towardsLight{-0.45, -0.3, 0.84};

Point InPanel(Vector v) {
  return {middleOfPanel.x + unitsPerMetre * v.x, middleOfPanel.y - unitsPerMetre * Dot(v, upwards)};
}

using Face = std::array<int, 4>;

/// The faces that belong to one brick only, counter-clockwise as seen from outside.
std::vector<Face> FindOuterFaces(Mesh const& mesh) {
  constexpr std::array<Face, 6> sides{
      {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}}};
  std::map<Face, std::vector<Face>> byNodes;
  for (BrickNodes const& brick : mesh.Bricks())
    for (Face const& side : sides) {
      Face const face{brick[side[0]], brick[side[1]], brick[side[2]], brick[side[3]]};
      Face nodes = face;
      std::ranges::sort(nodes);
      byNodes[nodes].push_back(face);
    }
  std::vector<Face> outer;
  for (auto const& [nodes, faces] : byNodes)
    if (faces.size() == 1) outer.push_back(faces.front());
  return outer;
}

/// A face that turns towards the viewer.
struct DrawnFace {
  double depth; ///< larger is nearer to the viewer
  std::string svg;
};

/// Draws one mode: the faces that are farther away first.
class Panel {
public:
  Panel(Mesh const& mesh, Mode const& mode)
      : m_mesh(mesh), m_displacement(mode.displacement), m_largest(0.0) {
    for (Vector const u : m_displacement)
      m_largest = std::max(m_largest, std::sqrt(Dot(u, u)));
  }

  std::string Draw(std::vector<Face> const& faces) const {
    std::vector<DrawnFace> drawn;
    for (Face const& face : faces)
      DrawFace(face, drawn);
    std::ranges::stable_sort(drawn, {}, &DrawnFace::depth);
    std::string svg;
    for (DrawnFace const& face : drawn)
      svg += face.svg;
    return "<g class=\"face\">\n" + svg + "</g>\n";
  }

private:
  Vector Deformed(int node) const {
    return m_mesh.Nodes()[node] + (drawnDisplacement / m_largest) * m_displacement[node];
  }
  double ShareOfLargest(Face const& face) const {
    Vector sum{};
    for (int const node : face)
      sum = sum + m_displacement[node];
    return 0.25 * std::sqrt(Dot(sum, sum)) / m_largest;
  }

  void DrawFace(Face const& face, std::vector<DrawnFace>& drawn) const {
    std::array<Vector, 4> corners;
    for (int a = 0; a < 4; ++a)
      corners[a] = Deformed(face[a]);
    Vector const normal = Cross(corners[2] - corners[0], corners[3] - corners[1]);
    if (Dot(normal, towardsViewer) <= 0.0) return;
    double const light = std::max(0.0, Dot(normal, towardsLight) / std::sqrt(Dot(normal, normal)));
    std::string const colour =
        "fill=\"" + Colour(std::min(1.0, ShareOfLargest(face)), 0.6 + 0.4 * light) + "\"";
    SvgPath path;
    path.MoveTo(InPanel(corners[0]));
    for (int a = 1; a < 4; ++a)
      path.LineTo(InPanel(corners[a]));
    path.Close();
    double const depth = Dot(corners[0] + corners[1] + corners[2] + corners[3], towardsViewer);
    drawn.push_back({depth, PathElement(colour.c_str(), path)});
  }

  Mesh const& m_mesh;
  std::vector<Vector> const& m_displacement;
  double m_largest;
};

std::string Heading(Mesh const& mesh) {
  return Format(
      "<text class=\"heading\" x=\"500\" y=\"720\">Natural modes of a bladed disk</text>\n"
      "<text class=\"soft\" x=\"500\" y=\"1090\">%d blades, clamped at the bore: %d bricks with eight "
      "nodes, %d unknowns</text>\n",
      Mesh::blades, static_cast<int>(mesh.Bricks().size()), mesh.NumberOfUnknowns());
}

std::string Title(Mode const& mode) {
  return Format("<text x=\"500\" y=\"400\"><tspan class=\"strong\">mode %d</tspan>"
                "<tspan dx=\"190\">%.2f Hz</tspan><tspan class=\"soft\" dx=\"190\">%d nodal "
                "diameters</tspan></text>\n",
                mode.number, mode.frequency, mode.nodalDiameters);
}

} // namespace

std::string DrawModes(std::vector<Mode> const& modes, Mesh const& mesh) {
  int const panelRows = (static_cast<int>(modes.size()) + 1) / 2;
  int const barTop = panelsTop + panelRows * panelHeight + 300;
  std::vector<Face> const faces = FindOuterFaces(mesh);
  std::string svg =
      BeginPage(width, barTop + barHeight - 300, "Mode shapes of a bladed disk", styles) + Heading(mesh);
  int panel = 0;
  for (Mode const& mode : modes) {
    svg += Format("<g transform=\"translate(%d %d)\">\n", panelWidth * (panel % 2),
                  panelsTop + panelHeight * (panel / 2));
    svg += Title(mode) + Panel(mesh, mode).Draw(faces) + "</g>\n";
    ++panel;
  }
  return svg + ColourBar(width / 2, barTop) + EndPage();
}

} // namespace disk
