#include <utility>

#include "frame/failure.h"
#include "frame/log.h"
#include "nal/signature_check.h"

namespace {

constexpr char c_context[] = "NALRemoveSignaturesFromFile";

void RemoveSignatures(const char* srcPath, const char* outPath, IdentObj* message) {
    if (srcPath == nullptr || (outPath == nullptr && message == nullptr)) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
    if (!CTOOFile::Exists(srcPath)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, srcPath);
    CNALSignData data;
    data.ReadObject(CTOOFile(srcPath, "rbc"), 0, nullptr);
    if (!data.IsAttached()) throw XTOOStatus(TOO_E_NOT_INITIALIZED, c_context);
    IdentObj encoded;
    if (message != nullptr) encoded = data.WriteObject(nullptr);
    if (outPath != nullptr) {
        WhatToSignStruct out;
        out.flags = c_NAL_CONTENT_IN_FILE;
        out.data = outPath;
        data.DetachData(out, nullptr);
    }
    if (message != nullptr) *message = std::move(encoded);
}

}  // namespace

int NALRemoveSignaturesFromFile(const char* srcPath, const char* outPath, IdentObj* message, int* err) {
    return nal::Report(err, [&] {
        try {
            RemoveSignatures(srcPath, outPath, message);
        } catch (const XTOOStatus& status) {
            nal::LogErrorCode(NAL_HERE("source/win32/certsign"), status.GetCode());
            const bool saysWhere = status.GetCode() == TOO_E_FILE_NOT_FOUND || dynamic_cast<const XTOOFile*>(&status) != nullptr;
            if (saysWhere) throw;
            throw XTOOStatus(status.GetCode(), c_context);
        }
    });
}
