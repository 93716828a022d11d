#pragma once

#include "core/atr_String.h"
#include "core/orx_export.h"

/// A path in the file system, made of a first component and an optional second component below it.
class ORX_EXPORT utl_FilePath {
public:
  /// Joins the components by a "/", unless the first is empty or ends in it; an empty second component leaves
  /// the first as the whole path.
  utl_FilePath(atr_String const& first, atr_String const& second);

  atr_String const& AsString() const noexcept { return m_path; }
  /// True when a file, folder or device lies at the path; false for an empty path.
  bool Exists() const noexcept;

private:
  atr_String m_path;
};
