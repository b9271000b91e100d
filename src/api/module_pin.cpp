#include "api/module_pin.hpp"

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif

namespace tolvenra::api {

void pin_module() noexcept {
#if defined(_WIN32)
  HMODULE ignored = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<LPCWSTR>(&pin_module), &ignored);
#endif
}

}  // namespace tolvenra::api
