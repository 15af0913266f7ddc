#include "cli/fault.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace cli {
namespace {

struct ExitRule {
    int status;
    ExitCode exit;
    const char* hint;
};

constexpr ExitRule kRules[] = {
    {TOO_E_NO_MEMORY, kSystem, ""},
    {TOO_E_OPEN, kSystem, ""},
    {TOO_E_ACCESS, kSystem, "Check who may read and write the file and its folder."},
    {TOO_E_FILE_NOT_FOUND, kInput, "Check the path."},
    {TOO_E_READ, kInput, ""},
    {TOO_E_WRITE, kSystem, ""},
    {TOO_E_FILE_EXISTS, kInput, "Name another file, or remove this one first."},
    {TOO_E_DISK_FULL, kSystem, "Make room on the disk, or name a file on another one."},
    {TOO_E_NOT_A_FILE, kInput, "Name a file, not a folder or device."},
    {TOO_E_NOT_A_FOLDER, kInput, "Check the path."},
    {TOO_E_TOO_LARGE, kInput, ""},
    {TOO_E_LOCK, kSystem, "Another process may be using it; try again."},
    {TOO_E_TOO_MANY_FILES, kSystem, ""},
    {TOO_E_KEY_NOT_FOUND, kKeys, "nal container show tells which keys a container holds."},
    {TOO_E_BAD_KEY, kKeys, ""},
    {TOO_E_BAD_SIGNATURE, kCheckFailed, ""},
    {TOO_E_WRONG_PASSWORD, kKeys, "Give the container's password: --password-file, --password-fd, or at the prompt."},
    {TOO_E_CERT_REFUSED, kCheckFailed, ""},
    {TOO_E_NO_PROVIDER, kKeys, ""},
    {TOO_E_NO_CONTAINER, kKeys, "nal container list shows the containers there are."},
    {TOO_E_CONTAINER_EXISTS, kKeys, "Choose another name."},
    {TOO_E_SAME_CONTAINER, kKeys, "Choose another name."},
    {TOO_E_TRANSFER, kKeys, ""},
    {TOO_E_REVOKED, kCheckFailed, ""},
    {TOO_E_EXPIRED, kCheckFailed, ""},
    {TOO_E_UNTRUSTED, kCheckFailed, "nal trust list shows what is trusted."},
    {TOO_E_NOT_SIGNED_MESSAGE, kInput, ""},
    {TOO_E_BAD_STRUCTURE, kInput, "The file is damaged or of another kind; fetch it again."},
    {TOO_E_INTERNAL, kSystem, ""},
};

const ExitRule* RuleOf(int status) {
    const auto* rule = std::find_if(std::begin(kRules), std::end(kRules), [&](const ExitRule& r) { return r.status == status; });
    return rule == std::end(kRules) ? nullptr : rule;
}

}  // namespace

std::string StatusText(int status, const std::string& where) {
    char number[16];
    std::snprintf(number, sizeof number, status >= 0 ? "%d" : "0x%08X", static_cast<unsigned>(status));
    const std::string words = status >= 0 ? TOOGetStatusText(status) : NALGetWinErrorExplaination(static_cast<unsigned>(status)).str();
    return words + " (" + (where.empty() ? "" : where + ", ") + "status " + number + ")";
}

ExitCode ExitOf(int status) {
    const ExitRule* rule = RuleOf(status);
    if (rule != nullptr) return rule->exit;
    return status < 0 ? kCheckFailed : kInput;  // 0x8009xxxx and 0x800Bxxxx are verdicts
}

ExitCode ExitOfErrno(int error, ExitCode wrong) {
    constexpr int kWrong[] = {ENOENT, ENOTDIR, EISDIR, ELOOP, ENAMETOOLONG, EINVAL, ENXIO, EBADF, EEXIST};
    return std::find(std::begin(kWrong), std::end(kWrong), error) == std::end(kWrong) ? kSystem : wrong;
}

Fault FaultOf(int status, const CTOOString& text, const std::string& file) {
    if (status == TOO_E_CANCELLED) throw Stopped{};
    const ExitRule* rule = RuleOf(status);
    std::string message = StatusText(status, text.str());
    // A text that names the file already says it better than this program can.
    if (!file.empty() && text.find(file) == CTOOString::npos) message = file + ": " + message;
    return {ExitOf(status), message, rule != nullptr ? rule->hint : "", status};
}

Fault FaultOf(const XTOOStatus& status, const std::string& file) {
    if (dynamic_cast<const XTOOFile*>(&status) == nullptr) return FaultOf(status.GetCode(), status.GetText(), file);
    if (status.GetCode() == TOO_E_CANCELLED) throw Stopped{};
    const ExitRule* rule = RuleOf(status.GetCode());
    return {ExitOf(status.GetCode()), status.GetText().str(), rule != nullptr ? rule->hint : "", status.GetCode()};
}

void FailWithLastError(const std::string& what, const std::string& file) {
    const int status = WinErr2ToolsErr(GetLastError());
    Fault fault = FaultOf(status, what, file);
    throw fault;
}

}  // namespace cli
