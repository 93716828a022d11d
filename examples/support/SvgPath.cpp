#include "examples/support/SvgPath.h"

#include <cctype>
#include <cmath>

namespace support {

SvgPath::Place SvgPath::Rounded(Point p) {
  return {static_cast<int>(std::lround(p.x)), static_cast<int>(std::lround(p.y))};
}

void SvgPath::AppendNumber(int number) {
  if (number >= 0 && !m_data.empty() && std::isdigit(static_cast<unsigned char>(m_data.back())))
    m_data += ' ';
  m_data += std::to_string(number);
}

void SvgPath::AppendStep(Place to) {
  AppendNumber(to.x - m_reached.x);
  AppendNumber(to.y - m_reached.y);
}

void SvgPath::MoveTo(Point p) {
  m_reached = Rounded(p);
  m_data += 'M';
  AppendNumber(m_reached.x);
  AppendNumber(m_reached.y);
}

void SvgPath::LineTo(Point p) {
  Place const to = Rounded(p);
  if (to.x == m_reached.x && to.y == m_reached.y) return;
  m_data += 'l';
  AppendStep(to);
  m_reached = to;
}

void SvgPath::ParabolaTo(Point middle, Point end) {
  Point const start{static_cast<double>(m_reached.x), static_cast<double>(m_reached.y)};
  Place const to = Rounded(end);
  m_data += 'q';
  AppendStep(Rounded(2.0 * middle - 0.5 * (start + end)));
  AppendStep(to);
  m_reached = to;
}

} // namespace support
