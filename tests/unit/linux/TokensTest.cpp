// Do tokens, SIDs, texts and dates look to a caller as the system's do?
#include <gtest/gtest.h>

#include <span>

#include "harrow/text/SWCharStringConv.h"
#include "platform/linux/identity/TokenIdentity.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/seam/LinuxKernel.h"
#include "platform/linux/seam/LinuxTokens.h"
#include "platform/linux/seam/TokenTable.h"

namespace morwen {
namespace {

std::string TextOf(LinuxTokens& i_tokens, PSID i_pSid) {
    EXPECT_NE(i_tokens.IsValidSid(i_pSid), FALSE);
    std::string text;
    for (const BYTE nByte : i_tokens.GetSidIdentifierAuthority(i_pSid)->Value) {
        text += std::to_string(nByte) + ".";
    }
    for (DWORD i = 0; i < *i_tokens.GetSidSubAuthorityCount(i_pSid); ++i) {
        text += "-" + std::to_string(*i_tokens.GetSidSubAuthority(i_pSid, i));
    }
    return text;
}

TEST(Sid, HoldsWhatARecordHolds) {
    LinuxTokens tokens;
    Sid sid(0x010203040506, {21, 0xFFFFFFFF});
    EXPECT_EQ(TextOf(tokens, const_cast<SID*>(sid.Record())), "1.2.3.4.5.6.-21-4294967295");
    EXPECT_EQ(sid.SizeInBytes(), 16U);
    EXPECT_FALSE(sid == Sid(0x010203040506, {21}));
    for (int i = 2; i < 15; ++i) {
        EXPECT_TRUE(sid.Append(7));
    }
    EXPECT_FALSE(sid.Append(7));
    EXPECT_EQ(sid.SizeInBytes(), Sid::kMostBytes);

    SID record = *sid.Record();
    EXPECT_EQ(tokens.GetSidSubAuthority(&record, 15), nullptr);
    record.SubAuthorityCount = 16;
    EXPECT_EQ(tokens.IsValidSid(&record), FALSE);
    EXPECT_EQ(tokens.GetSidSubAuthority(&record, 0), nullptr);
    record = {2, 1, {}, {}};
    EXPECT_EQ(tokens.IsValidSid(&record), FALSE);
    EXPECT_EQ(tokens.IsValidSid(nullptr), FALSE);
}

TEST(Tokens, InformationFillsExactlyTheBufferThatItAsksFor) {
    LinuxTokens tokens;
    LinuxKernel kernel;
    const gid_t kGroups[] = {100, 7, 8};
    std::vector<gid_t> many(300);
    for (gid_t i = 0; i < many.size(); ++i) {
        many[i] = i;
    }
    const struct {
        std::span<const gid_t> m_groups;
        TOKEN_INFORMATION_CLASS m_eClass;
        DWORD m_nBytes;
        std::string m_lastSid;
    } kCases[] = {
        {kGroups, TokenUser, 16 + 16, "0.0.0.0.0.22.-1-4000000000"},
        {std::span(many).first(1), TokenGroups, 8 + 16 + 16, "0.0.0.0.0.22.-2-0"},
        {kGroups, TokenGroups, 8 + 3 * (16 + 16), "0.0.0.0.0.22.-2-8"},
        {many, TokenGroups, 8 + 300 * (16 + 16), "0.0.0.0.0.22.-2-299"},
    };
    for (const auto& test : kCases) {
        const UnixAccount account{4'000'000'000, test.m_groups[0], {test.m_groups.begin(), test.m_groups.end()}};
        const HANDLE hToken = OpenToken(std::make_shared<TokenIdentity>(TokenIdentity{{}, account, false, nullptr}));
        DWORD nRequired = 0;
        EXPECT_EQ(tokens.GetTokenInformation(hToken, test.m_eClass, nullptr, 0, &nRequired), FALSE);
        EXPECT_EQ(kernel.GetLastError(), ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(nRequired, test.m_nBytes);
        // On the heap and of just this size, so that a sanitizer sees a byte too many.
        const auto pBuffer = std::make_unique<std::byte[]>(nRequired);
        EXPECT_EQ(tokens.GetTokenInformation(hToken, test.m_eClass, pBuffer.get(), nRequired - 1, &nRequired), FALSE);
        EXPECT_EQ(tokens.GetTokenInformation(hToken, test.m_eClass, pBuffer.get() + 1, 4096, &nRequired), FALSE);
        EXPECT_EQ(kernel.GetLastError(), ERROR_INVALID_PARAMETER);
        ASSERT_NE(tokens.GetTokenInformation(hToken, test.m_eClass, pBuffer.get(), nRequired, &nRequired), FALSE);
        const auto* const pGroups = reinterpret_cast<TOKEN_GROUPS*>(pBuffer.get());
        if (test.m_eClass == TokenUser) {
            EXPECT_EQ(TextOf(tokens, reinterpret_cast<TOKEN_USER*>(pBuffer.get())->User.Sid), test.m_lastSid);
        } else if (pGroups->GroupCount > 0) {
            EXPECT_EQ(TextOf(tokens, (pGroups->Groups + pGroups->GroupCount - 1)->Sid), test.m_lastSid);
        }
        EXPECT_NE(tokens.CloseHandle(hToken), FALSE);
        EXPECT_EQ(tokens.GetTokenInformation(hToken, test.m_eClass, pBuffer.get(), nRequired, &nRequired), FALSE);
        EXPECT_EQ(kernel.GetLastError(), ERROR_INVALID_HANDLE);
    }
}

TEST(Tokens, HandlesAreChecked) {
    LinuxTokens tokens;
    LinuxKernel kernel;
    HANDLE hToken = nullptr;
    EXPECT_EQ(tokens.OpenThreadToken(kernel.GetCurrentThread(), TOKEN_QUERY, TRUE, &hToken), FALSE);
    EXPECT_EQ(kernel.GetLastError(), ERROR_NO_TOKEN);
    EXPECT_EQ(tokens.OpenProcessToken(kernel.GetCurrentThread(), TOKEN_QUERY, &hToken), FALSE);
    EXPECT_EQ(kernel.GetLastError(), ERROR_INVALID_HANDLE);
    ASSERT_NE(tokens.OpenProcessToken(kernel.GetCurrentProcess(), TOKEN_QUERY, &hToken), FALSE);
    EXPECT_EQ(SidsOfToken(hToken)->m_user, Sid(22, {1, geteuid()}));
    EXPECT_EQ(SidsOfToken(hToken)->m_groups.at(0), Sid(22, {2, getegid()}));
    EXPECT_EQ(SidsOfToken(hToken), SidsOfToken(hToken)) << "made once";
    const HANDLE hBeside = static_cast<char*>(hToken) + 1;
    EXPECT_EQ(FindToken(hBeside), nullptr);
    EXPECT_NE(tokens.CloseHandle(hToken), FALSE);
    const HANDLE hRoot =
        OpenToken(std::make_shared<TokenIdentity>(TokenIdentity{{}, UnixAccount{0, 0, {0}}, false, {}}));
    EXPECT_EQ(tokens.ImpersonateLoggedOnUser(hRoot), FALSE) << "not the service's own";
    EXPECT_EQ(kernel.GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_NE(tokens.CloseHandle(hRoot), FALSE);
    for (const HANDLE hWrong :
         {hToken, hBeside, HANDLE{nullptr}, static_cast<HANDLE>(&hToken), kernel.GetCurrentProcess()}) {
        EXPECT_EQ(tokens.CloseHandle(hWrong), FALSE);
        EXPECT_EQ(kernel.GetLastError(), ERROR_INVALID_HANDLE);
        EXPECT_EQ(tokens.ImpersonateLoggedOnUser(hWrong), FALSE);
    }
}

TEST(Kernel, DatesAreExactToTheBorders) {
    LinuxKernel kernel;
    const std::pair<uint64_t, const char*> kCases[] = {
        {0, "1601-1-1 (1) 0:0:0.0"},
        {9'999, "1601-1-1 (1) 0:0:0.0"},
        {116'444'736'000'000'000 - 1, "1969-12-31 (3) 23:59:59.999"},
        {125'962'560'000'000'000, "2000-2-29 (2) 0:0:0.0"},
        {133'536'384'000'000'000 - 10'000, "2024-2-28 (3) 23:59:59.999"},
        {0x7FFFFFFFFFFFFFFF, "30828-9-14 (4) 2:48:5.477"},
        {0x8000000000000000, ""},  // refused
        {0xFFFFFFFFFFFFFFFF, ""},
    };
    for (const auto& [nTicks, pszDate] : kCases) {
        const FILETIME time{static_cast<DWORD>(nTicks), static_cast<DWORD>(nTicks >> 32U)};
        SYSTEMTIME date{};
        std::string text;
        if (kernel.FileTimeToSystemTime(&time, &date) != FALSE) {
            const auto n = [](uint16_t i_nField) { return std::to_string(i_nField); };
            text = n(date.wYear) + "-" + n(date.wMonth) + "-" + n(date.wDay) + " (" + n(date.wDayOfWeek) + ") " +
                   n(date.wHour) + ":" + n(date.wMinute) + ":" + n(date.wSecond) + "." + n(date.wMilliseconds);
        }
        EXPECT_EQ(text, pszDate) << nTicks;
    }
}

TEST(Kernel, MessagesCarryTheThreadsFailure) {
    LinuxKernel kernel;
    constexpr DWORD kFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    const auto message = [&kernel](DWORD i_nCode) {
        WCHAR* pszText = nullptr;
        const DWORD nLength =
            kernel.FormatMessageW(kFlags, nullptr, i_nCode, 0x400, reinterpret_cast<WCHAR*>(&pszText), 1024, nullptr);
        std::string text =
            Harrowlib201::SWCharStringConv::ToUtf8(std::u16string_view(pszText != nullptr ? pszText : u"", nLength));
        kernel.LocalFree(pszText);
        return text;
    };
    const auto nDenied = static_cast<DWORD>(SEC_E_LOGON_DENIED);
    FailWith(SEC_E_LOGON_DENIED, "m\xC3\xBCller@R: gesperrt");
    EXPECT_TRUE(message(nDenied).starts_with("m\xC3\xBCller@R: gesperrt. The logon "));
    EXPECT_EQ(message(static_cast<DWORD>(SEC_E_TIME_SKEW)).find("gesperrt"), std::string::npos);
    EXPECT_EQ(message(0x12345), "");
    EXPECT_EQ(kernel.GetLastError(), ERROR_MR_MID_NOT_FOUND);

    WCHAR aSmall[8] = {};
    EXPECT_EQ(kernel.FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, nDenied, 0, aSmall, 8, nullptr), 0U);
    EXPECT_EQ(kernel.GetLastError(), ERROR_INSUFFICIENT_BUFFER);

    FailWith(SEC_E_LOGON_DENIED, std::string(510, 'a') + "\xE2\x82\xAC");
    EXPECT_EQ(FailureText(SEC_E_LOGON_DENIED), std::string(510, 'a')) << "no half character at the cut";
    FailWith(SEC_E_TIME_SKEW, "");
    EXPECT_EQ(FailureText(SEC_E_LOGON_DENIED), "");
}

TEST(Status, BehindTheTable) {
    for (const auto nCode :
         {krb5_error_code{ASN1_OVERRUN}, krb5_error_code{ASN1_OMITTED}}) {  // of a range, which no row names
        EXPECT_EQ(StatusFromKrb5(nCode), SEC_E_INVALID_TOKEN);
    }
    EXPECT_TRUE(StatusFromKrb5(0) == SEC_E_OK && StatusFromKrb5(-1) == SEC_E_INTERNAL_ERROR);
    EXPECT_EQ(FailWithKrb5(nullptr, KRB5_FCC_NOFILE, "reading tickets"), SEC_E_NO_CREDENTIALS);
    EXPECT_EQ(FailureText(SEC_E_NO_CREDENTIALS), "reading tickets: No credentials cache found");
}

}  // namespace
}  // namespace morwen
