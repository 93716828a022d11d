#pragma once

#include <cstdint>
#include <utility>

namespace orx::store {

/// An owned identifier of something that HDF5 has open: a file, a group, a dataset, a type, ... The
/// destructor closes it.
class Handle {
public:
  explicit Handle(std::int64_t id = -1) noexcept : m_id(id) {}
  Handle(Handle&& other) noexcept : m_id(std::exchange(other.m_id, -1)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(m_id, other.m_id);
    return *this;
  }
  ~Handle() { Close(); }

  bool IsValid() const noexcept { return m_id >= 0; }
  std::int64_t Get() const noexcept { return m_id; }
  void Close() noexcept;

private:
  std::int64_t m_id;
};

/// Keeps HDF5 from printing errors in this thread; the destructor restores the host's handler.
class QuietErrors {
public:
  QuietErrors() noexcept;
  QuietErrors(QuietErrors const&) = delete;
  QuietErrors& operator=(QuietErrors const&) = delete;
  ~QuietErrors();

private:
  int (*m_handler)(std::int64_t, void*) = nullptr;
  void* m_handlerData = nullptr;
};

} // namespace orx::store
