// A platform that does what a test tells it, and knows what was not given back.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "harrow/text/SWCharStringConv.h"
#include "harrow/time/SDateTime.h"
#include "platform/Platform.h"

namespace morwen {

// One answer in place of what a call would do by itself.
struct FakeAnswer {
    enum Handle { kByStatus, kNever, kAlways };  // whether the call hands out what it makes

    SECURITY_STATUS m_nStatus = SEC_E_OK;             // of a call that returns BOOL: its last error, 0 for success
    std::optional<std::string> m_output = "";         // the output token; nothing: buffer and length stay as they were
    Handle m_eHandle = kByStatus;                     // with a success only
    int64_t m_nExpiry = INT64_C(157469184000000000);  // in 100 ns since 1601: in the year 2100
};

// Every handle has a new value, so that an old one is never taken for a new one. A call that is given a handle that is
// not alive fails, and is a fault of the test. Calls are logged as text with all that the system would see. Without
// scripted answers a client's context takes two steps and a server's one, and every other call succeeds. May be used by
// many threads at once.
class FakePlatform final : public SspiCalls, public TokenCalls, public KernelCalls {
    using Lock = std::lock_guard<std::recursive_mutex>;
    using Status = SECURITY_STATUS;

public:
    PlatformCalls Calls() { return {this, this, this}; }

    // The next call of this name gives this answer; answers queue up. One that is never used is a fault.
    void Script(const std::string& i_call, const FakeAnswer& i_answer) {
        const Lock lock(m_mutex);
        m_mapAnswers[i_call].push_back(i_answer);
    }
    // The calling thread's call of this number, counted from 1 and from now, fails whatever it is; on request all that
    // follow as well, until 0 calls it off. Gives whether the last one asked for has come.
    bool FailCall(size_t i_nCall, bool i_bAndAllThatFollow = false) {
        const Lock lock(m_mutex);
        m_bFailAll = i_bAndAllThatFollow;
        m_failing = std::this_thread::get_id();
        return std::exchange(m_nCallToFail, i_nCall) <= std::exchange(m_nCalls, 0);
    }
    // What the calls of this name were given, in order.
    std::vector<std::string> Log(const std::string& i_call) {
        const Lock lock(m_mutex);
        return m_mapLogs[i_call];
    }
    // Whether the calling thread is.
    bool IsImpersonating() {
        const Lock lock(m_mutex);
        return Self().m_bImpersonating;
    }
    // Everything that is wrong: misuse and loss of handles, threads impersonating, answers not used. Empty is good.
    std::string Faults() const {
        const Lock lock(m_mutex);
        std::string faults = m_faults;
        for (const auto& live : m_mapLive) {
            faults += "not given back: " + live.second.m_kind + "\n";
        }
        for (const auto& thread : m_mapThreads) {
            faults += thread.second.m_bImpersonating ? "a thread still impersonates\n" : "";
        }
        for (const auto& [call, answers] : m_mapAnswers) {
            faults += answers.empty() ? "" : "answers not used: " + call + "\n";
        }
        return faults;
    }
    // A security identifier as it lies in memory; the authority has six bytes.
    static std::string MakeSid(const std::string& i_authority, const std::vector<DWORD>& i_subAuthorities) {
        const auto* pBytes = reinterpret_cast<const char*>(i_subAuthorities.data());
        return std::string{'\1', static_cast<char>(i_subAuthorities.size())} + i_authority +
               std::string(pBytes, i_subAuthorities.size() * sizeof(DWORD));
    }

    // An instant (milliseconds since 1970, UTC) as the package reports it: by its local clock, in 100 ns since 1601.
    static int64_t LocalTime(int64_t i_nUtcMilliseconds) {
        const Harrowlib201::SDateTime epoch(1601, 1, 1, 0, 0, 0, 0, Harrowlib201::STimeZone::TZ_Local);
        return (Harrowlib201::SDateTime(i_nUtcMilliseconds) - epoch).GetTotalMilliseconds() * 10000;
    }

    FakeAnswer m_lifespan;  // of every context
    bool m_bAcceptsAsService = false;
    ULONG m_nAttributes = 0;                     // of every context
    std::u16string m_userName = u"REALM\\user";  // of the context that is asked about next
    std::u16string m_nextUserName = m_userName;  // of those after it
    DWORD m_nLevel = SecurityImpersonation;      // of every token
    std::string m_userSid = MakeSid({0, 0, 0, 0, 0, 5}, {18});
    std::vector<std::string> m_groupSids;
    std::u16string m_systemText = u"The fake failed. \r\n";  // what every error means; empty: no text

    Status QuerySecurityPackageInfoW(SEC_WCHAR* i_pszPackage, PSecPkgInfoW* o_ppInfo) noexcept override {
        const FakeAnswer answer = Begin("QuerySecurityPackageInfoW", Text(i_pszPackage));
        if (answer.m_eHandle == FakeAnswer::kAlways) {
            *o_ppInfo = new (MakeBlock("buffer", sizeof(SecPkgInfoW))) SecPkgInfoW{};
            (*o_ppInfo)->cbMaxToken = 64;
        }
        return answer.m_nStatus;
    }
    Status FreeContextBuffer(void* i_p) noexcept override { return Release("FreeContextBuffer", i_p, "buffer"); }
    Status AcquireCredentialsHandleW(SEC_WCHAR* i_pszPrincipal, SEC_WCHAR* i_pszPackage, ULONG i_nUse,
                                     void* i_pvLogonId, void* i_pvAuthData, SEC_GET_KEY_FN i_pfnGetKey,
                                     void* i_pvArgument, PCredHandle o_pCredential,
                                     PTimeStamp o_ptsExpiry) noexcept override {
        const Lock lock(m_mutex);
        std::string identity = "none";
        if (const auto* pIdentity = static_cast<const SEC_WINNT_AUTH_IDENTITY_W*>(i_pvAuthData)) {
            identity = Text(pIdentity->Domain, pIdentity->DomainLength) + "|" +
                       Text(pIdentity->User, pIdentity->UserLength) + "|" +
                       Text(pIdentity->Password, pIdentity->PasswordLength) + "|" + Number(pIdentity->Flags);
        }
        const bool bExtras = i_pvLogonId != nullptr || i_pfnGetKey != nullptr || i_pvArgument != nullptr;
        const FakeAnswer answer =
            Begin("AcquireCredentialsHandleW",
                  Text(i_pszPrincipal) + ", " + Text(i_pszPackage) + ", use " + Number(i_nUse) + ", identity " +
                      identity + (bExtras ? ", extras" : "") + (Self().m_bImpersonating ? ", impersonating" : ""));
        if (answer.m_eHandle == FakeAnswer::kAlways) {
            *o_pCredential = ToHandle(Make("credential"));
            SetTime(answer.m_nExpiry, o_ptsExpiry);
        }
        return answer.m_nStatus;
    }
    Status FreeCredentialsHandle(PCredHandle i_p) noexcept override {
        return Release("FreeCredentialsHandle", i_p, "credential");
    }
    Status InitializeSecurityContextW(PCredHandle i_pCredential, PCtxtHandle i_pContext, SEC_WCHAR* i_pszTargetName,
                                      ULONG i_nRequirements, ULONG i_nReserved1, ULONG i_nDataRepresentation,
                                      PSecBufferDesc i_pInput, ULONG i_nReserved2, PCtxtHandle o_pNewContext,
                                      PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                      PTimeStamp o_ptsExpiry) noexcept override {
        const std::string arguments = ", target " + Text(i_pszTargetName) + ", flags " + Number(i_nRequirements) +
                                      ", reserved " + Number(i_nReserved1) + Number(i_nReserved2) + ", drep " +
                                      Number(i_nDataRepresentation) + ", input " + Describe(i_pInput, true);
        return Step("InitializeSecurityContextW", arguments, {SEC_I_CONTINUE_NEEDED, "from client"}, i_pCredential,
                    i_pContext, o_pNewContext, io_pOutput, o_pnAttributes, o_ptsExpiry);
    }
    Status AcceptSecurityContext(PCredHandle i_pCredential, PCtxtHandle i_pContext, PSecBufferDesc i_pInput,
                                 ULONG i_nRequirements, ULONG i_nDataRepresentation, PCtxtHandle o_pNewContext,
                                 PSecBufferDesc io_pOutput, ULONG* o_pnAttributes,
                                 PTimeStamp o_ptsExpiry) noexcept override {
        const std::string arguments = ", flags " + Number(i_nRequirements) + ", drep " + Number(i_nDataRepresentation) +
                                      ", input " + Describe(i_pInput, true);
        return Step("AcceptSecurityContext", arguments, {SEC_E_OK, "from server"}, i_pCredential, i_pContext,
                    o_pNewContext, io_pOutput, o_pnAttributes, o_ptsExpiry);
    }
    Status QueryContextAttributesW(PCtxtHandle i_pContext, ULONG i_nAttribute, void* o_pvBuffer) noexcept override {
        const FakeAnswer answer = Begin("QueryContextAttributesW", Number(i_nAttribute), m_lifespan);
        if (!IsLive(i_pContext, "context", "QueryContextAttributesW")) {
            return SEC_E_INVALID_HANDLE;
        }
        if (answer.m_nStatus == SEC_E_OK && i_nAttribute == SECPKG_ATTR_LIFESPAN) {
            SetTime(answer.m_nExpiry, &static_cast<SecPkgContext_Lifespan*>(o_pvBuffer)->tsExpiry);
        } else if (answer.m_nStatus == SEC_E_OK) {
            const std::u16string name = std::exchange(m_userName, m_nextUserName);
            const size_t nBytes = (name.size() + 1) * sizeof(char16_t);
            void* const pvName = std::memcpy(MakeBlock("buffer", nBytes), name.c_str(), nBytes);
            static_cast<SecPkgContext_NamesW*>(o_pvBuffer)->sUserName = static_cast<SEC_WCHAR*>(pvName);
        }
        return answer.m_nStatus;
    }
    Status ImpersonateSecurityContext(PCtxtHandle i_p) noexcept override {
        return Switch(i_p, "ImpersonateSecurityContext", true);
    }
    Status RevertSecurityContext(PCtxtHandle i_p) noexcept override {
        return Switch(i_p, "RevertSecurityContext", false);
    }
    Status DeleteSecurityContext(PCtxtHandle i_p) noexcept override {
        return Release("DeleteSecurityContext", i_p, "context");
    }
    Status OpenContextToken(PCtxtHandle i_pContext, HANDLE* o_phToken) noexcept override {
        const FakeAnswer answer = Begin("OpenContextToken", "");
        return IsLive(i_pContext, "context", "OpenContextToken") ? GiveToken(answer, o_phToken) : SEC_E_INVALID_HANDLE;
    }

    // The signature is the message in brackets.
    Status MakeSignature(PCtxtHandle i_p, ULONG, PSecBufferDesc io_pMessage, ULONG) noexcept override {
        const FakeAnswer answer = Begin("MakeSignature", Describe(io_pMessage, true));
        const std::string signature = "<" + Data(io_pMessage->pBuffers[0]) + ">";
        std::copy(signature.begin(), signature.end(), static_cast<char*>(io_pMessage->pBuffers[1].pvBuffer));
        io_pMessage->pBuffers[1].cbBuffer = static_cast<ULONG>(signature.size());
        return IsLive(i_p, "context", "MakeSignature") ? answer.m_nStatus : SEC_E_INVALID_HANDLE;
    }
    Status VerifySignature(PCtxtHandle i_p, PSecBufferDesc i_pMessage, ULONG, ULONG*) noexcept override {
        const FakeAnswer answer = Begin("VerifySignature", Describe(i_pMessage, true));
        const bool bGood = Data(i_pMessage->pBuffers[1]) == "<" + Data(i_pMessage->pBuffers[0]) + ">";
        return !IsLive(i_p, "context", "VerifySignature") ? SEC_E_INVALID_HANDLE
               : bGood                                    ? answer.m_nStatus
                                                          : SEC_E_MESSAGE_ALTERED;
    }

    bool AcceptsAsService() const noexcept override { return m_bAcceptsAsService; }

    BOOL OpenThreadToken(HANDLE i_hThread, DWORD i_nAccess, BOOL i_bOpenAsSelf, HANDLE* o_phToken) noexcept override {
        const Lock lock(m_mutex);
        const std::string arguments = std::string(i_hThread == GetCurrentThread() ? "this thread" : "?") + ", access " +
                                      Number(i_nAccess) + (i_bOpenAsSelf != FALSE ? ", as self" : "");
        const Status nStatus = Self().m_bImpersonating ? 0 : Error(ERROR_NO_TOKEN);
        return Finish(GiveToken(Begin("OpenThreadToken", arguments, {nStatus}), o_phToken));
    }
    BOOL OpenProcessToken(HANDLE i_hProcess, DWORD i_nAccess, HANDLE* o_phToken) noexcept override {
        const std::string process = i_hProcess == GetCurrentProcess() ? "this process" : "?";
        return Finish(GiveToken(Begin("OpenProcessToken", process + ", access " + Number(i_nAccess)), o_phToken));
    }
    BOOL GetTokenInformation(HANDLE i_hToken, TOKEN_INFORMATION_CLASS i_eClass, void* o_pvBuffer, DWORD i_nLength,
                             DWORD* o_pnRequiredLength) noexcept override {
        const FakeAnswer answer = Begin("GetTokenInformation", Number(i_eClass) + ", length " + Number(i_nLength));
        if (!IsLive(i_hToken, "token", "GetTokenInformation")) {
            return Finish(Error(ERROR_INVALID_HANDLE));
        }
        if (i_eClass == TokenImpersonationLevel) {
            std::memcpy(o_pvBuffer, &m_nLevel, sizeof(m_nLevel));
            return Finish(answer.m_nStatus);
        }
        // The record, its elements, and behind them the identifiers to which they point.
        const bool bGroups = i_eClass == TokenGroups;
        const auto sids = bGroups ? m_groupSids : std::vector<std::string>{m_userSid};
        size_t nAt = (bGroups ? offsetof(TOKEN_GROUPS, Groups) : 0) + sids.size() * sizeof(SID_AND_ATTRIBUTES);
        *o_pnRequiredLength = static_cast<DWORD>(nAt);
        for (const std::string& sid : sids) {
            *o_pnRequiredLength += static_cast<DWORD>(sid.size());
        }
        if (answer.m_nStatus != 0 || *o_pnRequiredLength > i_nLength) {
            return Finish(answer.m_nStatus != 0 ? answer.m_nStatus : Error(ERROR_INSUFFICIENT_BUFFER));
        }
        auto* pGroups = static_cast<TOKEN_GROUPS*>(o_pvBuffer);
        SID_AND_ATTRIBUTES* pElement = bGroups ? pGroups->Groups : &static_cast<TOKEN_USER*>(o_pvBuffer)->User;
        if (bGroups) {
            pGroups->GroupCount = static_cast<DWORD>(sids.size());
        }
        for (const std::string& sid : sids) {
            pElement->Sid = std::memcpy(static_cast<std::byte*>(o_pvBuffer) + nAt, sid.data(), sid.size());
            nAt += sid.size();
            ++pElement;
        }
        return TRUE;
    }
    BOOL ImpersonateLoggedOnUser(HANDLE i_h) noexcept override {
        return Finish(Switch(i_h, "ImpersonateLoggedOnUser", true));
    }
    BOOL RevertToSelf() noexcept override { return Finish(Switch(HANDLE(), "RevertToSelf", false)); }
    BOOL CloseHandle(HANDLE i_h) noexcept override { return Finish(Release("CloseHandle", i_h, "token")); }
    bool HasImpersonationLevels() noexcept override { return true; }
    BOOL IsValidSid(PSID i_p) noexcept override { return i_p != nullptr && static_cast<SID*>(i_p)->Revision == 1; }
    SID_IDENTIFIER_AUTHORITY* GetSidIdentifierAuthority(PSID i_p) noexcept override {
        return &static_cast<SID*>(i_p)->IdentifierAuthority;
    }
    BYTE* GetSidSubAuthorityCount(PSID i_p) noexcept override { return &static_cast<SID*>(i_p)->SubAuthorityCount; }
    DWORD* GetSidSubAuthority(PSID i_p, DWORD i_n) noexcept override {
        return static_cast<SID*>(i_p)->SubAuthority + i_n;
    }

    HANDLE GetCurrentThread() noexcept override { return reinterpret_cast<HANDLE>(intptr_t{-2}); }
    HANDLE GetCurrentProcess() noexcept override { return reinterpret_cast<HANDLE>(intptr_t{-1}); }
    DWORD GetCurrentProcessId() noexcept override { return 1; }
    DWORD GetLastError() noexcept override {
        const Lock lock(m_mutex);
        return static_cast<DWORD>(Self().m_nLastError);
    }
    DWORD FormatMessageW(DWORD i_nFlags, const void*, DWORD, DWORD i_nLanguageId, WCHAR* o_pszBuffer, DWORD i_nSize,
                         void*) noexcept override {
        const FakeAnswer answer = Begin("FormatMessageW", "flags " + Number(i_nFlags) + ", language " +
                                                              Number(i_nLanguageId) + ", size " + Number(i_nSize));
        const size_t nBytes = (m_systemText.size() + 1) * sizeof(WCHAR);
        if (answer.m_nStatus != SEC_E_OK) {
            return 0;
        }
        if (!m_systemText.empty()) {
            void* pvBlock = MakeBlock("memory", nBytes);
            *reinterpret_cast<void**>(o_pszBuffer) = std::memcpy(pvBlock, m_systemText.c_str(), nBytes);
        }
        return static_cast<DWORD>(m_systemText.size());
    }
    HLOCAL LocalFree(HLOCAL i_p) noexcept override { return Release("LocalFree", i_p, "memory") == 0 ? nullptr : i_p; }
    BOOL FileTimeToSystemTime(const FILETIME* i_pFileTime, SYSTEMTIME* o_pSystemTime) noexcept override {
        const uint64_t nTime = (uint64_t{i_pFileTime->dwHighDateTime} << 32) | i_pFileTime->dwLowDateTime;
        const FakeAnswer answer = Begin("FileTimeToSystemTime", Number(nTime));
        const auto time =
            std::chrono::sys_days(std::chrono::year(1601) / 1 / 1) + std::chrono::milliseconds(nTime / 10000);
        const auto day = std::chrono::floor<std::chrono::days>(time);
        const std::chrono::year_month_day date(day);
        const std::chrono::hh_mm_ss clock(time - day);
        const auto n = [](auto i_nField) { return static_cast<uint16_t>(i_nField); };
        *o_pSystemTime = {n(int{date.year()}),        n(unsigned{date.month()}),    0,
                          n(unsigned{date.day()}),    n(clock.hours().count()),     n(clock.minutes().count()),
                          n(clock.seconds().count()), n(clock.subseconds().count())};
        return Finish(nTime > uint64_t{INT64_MAX} ? Error(ERROR_INVALID_PARAMETER) : answer.m_nStatus);
    }

private:
    // The types of the same 16-bit unit differ between systems and records.
    template <class Unit>
    static std::string Text(const Unit* i_pText, size_t i_nLength) {
        return i_pText == nullptr
                   ? "none"
                   : Harrowlib201::SWCharStringConv::ToUtf8(std::u16string(i_pText, i_pText + i_nLength));
    }
    template <class Unit>
    static std::string Text(const Unit* i_pszText) {
        return Text(i_pszText, i_pszText == nullptr ? 0 : std::char_traits<Unit>::length(i_pszText));
    }

    static std::string Data(const SecBuffer& i_buffer) {
        return {static_cast<const char*>(i_buffer.pvBuffer), i_buffer.cbBuffer};
    }
    static std::string Number(uint64_t i_nValue) { return std::to_string(i_nValue); }

    // An input as "[version:type:bytes]", an output as "[version:type:length]" with what is wrong about it.
    static std::string Describe(const SecBufferDesc* i_pBuffers, bool i_bInput) {
        if (i_pBuffers == nullptr) {
            return "none";
        }
        std::string text = "[" + Number(i_pBuffers->ulVersion);
        for (size_t i = 0; i < i_pBuffers->cBuffers; ++i) {
            const SecBuffer& buffer = i_pBuffers->pBuffers[i];
            const std::string bytes(static_cast<const char*>(buffer.pvBuffer), buffer.cbBuffer);
            text += ":" + Number(buffer.BufferType) + ":" + (i_bInput ? bytes : Number(bytes.size()));
            text += !i_bInput && bytes.find_first_not_of('\0') != std::string::npos ? " not zeroed" : "";
        }
        return text + "]";
    }

    // Either word of a handle may be zero, so each is, in turn.
    static SecHandle ToHandle(uintptr_t i_nValue) {
        SecHandle handle{};
        (i_nValue % 2 != 0 ? handle.dwLower : handle.dwUpper) = i_nValue;
        return handle;
    }
    static uintptr_t Value(const SecHandle* i_pHandle) { return i_pHandle->dwLower + i_pHandle->dwUpper; }
    static uintptr_t Value(const void* i_pvPointer) { return reinterpret_cast<uintptr_t>(i_pvPointer); }

    static void SetTime(int64_t i_nTime, PTimeStamp o_pTime) {
        o_pTime->LowPart = static_cast<uint32_t>(i_nTime);
        o_pTime->HighPart = static_cast<int32_t>(i_nTime >> 32);
    }

    static constexpr Status Error(DWORD i_nError) { return static_cast<Status>(i_nError); }

    struct Live {
        std::string m_kind;
        std::unique_ptr<std::byte[]> m_pBlock;  // of memory that is handed out
    };
    struct Thread {
        bool m_bImpersonating = false;
        Status m_nLastError = 0;
    };

    Thread& Self() { return m_mapThreads[std::this_thread::get_id()]; }

    // What a call is to do; whether it hands out what it makes is then decided.
    FakeAnswer Begin(const std::string& i_call, const std::string& i_arguments, const FakeAnswer& i_byItself = {}) {
        const Lock lock(m_mutex);
        m_mapLogs[i_call].push_back(i_arguments);
        FakeAnswer answer = i_byItself;
        std::deque<FakeAnswer>& answers = m_mapAnswers[i_call];
        if (!answers.empty()) {
            answer = answers.front();
            answers.pop_front();
        }
        if (m_nCallToFail != 0 && m_failing == std::this_thread::get_id()) {
            const bool bFails = ++m_nCalls == m_nCallToFail || (m_bFailAll && m_nCalls > m_nCallToFail);
            answer = bFails ? FakeAnswer{SEC_E_INTERNAL_ERROR, std::nullopt} : answer;
        }
        if (answer.m_eHandle == FakeAnswer::kByStatus) {
            const bool bGood = answer.m_nStatus == SEC_E_OK || answer.m_nStatus >= SEC_I_CONTINUE_NEEDED;
            answer.m_eHandle = bGood ? FakeAnswer::kAlways : FakeAnswer::kNever;
        }
        return answer;
    }
    uintptr_t Make(const std::string& i_kind) {
        const Lock lock(m_mutex);
        m_mapLive[++m_nLastHandle].m_kind = i_kind;
        return m_nLastHandle;
    }
    void* MakeBlock(const std::string& i_kind, size_t i_nBytes) {
        const Lock lock(m_mutex);
        auto pBlock = std::make_unique<std::byte[]>(i_nBytes);
        void* pvBlock = pBlock.get();
        m_mapLive[Value(pvBlock)] = {i_kind, std::move(pBlock)};
        return pvBlock;
    }
    template <class Handle>
    bool IsLive(Handle i_handle, const std::string& i_kind, const std::string& i_call) {
        const Lock lock(m_mutex);
        const auto found = m_mapLive.find(Value(i_handle));
        const bool bLive = found != m_mapLive.end() && found->second.m_kind == i_kind;
        m_faults += bLive ? "" : "not a live " + i_kind + ": " + i_call + "\n";
        return bLive;
    }
    // Whatever the answer says: what was alive is given back.
    template <class Handle>
    Status Release(const std::string& i_call, Handle i_handle, const std::string& i_kind) {
        const Lock lock(m_mutex);
        const FakeAnswer answer = Begin(i_call, "");
        const bool bLive = IsLive(i_handle, i_kind, i_call);
        m_mapLive.erase(Value(i_handle));
        return bLive ? answer.m_nStatus : SEC_E_INVALID_HANDLE;
    }
    BOOL Finish(Status i_nError) {
        const Lock lock(m_mutex);
        Self().m_nLastError = i_nError != 0 ? i_nError : Self().m_nLastError;
        return i_nError == 0;
    }
    Status GiveToken(const FakeAnswer& i_answer, HANDLE* o_phToken) {
        if (i_answer.m_eHandle == FakeAnswer::kAlways) {
            *o_phToken = reinterpret_cast<HANDLE>(Make("token"));
        }
        return i_answer.m_nStatus;
    }
    // Puts the calling thread's identity on or off, unless the answer is a failure.
    template <class Handle>
    Status Switch(Handle i_handle, const std::string& i_call, bool i_bImpersonatingAfter) {
        const Lock lock(m_mutex);
        FakeAnswer answer = Begin(i_call, "");
        const std::string kind = std::is_same_v<Handle, PCtxtHandle> ? "context" : "token";
        if (i_call != "RevertToSelf" && !IsLive(i_handle, kind, i_call)) {
            answer.m_nStatus = SEC_E_INVALID_HANDLE;
        }
        Self().m_bImpersonating = answer.m_nStatus == SEC_E_OK ? i_bImpersonatingAfter : Self().m_bImpersonating;
        return answer.m_nStatus;
    }
    Status Step(const std::string& i_call, const std::string& i_arguments, FakeAnswer i_first,
                PCredHandle i_pCredential, PCtxtHandle i_pContext, PCtxtHandle o_pNewContext, PSecBufferDesc io_pOutput,
                ULONG* o_pnAttributes, PTimeStamp o_ptsExpiry) {
        const Lock lock(m_mutex);
        const bool bFirst = i_pContext == nullptr;
        const FakeAnswer answer =
            Begin(i_call, (bFirst ? "first" : "later") + i_arguments + ", output " + Describe(io_pOutput, false),
                  bFirst ? i_first : FakeAnswer());
        if (!IsLive(i_pCredential, "credential", i_call) || (!bFirst && !IsLive(i_pContext, "context", i_call))) {
            return SEC_E_INVALID_HANDLE;
        }
        if (bFirst && answer.m_eHandle == FakeAnswer::kAlways) {
            *o_pNewContext = ToHandle(Make("context"));
        }
        SecBuffer& buffer = io_pOutput->pBuffers[0];
        if (answer.m_output && answer.m_output->size() > buffer.cbBuffer) {
            return SEC_E_BUFFER_TOO_SMALL;
        }
        if (answer.m_output) {
            std::copy(answer.m_output->begin(), answer.m_output->end(), static_cast<char*>(buffer.pvBuffer));
            buffer.cbBuffer = static_cast<ULONG>(answer.m_output->size());
        }
        *o_pnAttributes = m_nAttributes;
        SetTime(answer.m_nExpiry, o_ptsExpiry);
        return answer.m_nStatus;
    }

    mutable std::recursive_mutex m_mutex;
    size_t m_nCallToFail = 0;
    size_t m_nCalls = 0;
    bool m_bFailAll = false;
    std::thread::id m_failing;
    uintptr_t m_nLastHandle = 0x1000;
    std::map<uintptr_t, Live> m_mapLive;
    std::map<std::thread::id, Thread> m_mapThreads;
    std::map<std::string, std::deque<FakeAnswer>> m_mapAnswers;
    std::map<std::string, std::vector<std::string>> m_mapLogs;
    std::string m_faults;
};

}  // namespace morwen
