// The one exception type of the plug-in.
#pragma once

#include <cstdint>
#include <vector>

#include "harrow/text/SWCharString.h"

namespace morwen {

using Harrowlib201::SWCharString;

// Identifiers of the messages; the texts stand in MessageTable.cpp.
enum MessageId : uint32_t {
    kMsgParameterType = 42038,
    kMsgGeneral = 42254,
    kMsgOutOfMemoryRecord = 42256,
    kMsgOutOfMemory = 42502,
    kMsgNotInitialized = 47300,
    kMsgUserNameFormat = 47702,
    kMsgLogonDeniedClient = 50054,
    kMsgNoContext = 61211,
    kMsgImpersonation = 61212,
    kMsgNoPackage = 61213,
    kMsgServerPrincipal = 61214,
    kMsgCredentials = 61215,  // and a logon that the accepting side denies
    kMsgUnknownProvider = 61216,
    kMsgContextUnusable = 61217
};

// What went wrong: the code that the export returns, and the message that explains it.
class SSOException {
public:
    explicit SSOException(uint32_t i_nCode, uint32_t i_nMessageId = kMsgGeneral) noexcept
        : m_nCode(i_nCode), m_nMessageId(i_nMessageId) {}
    SSOException(uint32_t i_nCode, uint32_t i_nMessageId, std::vector<SWCharString> i_substitutions)
        : m_nCode(i_nCode), m_nMessageId(i_nMessageId), m_substitutions(std::move(i_substitutions)) {}
    SSOException(const SSOException&) = default;
    SSOException& operator=(const SSOException&) = delete;
    virtual ~SSOException() = default;

    // Prepared at start-up, because there is no memory for it when it is needed. Throw a copy.
    static const SSOException& OutOfMemory() noexcept;

    uint32_t GetCode() const noexcept { return m_nCode; }
    uint32_t GetMessageId() const noexcept { return m_nMessageId; }
    const std::vector<SWCharString>& GetSubstitutions() const noexcept { return m_substitutions; }

private:
    uint32_t m_nCode;
    uint32_t m_nMessageId;
    std::vector<SWCharString> m_substitutions;  // up to three
};

}  // namespace morwen
