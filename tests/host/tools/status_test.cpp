#include "too/status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "ork/constants.h"

namespace {

TEST(Status, WindowsAndSystemCodesBecomeStatuses) {
    const std::pair<DWORD, int> cases[] = {
        {0, TOO_OK},
        {2, TOO_E_FILE_NOT_FOUND},     {3, TOO_E_FILE_NOT_FOUND},          {6, TOO_E_BAD_HANDLE},
        {86, TOO_E_WRONG_PASSWORD},    {87, TOO_E_BAD_ARGUMENT},           {234, TOO_E_MORE_DATA},
        {ENOSPC, TOO_E_DISK_FULL},     {EACCES, TOO_E_ACCESS},             {EISDIR, TOO_E_NOT_A_FILE},
        {EBADF, TOO_E_BAD_HANDLE},     {EAGAIN, TOO_E_LOCK},               {EINTR, TOO_E_INTERNAL},
        {EUCLEAN, TOO_E_READ},         {1223, TOO_E_CANCELLED},            {0x80070002, TOO_E_FILE_NOT_FOUND},
        {0x80070005, TOO_E_ACCESS},    {0x80070057, TOO_E_BAD_ARGUMENT},   {0x80090006, TOO_E_BAD_SIGNATURE},
        {0x80092004, TOO_E_NOT_FOUND}, {0x8009000D, TOO_E_KEY_NOT_FOUND},  {0x80090008, TOO_E_UNKNOWN_ALGORITHM},
        {0x80092005, TOO_E_ALREADY_PRESENT},                               {0x8010006B, TOO_E_WRONG_PASSWORD},
        {ORK_E_DISK_FULL, TOO_E_DISK_FULL},       {ORK_E_WRITE_FAULT, TOO_E_WRITE},  {ORK_E_READ_FAULT, TOO_E_READ},
        {ORK_E_DAMAGED, TOO_E_NO_CONTAINER},      {ORK_E_LOCKED, TOO_E_LOCK},        {ORK_E_PATH_NOT_FOUND, TOO_E_FILE_NOT_FOUND},
        {ORK_E_EXISTS, TOO_E_CONTAINER_EXISTS},                                      {ORK_E_PROVIDER_NOT_REGISTERED, TOO_E_NO_PROVIDER},
        // A code without an equivalent stays what it is, also one that is a status already.
        {99, 99},   {106, 106},        {230, 230},                         {0xFFFFFFFF, -1},
        {0x800B0107, static_cast<int>(0x800B0107)},                        {0x8007FFFF, static_cast<int>(0x8007FFFF)},
    };
    for (const auto& [winErr, status] : cases) EXPECT_EQ(status, WinErr2ToolsErr(winErr)) << std::hex << winErr;
}

TEST(Status, TheExceptionSaysTextCodeAndMeaning) {
    const XTOOStatus failure(58, "ORKVerifySignature");
    EXPECT_EQ(58, failure.GetCode());
    EXPECT_EQ("ORKVerifySignature", failure.GetText());
    EXPECT_STREQ("ORKVerifySignature (status 58: the signature is not valid)", failure.what());
    EXPECT_STREQ("status 206: the encoded structure is damaged", XTOOStatus(206).what());
    EXPECT_STREQ("x (status 0x800B0107: unknown status)", XTOOStatus(static_cast<int>(0x800B0107), "x").what());
    const XTOOFile file(TOO_E_ACCESS, "/a/b", "cannot open", EACCES);
    EXPECT_EQ("cannot open \"/a/b\": Permission denied", file.GetText());
    EXPECT_EQ("/a/b", file.GetFileName());
}

}  // namespace
