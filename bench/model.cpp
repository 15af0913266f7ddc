// The certificate model: decoding, and stepping over what a search does not need.
#include <benchmark/benchmark.h>

#include "model/certificate_fields.h"
#include "nal/certificate.h"
#include "support/certificate_parts.h"

namespace {

void DecodeCertificate(benchmark::State& state) {
    const IdentObj der = nal_test::TypicalCertificate();
    for (auto _ : state) {
        CNALX509Certificate certificate;
        benchmark::DoNotOptimize(certificate.ReadEncodetData(der.GetData(), der.GetSize()));
    }
    state.SetLabel(std::to_string(der.GetSize()) + " bytes");
}
BENCHMARK(DecodeCertificate);

void StepOverCertificate(benchmark::State& state) {
    const IdentObj der = nal_test::TypicalCertificate();
    for (auto _ : state) {
        nal::CertificateFields fields;
        asnt::View keyId;
        bool found = nal::StepOverCertificate(der, fields) && nal::FindSubjectKeyId(fields.tbs, keyId);
        benchmark::DoNotOptimize(found);
        benchmark::DoNotOptimize(keyId);
    }
    state.SetLabel(std::to_string(der.GetSize()) + " bytes, issuer, subject, serial, key identifier");
}
BENCHMARK(StepOverCertificate);

void DecodeKeyIdentifier(benchmark::State& state) {
    CNALX509Certificate certificate;
    certificate.DecodeCert(nal_test::TypicalCertificate());
    for (auto _ : state) {
        CNALSubjectKeyID id;
        benchmark::DoNotOptimize(id.ReadFrom(certificate.m_info.m_extensions, c_NAL_OID_SUBJECT_KEY_ID));
    }
}
BENCHMARK(DecodeKeyIdentifier);

}  // namespace
