#include "module/impl/LastError.h"

#include "core/ORXBasException.h"
#include "module/ORXSrvLastError.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>

namespace {

std::string& LastError() {
  static std::string text;
  return text;
}

} // namespace

int orx::KeepError() noexcept try { throw; } catch (ORXBasException const& e) {
  LastError() = e.AsString().AsText();
  return e.ErrorCode();
} catch (std::exception const& e) {
  LastError() = e.what();
  return -1;
} catch (...) {
  LastError() = "An exception of unknown type.";
  return -1;
}

int ORXSRVTRY(void (*work)(void*), void* data) {
  try {
    work(data);
    return 0;
  } catch (...) {
    return orx::KeepError();
  }
}

int ORXSRVLASTERROR(char* text, int const* length) {
  std::string const& error = LastError();
  if (*length > 0) {
    std::size_t const copied = std::min(error.size(), static_cast<std::size_t>(*length) - 1);
    std::memcpy(text, error.data(), copied);
    text[copied] = '\0';
  }
  return static_cast<int>(error.size());
}
