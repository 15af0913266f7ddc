#include "certstorage/store_log.h"

#include <cstdio>
#include <cstdlib>

#include "orklog/orklog.h"

namespace nal {
namespace {
constexpr char kSourcePath[] = "source/certstorage";
}

void LogStore(const std::string& text) noexcept {
    const OrkLogProps* props = OrkLog_GetProps_cl_module(0);
    if (props->level <= 0) return;
    OkrLogHelper(props, 1, "CertStore", kSourcePath, 0) << text.c_str();
}

void StoreInvariantBroken(const char* text) noexcept {
    LogStore(text);
    std::fprintf(stderr, "%s: Assertion `%s' failed.\n", kSourcePath, text);
    std::abort();
}

}  // namespace nal
