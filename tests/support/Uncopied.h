#pragma once

/// The base of what changes something as long as it lives.
struct Uncopied {
  Uncopied() = default;
  Uncopied(Uncopied const&) = delete;
  Uncopied& operator=(Uncopied const&) = delete;
};
