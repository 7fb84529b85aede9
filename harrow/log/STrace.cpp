#include "harrow/log/STrace.h"

#include <memory>
#include <string_view>
#include <utility>

#include "harrow/locks/LocksHeld.h"
#include "harrow/text/HideControls.h"
#include "harrow/text/SWCharStringConv.h"

namespace Harrowlib201 {

namespace {

struct PutOff {
    uint32_t m_nKind;
    const char* m_pszFile;
    int m_nLine;
    std::string m_message;
    std::unique_ptr<PutOff> m_pNext;
};

// Plain pointers: a thread_local with a destructor would keep the library loaded. Empty whenever the thread holds no
// lock.
struct PutOffMessages {
    PutOff* m_pFirst;
    PutOff* m_pLast;
};
constinit thread_local PutOffMessages t_putOff{};

void WritePutOff() noexcept {
    // Taken first: what is said meanwhile is a list of its own.
    std::unique_ptr<PutOff> pMessage(std::exchange(t_putOff, {}).m_pFirst);
    while (pMessage) {
        HarrowLogWrite(pMessage->m_nKind, pMessage->m_pszFile, pMessage->m_nLine, pMessage->m_message.c_str());
        pMessage = std::move(pMessage->m_pNext);
    }
}

// To the host's sink, which runs under no lock of ours: while the thread holds one, the message waits. Names in it may
// come from strangers. Throws std::bad_alloc.
void Write(uint32_t i_nKind, const char* i_pszFile, int i_nLine, std::string i_message) {
    HideControls(i_message);
    if (t_locksHeld.m_nLocks == 0) {
        HarrowLogWrite(i_nKind, i_pszFile, i_nLine, i_message.c_str());
        return;
    }
    auto pMessage = std::make_unique<PutOff>(PutOff{i_nKind, i_pszFile, i_nLine, std::move(i_message), nullptr});
    PutOff* const pLast = pMessage.get();
    if (t_putOff.m_pLast != nullptr) {
        t_putOff.m_pLast->m_pNext = std::move(pMessage);
    } else {
        t_putOff.m_pFirst = pMessage.release();
    }
    t_putOff.m_pLast = pLast;
    t_locksHeld.m_pfnPutOff = WritePutOff;
}

// A message that there is no memory for, in short if that can be done at once.
void WriteShort(uint32_t i_nKind, const char* i_pszFile, int i_nLine, const char* i_pszText) noexcept {
    if (t_locksHeld.m_nLocks == 0) {
        HarrowLogWrite(i_nKind, i_pszFile, i_nLine, i_pszText);
    }
}

// The text with its parameters in their places. Throws std::bad_alloc.
std::string Filled(const char* i_pszText, std::initializer_list<STraceParameter> i_parameters) {
    std::string message;
    for (const char* p = i_pszText; *p != '\0'; ++p) {
        const size_t nIndex = static_cast<size_t>(p[1] - '1');
        if (*p == '%' && p[1] >= '1' && nIndex < i_parameters.size()) {
            message += (i_parameters.begin() + nIndex)->Text();
            ++p;
        } else {
            message += *p;
        }
    }
    return message;
}

}  // namespace

STraceParameter::STraceParameter(std::u16string_view i_text) : m_text(SWCharStringConv::ToUtf8(i_text)) {}

void STrace(const char* i_pszFile, int i_nLine, const char* i_pszText,
            std::initializer_list<STraceParameter> i_parameters) noexcept {
    try {
        Write(HARROW_LOG_TRACE, i_pszFile, i_nLine, Filled(i_pszText, i_parameters));
    } catch (const std::bad_alloc&) {
        WriteShort(HARROW_LOG_TRACE, i_pszFile, i_nLine, i_pszText);
    }
}

void SReason(const char* i_pszFile, int i_nLine, const char* i_pszText,
             std::initializer_list<STraceParameter> i_parameters) noexcept {
    try {
        const std::string message = Filled(i_pszText, i_parameters);
        const size_t nSpeaker = message.find(" -- ");
        SetReason(message.c_str() + (nSpeaker != std::string::npos ? nSpeaker + 4 : 0));
        if (ShouldTrace()) {
            Write(HARROW_LOG_TRACE, i_pszFile, i_nLine, message);
        }
    } catch (const std::bad_alloc&) {
        WriteShort(HARROW_LOG_TRACE, i_pszFile, i_nLine, i_pszText);
    }
}

void SAssert(const char* i_pszFile, int i_nLine, const char* i_pszExpression, const char* i_pszMessage) noexcept {
    const std::string_view first = i_pszMessage != nullptr ? i_pszMessage : i_pszExpression;
    try {
        std::string message(first);
        if (i_pszExpression != nullptr && i_pszMessage != nullptr) {
            message.append(" (").append(i_pszExpression).append(")");
        }
        Write(HARROW_LOG_ASSERTION, i_pszFile, i_nLine, std::move(message));
    } catch (const std::bad_alloc&) {
        WriteShort(HARROW_LOG_ASSERTION, i_pszFile, i_nLine, first.data());
    }
}

}  // namespace Harrowlib201
