#include "nal/settings.h"

#include <cstring>

#include "nal/request_context.h"
#include "nal/trust_storages.h"

DWORD gApplicationFlag = 0;

namespace {

constexpr DWORD c_flagsOfANewFolder = 2;
constexpr char c_folderBeforeLoading[] = ".\\";
constexpr unsigned c_numberOffset = 4;  // in a request's first blob, which is to be longer than 15 bytes
constexpr DWORD c_minIdentity = 16;

/// Raises `highest` to the numbers of the requests in one storage.
void RaiseToNumbersIn(const CTOOString& path, DWORD& highest) {
    unsigned long handle = 0;
    if (!NALCertOpenReqStorage(CERT_STORE_PROV_FILENAME_A, path.c_str(), 0, &handle)) return;
    const NAL_REQ_CONTEXT* context = nullptr;
    while ((context = NALFindReqContextInStorage(handle, 0, nullptr, context)) != nullptr) {
        if (context->Identity.cbData < c_minIdentity) continue;
        DWORD number = 0;
        std::memcpy(&number, context->Identity.pbData + c_numberOffset, sizeof number);
        if (number > highest) highest = number;
    }
    NALCertCloseReqStore(handle, 0);
}

}  // namespace

void NALSetAplicationFlag(unsigned int flags) {
    gApplicationFlag = flags;
}

unsigned int GetAplicationFlag() {
    return gApplicationFlag;
}

void NALSetTransDir(const CTOOString& dir) {
    CNALCertStorageCollection& trust = m_VPN_TrustStorages;
    if (trust.m_initialized != 0 && dir.CompareNoCase(trust.m_transportFolder) == 0) return;
    trust.m_transportFolder = dir;
    trust.m_state = NAL_TRUST_STATE_RELOAD;
    // Every flag set before is lost, deliberately: hosts know it so.
    gApplicationFlag = c_flagsOfANewFolder;
}

CTOOString GetCurrentTrunsDir() {
    return m_VPN_TrustStorages.m_initialized != 0 ? m_VPN_TrustStorages.m_transportFolder : CTOOString(c_folderBeforeLoading);
}

CTOOString GetCurrentTransDir() {
    return GetCurrentTrunsDir();
}

bool NALIsTrustStorageInit() {
    return m_VPN_TrustStorages.m_initialized != 0;
}

unsigned int NALGetCurrentCertNumber() {
    DWORD& number = m_VPN_TrustStorages.m_certNumber;
    if (number != NAL_CERT_NUMBER_UNKNOWN) return number;
    const std::list<CTOOString> files = NALGetReqStatusFile(m_VPN_TrustStorages.m_transportFolder, true, false, nullptr);
    DWORD highest = 0;
    for (const CTOOString& file : files)
        RaiseToNumbersIn(file, highest);
    // A number of 0 counts as none, so the first request of a host without any gets 0.
    number = highest != 0 ? highest + 1 : 0;
    return number;
}

void NALAddCurrentCertNumber() {
    // A number that was never computed wraps to 0, deliberately.
    ++m_VPN_TrustStorages.m_certNumber;
}

void NALFreeRootStorage() {
    m_VPN_TrustStorages.Reset();
}
