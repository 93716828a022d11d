#include "core/omi_Timer.h"

#include <ctime>

namespace {
double ReadSeconds(clockid_t clock) noexcept {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}
} // namespace

omi_Timer::Reading omi_Timer::ReadClocks() noexcept {
  return {ReadSeconds(CLOCK_MONOTONIC), ReadSeconds(CLOCK_PROCESS_CPUTIME_ID)};
}

void omi_Timer::Start() noexcept {
  if (m_running) return;
  m_started = ReadClocks();
  m_running = true;
}

void omi_Timer::Stop() noexcept {
  if (!m_running) return;
  m_total = {GetElapsedTime(), GetTotalCpuTime()};
  m_running = false;
}

double omi_Timer::GetElapsedTime() const noexcept {
  return m_running ? m_total.elapsed + (ReadClocks().elapsed - m_started.elapsed) : m_total.elapsed;
}

double omi_Timer::GetTotalCpuTime() const noexcept {
  return m_running ? m_total.cpu + (ReadClocks().cpu - m_started.cpu) : m_total.cpu;
}
