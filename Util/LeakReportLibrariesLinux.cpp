// Address-sanitized programs only: system libraries stay mapped until exit so leak reports name them.
//
// Mesa closes its OpenGL driver when a display is torn down, before the leak report runs at
// exit; the driver's own allocations are then reported under unnamed frames that no
// suppression can match. Linked into the test programs and the host program of the address
// build, this dlclose keeps libraries under /usr mapped (their handles stay valid, nothing
// is run twice) and passes every other library, our bundles included, to the C library's.
#include <dlfcn.h>
#include <link.h>
#include <string.h>

extern "C" int dlclose(void* handle) {
  using Dlclose = int (*)(void*);
  static const Dlclose next = reinterpret_cast<Dlclose>(dlsym(RTLD_NEXT, "dlclose"));
  struct link_map* library = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &library) == 0 && library && library->l_name &&
      strncmp(library->l_name, "/usr/", 5) == 0)
    return 0;
  return next(handle);
}
