// Record files of DH certificates: whatever the bytes, a file is refused unchanged, or corrected once and then sound.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "dhcert/key_choice.h"
#include "dhcert/send_record.h"
#include "too/status.h"
#include "too/time.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

const std::filesystem::path& Folder() {
    static const std::filesystem::path folder = [] {
        std::string name = (std::filesystem::temp_directory_path() / "nal-fuzz-XXXXXX").string();
        Require(mkdtemp(name.data()) != nullptr);
        setenv("NAL_HOME", name.c_str(), 1);
        std::atexit([] { std::filesystem::remove_all(Folder()); });
        return std::filesystem::path(name);
    }();
    return folder;
}

void CheckRecord(const CNALSendCertRecord& record) {
    Require(record.NumberKey().GetSize() <= 32 && nal::IsSameKey(record, record.NumberKey()));
    Require(record.NetFileName().length() <= 15 && record.IsSameNetFileName(record.NetFileName().c_str()));
    Require(nal::IsSamePeer(record, record));
    IdentObj id;
    record.GetID(id);
    CNALSendCertRecord copy(record);
    Require(copy.SetID(id) && copy == record);
    record.DwApID();
    record.ColTypeW();
    const CNALSendCertRecord correct(nal::CorrectRecord(record.GetImage()).m_bytes);
    Require(CNALSendCertRecord(nal::CorrectRecord(correct.GetImage()).m_bytes) == correct);
    Require(correct.NumberKey() == record.NumberKey() || correct.ShortNumber() == record.ShortNumber());
}

void CheckFile(const std::string& path) {
    CNALRecFileDHCert file(path.c_str());
    const auto records = file.GetPeerRecords({});
    for (const auto& record : records)
        CheckRecord(record);
    nal::RankKeys(records, true);
    nal::RankKeys(records, false);
    Require(static_cast<long>(records.size()) == file.Size());
    const long corrected = file.CorrectErrors(0);
    Require(corrected <= static_cast<long>(records.size()) && file.CorrectErrors(0) == 0);
    file.ClearInfo(CTOOFileTime(UINT64_MAX));
    CNALSendCertRecord record("0001", "0002", CTOOFileTime(1), 0, IdentObj("key", 3), "name");
    Require(file.FindRecord(record) == -1 || file.FindRecord(record) < file.Size());
    const long index = file.AddOnSend(record);
    Require(index >= 0 && index < file.Size());
    unsigned char image[CNALSendCertRecord::c_size];
    Require(file.GetRecord(index, image) && CNALSendCertRecord(image) == record);
}

}  // namespace

// The input is the file; one without the marks of a record file is taken as its records.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string path = (Folder() / "CERTSEND.DAT").string();
    const bool isFile = size >= 8 && std::equal(data, data + 7, "TOORECF");
    std::filesystem::remove(path);
    if (isFile) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    } else {
        CNALRecFileDHCert file(path.c_str());
        Require(file.ReplaceAll(data, static_cast<long>(size / CNALSendCertRecord::c_size)));
    }
    try {
        CheckFile(path);
    } catch (const XTOOStatus& status) {
        Require(isFile && (status.GetCode() == TOO_E_BAD_STRUCTURE));
        Require(std::filesystem::file_size(path) == size);
    }
    return 0;
}
