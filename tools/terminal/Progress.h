#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

namespace orx::tool {

/// Says on a terminal what is being done and for how long, from the third second on, until it is destroyed;
/// the line is then erased. Says nothing when the stream is not a terminal.
class Progress {
public:
  explicit Progress(std::string const& activity);
  /// For a stream that is treated as a terminal; `period` stands for the second.
  Progress(std::string const& activity, std::FILE* stream, std::chrono::milliseconds period);
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress() = default;

private:
  std::jthread m_teller; ///< none without a terminal
};

} // namespace orx::tool
