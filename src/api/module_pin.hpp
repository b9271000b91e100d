/// \file module_pin.hpp  Keeps the library mapped once it may have started threads.
#pragma once

namespace tolvenra::api {

/// Workers of the OpenMP runtime sleep between parallel regions. Where the runtime is part of the
/// library, unloading would take the code from under them: a host that unloads the library only
/// gives up its handle. Elsewhere the linker marks the library, and nothing is left to do.
void pin_module() noexcept;

}  // namespace tolvenra::api
