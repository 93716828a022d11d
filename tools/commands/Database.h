#pragma once

#include <string>

namespace orx::tool {

/// What `orxmtx db` prints: contexts, distributions, shapes, chunks, bytes. No cell is read.
std::string DatabaseText(std::string const& path);

} // namespace orx::tool
