// A security package for tests, under the name "Kerberos": the system's Kerberos, and what Wine's lacks: lifespan,
// impersonation and reverting. Wine loads it twice over: as an authentication package, which hands the system's
// Kerberos through under another name, and as a security support provider, whose functions are the system's for that
// name.
#include <atomic>
#include <tuple>

#include "platform/OsTypes.h"
// ntsecpkg.h must follow.
#include <ntsecapi.h>
#include <ntsecpkg.h>

namespace {

wchar_t s_szName[] = L"Kerberos";
wchar_t s_szInnerName[] = L"Kerberos of the system";
char s_szInnerAnsi[] = "Kerberos of the system";
LSA_STRING s_innerName = {sizeof(s_szInnerAnsi) - 1, sizeof(s_szInnerAnsi), s_szInnerAnsi};
SECPKG_FUNCTION_TABLE s_system;             // the system's
SECPKG_FUNCTION_TABLE s_inner;              // the same, but for the name
std::atomic<LONGLONG> s_nLifespan{3600};    // seconds from now, of every context
std::atomic<int> s_nLevel{2};               // of every impersonation: SecurityImpersonation
std::atomic<ULONG_PTR> s_nInnerPackage{0};  // the upper word of a handle, by which Wine finds the package

// A handle as the package of the system knows it.
class Inner {
public:
    explicit Inner(const SecHandle* i_p)
        : m_bNull(i_p == nullptr), m_handle{m_bNull ? 0 : i_p->dwLower, s_nInnerPackage} {}
    operator SecHandle*() { return m_bNull ? nullptr : &m_handle; }

private:
    bool m_bNull;
    SecHandle m_handle;
};

SECURITY_STATUS SEC_ENTRY Acquire(SEC_WCHAR* i_pszPrincipal, SEC_WCHAR*, ULONG i_nUse, void* i_pvLogonId,
                                  void* i_pvData, SEC_GET_KEY_FN i_pfnGetKey, void* i_pvKey, CredHandle* o_pHandle,
                                  TimeStamp* o_pEnd) {
    const SECURITY_STATUS nStatus = AcquireCredentialsHandleW(i_pszPrincipal, s_szInnerName, i_nUse, i_pvLogonId,
                                                              i_pvData, i_pfnGetKey, i_pvKey, o_pHandle, o_pEnd);
    s_nInnerPackage = nStatus == SEC_E_OK ? o_pHandle->dwUpper : s_nInnerPackage.load();
    return nStatus;
}

// Local time, as Windows reports it.
SECURITY_STATUS SEC_ENTRY Query(CtxtHandle*, ULONG i_nAttribute, void* o_pvBuffer) {
    ULARGE_INTEGER end;
    FILETIME utc, local;
    GetSystemTimeAsFileTime(&utc);
    end.u = {utc.dwLowDateTime, utc.dwHighDateTime};
    end.QuadPart += static_cast<ULONGLONG>(s_nLifespan * 10000000);
    utc = {end.LowPart, end.HighPart};
    FileTimeToLocalFileTime(&utc, &local);
    end.u = {local.dwLowDateTime, local.dwHighDateTime};
    if (i_nAttribute == SECPKG_ATTR_LIFESPAN) {
        static_cast<SecPkgContext_Lifespan*>(o_pvBuffer)->tsExpiry.QuadPart = static_cast<LONGLONG>(end.QuadPart);
    }
    if (i_nAttribute == SECPKG_ATTR_NAMES) {
        auto* const pszName = static_cast<wchar_t*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, 2 * sizeof(wchar_t)));
        pszName[0] = L'u';
        static_cast<SecPkgContext_NamesW*>(o_pvBuffer)->sUserName = pszName;
    }
    const bool bKnown = i_nAttribute == SECPKG_ATTR_LIFESPAN || i_nAttribute == SECPKG_ATTR_NAMES;
    return bKnown ? SEC_E_OK : SEC_E_UNSUPPORTED_FUNCTION;
}

}  // namespace

extern "C" {

NTSTATUS NTAPI SpLsaModeInitialize(ULONG i_nVersion, ULONG* o_pnVersion, SECPKG_FUNCTION_TABLE** o_ppTable,
                                   ULONG* o_pnTables) {
    const auto fromSystem = GetProcAddress(LoadLibraryW(L"kerberos.dll"), "SpLsaModeInitialize");
    const NTSTATUS nStatus = reinterpret_cast<SpLsaModeInitializeFn>(reinterpret_cast<intptr_t>(fromSystem))(
        i_nVersion, o_pnVersion, o_ppTable, o_pnTables);
    s_inner = s_system = **o_ppTable;
    s_inner.InitializePackage = [](auto... i_arguments) {
        const NTSTATUS nResult = s_system.InitializePackage(i_arguments...);
        *std::get<4>(std::tuple(i_arguments...)) = &s_innerName;
        return nResult;
    };
    s_inner.GetInfo = [](SecPkgInfoW* o_pInfo) {
        const NTSTATUS nResult = s_system.GetInfo(o_pInfo);
        o_pInfo->Name = s_szInnerName;
        return nResult;
    };
    *o_ppTable = &s_inner;
    return nStatus;
}

SecurityFunctionTableW* SEC_ENTRY MakeTable() {
    static SecurityFunctionTableW s_table{};
    s_table.dwVersion = 1;
    s_table.EnumerateSecurityPackagesW = [](ULONG* o_pnPackages, SecPkgInfoW** o_ppInfo) -> SECURITY_STATUS {
        *o_pnPackages = 1;
        *o_ppInfo = static_cast<SecPkgInfoW*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(SecPkgInfoW)));
        **o_ppInfo = {0, 1, 9, 12000, s_szName, s_szName};
        return SEC_E_OK;
    };
    s_table.AcquireCredentialsHandleW = Acquire;
    s_table.FreeCredentialsHandle = [](auto i_p) { return FreeCredentialsHandle(Inner(i_p)); };
    s_table.InitializeSecurityContextW = [](auto i_pCredential, auto i_pContext, auto... i_arguments) {
        return InitializeSecurityContextW(Inner(i_pCredential), Inner(i_pContext), i_arguments...);
    };
    s_table.AcceptSecurityContext = [](auto i_pCredential, auto i_pContext, auto... i_arguments) {
        return AcceptSecurityContext(Inner(i_pCredential), Inner(i_pContext), i_arguments...);
    };
    s_table.DeleteSecurityContext = [](auto i_p) { return DeleteSecurityContext(Inner(i_p)); };
    s_table.QueryContextAttributesW = Query;
    s_table.ImpersonateSecurityContext = [](CtxtHandle*) -> SECURITY_STATUS {
        return ImpersonateSelf(static_cast<SECURITY_IMPERSONATION_LEVEL>(s_nLevel.load())) ? SEC_E_OK
                                                                                           : SEC_E_NO_IMPERSONATION;
    };
    s_table.RevertSecurityContext = [](CtxtHandle*) -> SECURITY_STATUS {
        return RevertToSelf() ? SEC_E_OK : SEC_E_NO_IMPERSONATION;
    };
    s_table.FreeContextBuffer = FreeContextBuffer;
    return &s_table;
}

void SetLifespan(LONGLONG i_nSeconds) {
    s_nLifespan = i_nSeconds;
}
void SetLevel(int i_nLevel) {
    s_nLevel = i_nLevel;
}

}  // extern "C"
