// Sanitizer builds only (POSTEFFECT_SANITIZE): Mesa's driver and LLVM keep
// allocations until the process ends, which LeakSanitizer reports. The
// driver is unloaded when its display is terminated, so its frames could not
// even be named at exit; GEHostPinDrivers keeps the loaded objects mapped
// (RTLD_NODELETE) so that the suppressions below can match them by module.
// The library's own code and the platform's are not suppressed.
#include <dlfcn.h>
#include <link.h>

#include "GEHostState.h"

#ifdef POSTEFFECT_SANITIZE

namespace gehost {

void PinDrivers() {
    dl_iterate_phdr(
        [](struct dl_phdr_info* info, size_t, void*) -> int {
            if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0') {
                // A second reference with RTLD_NODELETE; never closed.
                dlopen(info->dlpi_name, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
            }
            return 0;
        },
        nullptr);
}

}  // namespace gehost

extern "C" const char* __lsan_default_suppressions() {
    return "leak:_dri.so\n"
           "leak:libgallium\n"
           "leak:libLLVM\n"
           "leak:libEGL_mesa\n"
           "leak:libglapi\n";
}

#else

namespace gehost {

void PinDrivers() {}

}  // namespace gehost

#endif
