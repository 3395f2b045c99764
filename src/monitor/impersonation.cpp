#include "monitor/impersonation.h"

#include <winspool.h>
#include <winsplp.h>

#include "base/owners.h"
#include "monitor/log_module.h"

RevertedToSelf::RevertedToSelf() noexcept : m_hToken(RevertToPrinterSelf()) {}

bool RevertedToSelf::Restore() noexcept {
  if (m_hToken == nullptr) return m_bRestored;
  const KeepLastError keep;
  m_bRestored = ImpersonatePrinterClient(m_hToken) != FALSE;
  if (!m_bRestored) LogE(L"ImpersonatePrinterClient [err:%d]", GetLastError());
  m_hToken = nullptr;
  return m_bRestored;
}
