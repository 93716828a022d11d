#include "mtx/ORXSrvTimer.h"

#include "core/mem_Allocator.h"

#include <new>
#include <type_traits>

template class omi_SingletonBase<ORXSrvTimer>;

ORXSrvTimer::ORXSrvTimer() noexcept : m_timer(nullptr) {}

ORXSrvTimer::~ORXSrvTimer() {
  static_assert(std::is_trivially_destructible_v<omi_Timer>,
                "its memory is given back without destroying it");
  mem_Free(m_timer);
}

void ORXSrvTimer::CreateTimer() {
  auto* const timer = new (mem_OperatorNewTinyThrow(sizeof(omi_Timer))) omi_Timer;
  mem_Free(m_timer);
  m_timer = timer;
  m_timer->Start();
}
