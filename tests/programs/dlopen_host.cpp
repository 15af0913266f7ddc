// A host that supplies the runtime itself and loads the library afterwards: dlopen_host PATH-OF-LIBNAL
//
// The program holds the host runtime's objects and shows their symbols; it is not linked against libnal.so. Loading with
// RTLD_NOW proves that the process supplies every symbol that the library leaves open.
#include <dlfcn.h>

#include <cstdio>
#include <string>

#include "too/last_error.h"
#include "too/string.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    const auto find = [&](const char* symbol) {
        void* address = dlsym(library, symbol);
        if (!address) std::fprintf(stderr, "%s\n", dlerror());
        return address;
    };
    // CTOOString NALGetWinErrorExplaination(unsigned int): its result is built by this process's CTOOString.
    auto explain = reinterpret_cast<CTOOString (*)(unsigned)>(find("_Z26NALGetWinErrorExplainationj"));
    auto flags = reinterpret_cast<unsigned (*)(unsigned)>(find("_Z19NALCertFlags2WinErrj"));
    if (!explain || !flags) return 1;
    if (explain(0x80090006).str() != "Invalid Signature" || flags(0x21) != 0x800B010A) {
        std::fprintf(stderr, "the library answers wrongly\n");
        return 1;
    }
    std::printf("loaded: %s\n", explain(flags(0x21)).c_str());
    return 0;
}
