#pragma once

#include "core/atr_String.h"
#include "core/orx_export.h"

/// A path in the file system, made of a first component and an optional second one below it.
class ORX_EXPORT utl_FilePath {
public:
  /// An empty second component leaves the first as the whole path.
  utl_FilePath(atr_String const& first, atr_String const& second);

  atr_String const& AsString() const noexcept { return m_path; }
  /// Whether the path names something; an empty path names nothing.
  bool Exists() const noexcept;

private:
  atr_String m_path;
};
