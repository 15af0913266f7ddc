// Which certificates of a chain may stand above others.
#include <algorithm>

#include "nal/chain.h"
#include "nal/extensions.h"

namespace {

// The one bit of a subject type that says CA. Up to four octets count, as one number; what lies behind them does not.
constexpr DWORD c_caAlone = 0x80000000;

DWORD FirstFourOctets(const IdentObj& bits) {
    DWORD value = 0;
    for (unsigned i = 0; i < 4; ++i) value = value << 8 | (i < bits.GetSize() ? bits.GetData()[i] : 0U);
    return value;
}

/// Whether a certificate may stand above `below` others.
bool MayIssue(const CNALCertExtensionList& extensions, std::size_t below) {
    if (const CNALCertExtension* found = extensions.FindExtension(c_NAL_OID_BASIC_CONSTRAINTS)) {
        CNALBasicConstraints constraints;
        if (!constraints.TryRead(*found) || !constraints.m_isCA) return false;
        return !constraints.m_hasPathLength || constraints.m_pathLength >= below - 1;
    }
    if (const CNALCertExtension* found = extensions.FindExtension(c_NAL_OID_OLD_BASIC_CONSTRAINTS)) {
        CNALOldBasicConstraints constraints;
        if (!constraints.TryRead(*found) || FirstFourOctets(constraints.m_subjectType.m_data) != c_caAlone) return false;
        // One more than above: the older extension counts the end certificate. Kept deliberately.
        return !constraints.m_hasPathLength || constraints.m_pathLength >= below;
    }
    return true;
}

}  // namespace

bool CNALChainEngine::CheckBasicConstraints(CNALCertificateChain& chain) const {
    bool all = true;
    std::size_t below = chain.GetCount();
    for (auto element = chain.m_elements.rbegin(); element != chain.m_elements.rend(); ++element) {
        if (--below == 0) break;  // the end certificate issues nothing
        if (MayIssue(CNALCertInfo(*element->m_cert.GetContext()).m_extensions, below)) continue;
        element->m_trustErrors |= CERT_TRUST_INVALID_BASIC_CONSTRAINTS;
        all = false;
    }
    return all;
}
