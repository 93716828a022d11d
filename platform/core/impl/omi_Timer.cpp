#include "core/omi_Timer.h"

#include <ctime>

namespace {
double Seconds(clockid_t clock) noexcept {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}
} // namespace

omi_Timer::Reading omi_Timer::Now() noexcept {
  return {Seconds(CLOCK_MONOTONIC), Seconds(CLOCK_PROCESS_CPUTIME_ID)};
}

void omi_Timer::Start() noexcept {
  if (m_running) return;
  m_started = Now();
  m_running = true;
}

void omi_Timer::Stop() noexcept {
  if (!m_running) return;
  m_total = {GetElapsedTime(), GetTotalCpuTime()};
  m_running = false;
}

double omi_Timer::GetElapsedTime() const noexcept {
  return m_running ? m_total.elapsed + (Now().elapsed - m_started.elapsed) : m_total.elapsed;
}

double omi_Timer::GetTotalCpuTime() const noexcept {
  return m_running ? m_total.cpu + (Now().cpu - m_started.cpu) : m_total.cpu;
}
