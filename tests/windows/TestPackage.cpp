// A security package for tests, under the name "Kerberos": the system's Kerberos, and what Wine's lacks: lifespan,
// impersonation and reverting. The system's own package is offered as "Kerberos of the system" meanwhile.
//
// Wine loads it twice over: as an authentication package, which hands the system's package through under the other
// name, and as a security support provider, whose functions are the system's for that name.
#include <atomic>

#include "platform/OsTypes.h"
// ntsecpkg.h must follow.
#include <ntsecapi.h>
#include <ntsecpkg.h>

namespace {

wchar_t s_szInnerName[] = L"Kerberos of the system";
char s_szInnerAnsi[] = "Kerberos of the system";
LSA_STRING s_innerName = {sizeof(s_szInnerAnsi) - 1, sizeof(s_szInnerAnsi), s_szInnerAnsi};
wchar_t s_szName[] = L"Kerberos";
SECPKG_FUNCTION_TABLE s_inner;   // the system's, but for its name
SECPKG_FUNCTION_TABLE s_system;  // the system's

std::atomic<LONGLONG> s_nLifespan{3600};  // seconds, of every context

template <class Function>
Function* FromSystem(const char* i_pszName) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<intptr_t>(GetProcAddress(LoadLibraryW(L"kerberos.dll"), i_pszName)));
}

NTSTATUS NTAPI GetInfo(SecPkgInfoW* o_pInfo) {
    const NTSTATUS nStatus = s_system.GetInfo(o_pInfo);
    o_pInfo->Name = s_szInnerName;
    return nStatus;
}

NTSTATUS NTAPI InitializePackage(ULONG i_nId, LSA_DISPATCH_TABLE* i_pDispatch, LSA_STRING* i_pDatabase,
                                 LSA_STRING* i_pConfidentiality, LSA_STRING** o_ppName) {
    const NTSTATUS nStatus = s_system.InitializePackage(i_nId, i_pDispatch, i_pDatabase, i_pConfidentiality, o_ppName);
    *o_ppName = &s_innerName;
    return nStatus;
}

SECURITY_STATUS SEC_ENTRY Enumerate(ULONG* o_pnPackages, SecPkgInfoW** o_ppInfo) {
    *o_pnPackages = 1;
    *o_ppInfo = static_cast<SecPkgInfoW*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(SecPkgInfoW)));
    **o_ppInfo = {0, 1, 9, 12000, s_szName, s_szName};
    return SEC_E_OK;
}

// The upper word of a handle names the package, by which Wine finds the functions.
std::atomic<ULONG_PTR> s_nInnerPackage{0};

SecHandle Inner(const SecHandle* i_pHandle) {
    return {i_pHandle->dwLower, s_nInnerPackage};
}

SECURITY_STATUS SEC_ENTRY Acquire(SEC_WCHAR* i_pszPrincipal, SEC_WCHAR*, ULONG i_nUse, void* i_pvLogonId,
                                  void* i_pvAuthData, SEC_GET_KEY_FN i_pfnGetKey, void* i_pvArgument,
                                  CredHandle* o_pCredential, TimeStamp* o_pExpiry) {
    const SECURITY_STATUS nStatus =
        AcquireCredentialsHandleW(i_pszPrincipal, s_szInnerName, i_nUse, i_pvLogonId, i_pvAuthData, i_pfnGetKey,
                                  i_pvArgument, o_pCredential, o_pExpiry);
    s_nInnerPackage = nStatus == SEC_E_OK ? o_pCredential->dwUpper : s_nInnerPackage.load();
    return nStatus;
}

template <SECURITY_STATUS(SEC_ENTRY* kFunction)(SecHandle*)>
SECURITY_STATUS SEC_ENTRY Release(SecHandle* i_pHandle) {
    SecHandle inner = Inner(i_pHandle);
    return kFunction(&inner);
}

SECURITY_STATUS SEC_ENTRY Initialize(CredHandle* i_pCredential, CtxtHandle* i_pContext, SEC_WCHAR* i_pszTarget,
                                     ULONG i_nFlags, ULONG, ULONG i_nRepresentation, SecBufferDesc* i_pInput, ULONG,
                                     CtxtHandle* o_pContext, SecBufferDesc* o_pOutput, ULONG* o_pnFlags,
                                     TimeStamp* o_pExpiry) {
    SecHandle credential = Inner(i_pCredential);
    SecHandle context = i_pContext != nullptr ? Inner(i_pContext) : SecHandle();
    return InitializeSecurityContextW(&credential, i_pContext != nullptr ? &context : nullptr, i_pszTarget, i_nFlags, 0,
                                      i_nRepresentation, i_pInput, 0, o_pContext, o_pOutput, o_pnFlags, o_pExpiry);
}

SECURITY_STATUS SEC_ENTRY Accept(CredHandle* i_pCredential, CtxtHandle* i_pContext, SecBufferDesc* i_pInput,
                                 ULONG i_nFlags, ULONG i_nRepresentation, CtxtHandle* o_pContext,
                                 SecBufferDesc* o_pOutput, ULONG* o_pnFlags, TimeStamp* o_pExpiry) {
    SecHandle credential = Inner(i_pCredential);
    SecHandle context = i_pContext != nullptr ? Inner(i_pContext) : SecHandle();
    return AcceptSecurityContext(&credential, i_pContext != nullptr ? &context : nullptr, i_pInput, i_nFlags,
                                 i_nRepresentation, o_pContext, o_pOutput, o_pnFlags, o_pExpiry);
}

// Local time, as Windows reports it.
SECURITY_STATUS SEC_ENTRY Query(CtxtHandle*, ULONG i_nAttribute, void* o_pvBuffer) {
    if (i_nAttribute != SECPKG_ATTR_LIFESPAN) {
        return SEC_E_UNSUPPORTED_FUNCTION;
    }
    ULARGE_INTEGER now;
    FILETIME utc, local;
    GetSystemTimeAsFileTime(&utc);
    now.u = {utc.dwLowDateTime, utc.dwHighDateTime};
    now.QuadPart += static_cast<ULONGLONG>(s_nLifespan * 10000000);
    utc = {now.LowPart, now.HighPart};
    FileTimeToLocalFileTime(&utc, &local);
    *static_cast<SecPkgContext_Lifespan*>(o_pvBuffer) = {
        {}, {.LowPart = local.dwLowDateTime, .HighPart = static_cast<LONG>(local.dwHighDateTime)}};
    return SEC_E_OK;
}

SECURITY_STATUS SEC_ENTRY Impersonate(CtxtHandle*) {
    return ImpersonateSelf(SecurityImpersonation) ? SEC_E_OK : SEC_E_NO_IMPERSONATION;
}

SECURITY_STATUS SEC_ENTRY Revert(CtxtHandle*) {
    return RevertToSelf() ? SEC_E_OK : SEC_E_NO_IMPERSONATION;
}

}  // namespace

extern "C" {

NTSTATUS NTAPI SpLsaModeInitialize(ULONG i_nVersion, ULONG* o_pnVersion, SECPKG_FUNCTION_TABLE** o_ppTable,
                                   ULONG* o_pnTables) {
    const NTSTATUS nStatus = FromSystem<decltype(SpLsaModeInitialize)>("SpLsaModeInitialize")(i_nVersion, o_pnVersion,
                                                                                              o_ppTable, o_pnTables);
    s_inner = s_system = **o_ppTable;
    s_inner.InitializePackage = InitializePackage;
    s_inner.GetInfo = GetInfo;
    *o_ppTable = &s_inner;
    return nStatus;
}

NTSTATUS NTAPI SpUserModeInitialize(ULONG i_nVersion, ULONG* o_pnVersion, SECPKG_USER_FUNCTION_TABLE** o_ppTable,
                                    ULONG* o_pnTables) {
    return FromSystem<decltype(SpUserModeInitialize)>("SpUserModeInitialize")(i_nVersion, o_pnVersion, o_ppTable,
                                                                              o_pnTables);
}

SecurityFunctionTableW* SEC_ENTRY MakeTable() {
    static SecurityFunctionTableW s_table{};
    s_table.dwVersion = 1;
    s_table.EnumerateSecurityPackagesW = Enumerate;
    s_table.AcquireCredentialsHandleW = Acquire;
    s_table.FreeCredentialsHandle = Release<FreeCredentialsHandle>;
    s_table.InitializeSecurityContextW = Initialize;
    s_table.AcceptSecurityContext = Accept;
    s_table.DeleteSecurityContext = Release<DeleteSecurityContext>;
    s_table.QueryContextAttributesW = Query;
    s_table.ImpersonateSecurityContext = Impersonate;
    s_table.RevertSecurityContext = Revert;
    s_table.FreeContextBuffer = FreeContextBuffer;
    return &s_table;
}

void SetLifespan(LONGLONG i_nSeconds) {
    s_nLifespan = i_nSeconds;
}

}  // extern "C"
