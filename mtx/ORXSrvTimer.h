#pragma once

#include "core/omi_Singleton.h"
#include "core/omi_Timer.h"
#include "core/orx_export.h"

/// The process timer that the time queries of the Fortran interface read. One instance per process:
///
///     omi_Singleton<ORXSrvTimer>::Instance().CreateTimer();   // starts timing; again: starts anew
///
/// Stopping the matrix layer destroys the instance; the next use makes a fresh one without a timer.
class ORX_EXPORT ORXSrvTimer : public omi_SingletonBase<ORXSrvTimer> {
public:
  ORXSrvTimer() noexcept;
  ORXSrvTimer(ORXSrvTimer const&) = delete;
  ORXSrvTimer& operator=(ORXSrvTimer const&) = delete;
  ~ORXSrvTimer();

  /// Makes a timer and starts it; times count from the last call.
  void CreateTimer();
  /// The timer; null before CreateTimer.
  omi_Timer const* Timer() const noexcept { return m_timer; }

private:
  omi_Timer* m_timer;
};

extern template class omi_SingletonBase<ORXSrvTimer>;
