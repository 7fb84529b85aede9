// The types and constants of the SSPI and access-token call shapes, for platforms whose system headers lack them.
//
// Values are those that Windows documents, so that statuses in traces and error texts mean the same on both platforms.
// Only what the plug-in uses stands here.
#pragma once

#include <cstddef>
#include <cstdint>

using BOOL = int;
using BYTE = uint8_t;
using DWORD = uint32_t;
using ULONG = uint32_t;
using LONG = int32_t;
using WCHAR = char16_t;
using SEC_WCHAR = char16_t;
using HANDLE = void*;
using HLOCAL = void*;
using PSID = void*;
using SECURITY_STATUS = int32_t;

// libkrb5's header makes macros of these two; whichever comes first, the names mean 0 and 1.
#undef FALSE
#undef TRUE
inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// ---- SSPI ----

struct SecHandle {
    uintptr_t dwLower;
    uintptr_t dwUpper;
};
using CredHandle = SecHandle;
using CtxtHandle = SecHandle;
using PCredHandle = CredHandle*;
using PCtxtHandle = CtxtHandle*;

// A 64-bit count of 100 ns since 1601; SSPI reports it as local time.
struct TimeStamp {
    uint32_t LowPart;
    int32_t HighPart;
};
using PTimeStamp = TimeStamp*;

struct SecBuffer {
    uint32_t cbBuffer;
    uint32_t BufferType;
    void* pvBuffer;
};
using PSecBuffer = SecBuffer*;

// Offsets count from the record's beginning.
struct SEC_CHANNEL_BINDINGS {
    uint32_t dwInitiatorAddrType;
    uint32_t cbInitiatorLength;
    uint32_t dwInitiatorOffset;
    uint32_t dwAcceptorAddrType;
    uint32_t cbAcceptorLength;
    uint32_t dwAcceptorOffset;
    uint32_t cbApplicationDataLength;
    uint32_t dwApplicationDataOffset;
};

struct SecBufferDesc {
    uint32_t ulVersion;
    uint32_t cBuffers;
    PSecBuffer pBuffers;
};
using PSecBufferDesc = SecBufferDesc*;

struct SecPkgInfoW {
    uint32_t fCapabilities;
    uint16_t wVersion;
    uint16_t wRPCID;
    uint32_t cbMaxToken;
    SEC_WCHAR* Name;
    SEC_WCHAR* Comment;
};
using PSecPkgInfoW = SecPkgInfoW*;

struct SEC_WINNT_AUTH_IDENTITY_W {
    char16_t* User;
    uint32_t UserLength;
    char16_t* Domain;
    uint32_t DomainLength;
    char16_t* Password;
    uint32_t PasswordLength;
    uint32_t Flags;
};

struct SecPkgContext_Lifespan {
    TimeStamp tsStart;
    TimeStamp tsExpiry;
};

// The name goes back through FreeContextBuffer.
struct SecPkgContext_NamesW {
    SEC_WCHAR* sUserName;
};

using SEC_GET_KEY_FN = void (*)(void*, void*, uint32_t, void**, SECURITY_STATUS*);

inline constexpr uint32_t SECBUFFER_VERSION = 0;
inline constexpr uint32_t SECBUFFER_DATA = 1;
inline constexpr uint32_t SECBUFFER_TOKEN = 2;
inline constexpr uint32_t SECBUFFER_CHANNEL_BINDINGS = 14;
inline constexpr uint32_t SECPKG_CRED_INBOUND = 1;
inline constexpr uint32_t SECPKG_CRED_OUTBOUND = 2;
inline constexpr uint32_t SECPKG_CRED_BOTH = 3;
inline constexpr uint32_t SECPKG_ATTR_NAMES = 1;
inline constexpr uint32_t SECPKG_ATTR_LIFESPAN = 2;
inline constexpr uint32_t SEC_WINNT_AUTH_IDENTITY_UNICODE = 2;
inline constexpr uint32_t SECURITY_NATIVE_DREP = 0x10;
inline constexpr uint32_t ISC_REQ_DELEGATE = 0x1;
inline constexpr uint32_t ISC_REQ_MUTUAL_AUTH = 0x2;
inline constexpr uint32_t ISC_REQ_INTEGRITY = 0x10000;
inline constexpr uint32_t ISC_RET_DELEGATE = 0x1;
inline constexpr uint32_t ISC_RET_MUTUAL_AUTH = 0x2;
inline constexpr uint32_t ISC_RET_INTEGRITY = 0x10000;
inline constexpr uint32_t ASC_REQ_MUTUAL_AUTH = 0x2;
inline constexpr uint32_t ASC_REQ_INTEGRITY = 0x20000;
inline constexpr uint32_t ASC_REQ_ALLOW_MISSING_BINDINGS = 0x10000000;
inline constexpr uint32_t ASC_RET_DELEGATE = 0x1;
inline constexpr uint32_t ASC_RET_MUTUAL_AUTH = 0x2;
inline constexpr uint32_t ASC_RET_INTEGRITY = 0x20000;

namespace ostypes_detail {
constexpr SECURITY_STATUS Status(uint32_t i_nBits) {
    return static_cast<SECURITY_STATUS>(i_nBits);
}
}  // namespace ostypes_detail

inline constexpr SECURITY_STATUS SEC_E_OK = 0;
inline constexpr SECURITY_STATUS SEC_I_CONTINUE_NEEDED = ostypes_detail::Status(0x00090312);
inline constexpr SECURITY_STATUS SEC_I_COMPLETE_NEEDED = ostypes_detail::Status(0x00090313);
inline constexpr SECURITY_STATUS SEC_I_COMPLETE_AND_CONTINUE = ostypes_detail::Status(0x00090314);
inline constexpr SECURITY_STATUS SEC_E_INSUFFICIENT_MEMORY = ostypes_detail::Status(0x80090300);
inline constexpr SECURITY_STATUS SEC_E_INVALID_HANDLE = ostypes_detail::Status(0x80090301);
inline constexpr SECURITY_STATUS SEC_E_UNSUPPORTED_FUNCTION = ostypes_detail::Status(0x80090302);
inline constexpr SECURITY_STATUS SEC_E_TARGET_UNKNOWN = ostypes_detail::Status(0x80090303);
inline constexpr SECURITY_STATUS SEC_E_INTERNAL_ERROR = ostypes_detail::Status(0x80090304);
inline constexpr SECURITY_STATUS SEC_E_SECPKG_NOT_FOUND = ostypes_detail::Status(0x80090305);
inline constexpr SECURITY_STATUS SEC_E_NOT_OWNER = ostypes_detail::Status(0x80090306);
inline constexpr SECURITY_STATUS SEC_E_INVALID_TOKEN = ostypes_detail::Status(0x80090308);
inline constexpr SECURITY_STATUS SEC_E_LOGON_DENIED = ostypes_detail::Status(0x8009030C);
inline constexpr SECURITY_STATUS SEC_E_UNKNOWN_CREDENTIALS = ostypes_detail::Status(0x8009030D);
inline constexpr SECURITY_STATUS SEC_E_NO_CREDENTIALS = ostypes_detail::Status(0x8009030E);
inline constexpr SECURITY_STATUS SEC_E_MESSAGE_ALTERED = ostypes_detail::Status(0x8009030F);
inline constexpr SECURITY_STATUS SEC_E_NO_AUTHENTICATING_AUTHORITY = ostypes_detail::Status(0x80090311);
inline constexpr SECURITY_STATUS SEC_E_CONTEXT_EXPIRED = ostypes_detail::Status(0x80090317);
inline constexpr SECURITY_STATUS SEC_E_BUFFER_TOO_SMALL = ostypes_detail::Status(0x80090321);
inline constexpr SECURITY_STATUS SEC_E_WRONG_PRINCIPAL = ostypes_detail::Status(0x80090322);
inline constexpr SECURITY_STATUS SEC_E_TIME_SKEW = ostypes_detail::Status(0x80090324);
inline constexpr SECURITY_STATUS SEC_E_KDC_UNKNOWN_ETYPE = ostypes_detail::Status(0x80090342);
inline constexpr SECURITY_STATUS SEC_E_BAD_BINDINGS = ostypes_detail::Status(0x80090346);
inline constexpr SECURITY_STATUS SEC_E_NO_IMPERSONATION = ostypes_detail::Status(0x8009030B);

// ---- Security identifiers and tokens ----

struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};
using PSID_IDENTIFIER_AUTHORITY = SID_IDENTIFIER_AUTHORITY*;

// As many sub-authorities follow as SubAuthorityCount says.
struct SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];
};

inline constexpr BYTE SID_REVISION = 1;
inline constexpr BYTE SID_MAX_SUB_AUTHORITIES = 15;

struct SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
};

struct TOKEN_USER {
    SID_AND_ATTRIBUTES User;
};

// As many elements follow as GroupCount says.
struct TOKEN_GROUPS {
    DWORD GroupCount;
    SID_AND_ATTRIBUTES Groups[1];
};

enum TOKEN_INFORMATION_CLASS { TokenUser = 1, TokenGroups = 2, TokenImpersonationLevel = 9 };

enum SECURITY_IMPERSONATION_LEVEL {
    SecurityAnonymous = 0,
    SecurityIdentification = 1,
    SecurityImpersonation = 2,
    SecurityDelegation = 3
};

inline constexpr DWORD TOKEN_DUPLICATE = 0x2;
inline constexpr DWORD TOKEN_IMPERSONATE = 0x4;
inline constexpr DWORD TOKEN_QUERY = 0x8;

// ---- Kernel ----

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct SYSTEMTIME {
    uint16_t wYear;
    uint16_t wMonth;
    uint16_t wDayOfWeek;
    uint16_t wDay;
    uint16_t wHour;
    uint16_t wMinute;
    uint16_t wSecond;
    uint16_t wMilliseconds;
};

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;
inline constexpr DWORD ERROR_NO_TOKEN = 1008;
inline constexpr DWORD ERROR_INVALID_SID = 1337;
