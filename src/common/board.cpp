#include "common/board.h"

#include "common/host.h"

#include <dlfcn.h>
#include <string>

namespace {

// A library that was found stays loaded: it may hold the board's device open between two calls.
void *find_function(const char *name)
{
    // Where the board's package installs its library, which is not always on the loader's own path.
    for (const std::string &library : {std::string("libpelva.so"), host_path("/usr/lib64/libpelva.so"),
                                       host_path("/usr/lib/libpelva.so")}) {
        void *handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle)
            continue;
        if (void *function = dlsym(handle, name))
            return function;
        dlclose(handle);
    }
    return nullptr;
}

} // namespace

int pvisCard()
{
    const auto function = reinterpret_cast<int (*)()>(find_function("pvisCard"));
    return function ? function() : -1;
}

int pvGetVersion(pelva_version *version)
{
    const auto function = reinterpret_cast<int (*)(pelva_version *)>(find_function("pvGetVersion"));
    return function ? function(version) : -1;
}
