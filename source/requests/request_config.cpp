#include "nal/request_files.h"

CNALCertificateInfo::CNALCertificateInfo(const char* file, bool mayBeMissing, unsigned long maxSize,
                                         unsigned long maxLine)
    : CTOOConfigInfoFile(file, mayBeMissing, maxSize, maxLine) {}

CNALCertificateInfo::~CNALCertificateInfo() = default;

bool CNALCertificateInfo::GetGeneralSection(std::list<CConfigFileKeyListItem>* keys) const {
    return GetSection(CertCfgFileGeneralSectionName, keys);
}

bool CNALCertificateInfo::GetAlgorithmSection(std::list<CConfigFileKeyListItem>* keys) const {
    return GetSection(CertCfgFileAlgorithmSectionName, keys);
}

bool CNALCertificateInfo::GetCertificateSection(std::list<CConfigFileKeyListItem>* keys) const {
    return GetSection(CertCfgFileCertificateSectionName, keys);
}

void CNALCertificateInfo::PutGeneralSection(const std::list<CConfigFileKeyListItem>& keys) {
    PutSection(CertCfgFileGeneralSectionName, keys);
}

void CNALCertificateInfo::PutAlgorithmSection(const std::list<CConfigFileKeyListItem>& keys) {
    PutSection(CertCfgFileAlgorithmSectionName, keys);
}

void CNALCertificateInfo::PutCertificateSection(const std::list<CConfigFileKeyListItem>& keys) {
    PutSection(CertCfgFileCertificateSectionName, keys);
}
