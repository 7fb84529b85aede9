// Traces and assertions: what the plug-in says to the sink that the host has set in the log hub.
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <string>
#include <string_view>

#include "harrow/text/SWCharString.h"
#include "morwen/harrow_log.h"

namespace Harrowlib201 {

// The hub's word of wanted kinds, looked up once.
inline uint32_t* const g_pWantedKinds = HarrowLogWantedKinds();

inline bool IsWanted(uint32_t i_nKind) noexcept {
    return (std::atomic_ref<uint32_t>(*g_pWantedKinds).load(std::memory_order_relaxed) & i_nKind) != 0;
}

inline bool ShouldTrace() noexcept {
    return IsWanted(HARROW_LOG_TRACE);
}
inline bool ShouldAssert() noexcept {
    return IsWanted(HARROW_LOG_ASSERTION);
}

// What replaces "%1", "%2" or "%3" in a trace.
class STraceParameter {
public:
    STraceParameter(std::u16string_view i_text);
    STraceParameter(const SWCharString& i_ssText) : STraceParameter(i_ssText.view()) {}
    STraceParameter(const char* i_pszUtf8) : m_text(i_pszUtf8) {}
    STraceParameter(std::string i_utf8) : m_text(std::move(i_utf8)) {}
    STraceParameter(int32_t i_nValue) : m_text(std::to_string(i_nValue)) {}
    STraceParameter(uint32_t i_nValue) : m_text(std::to_string(i_nValue)) {}
    STraceParameter(int64_t i_nValue) : m_text(std::to_string(i_nValue)) {}
    STraceParameter(uint64_t i_nValue) : m_text(std::to_string(i_nValue)) {}

    const std::string& Text() const noexcept { return m_text; }

private:
    std::string m_text;  // UTF-8
};

// Gives the text, with its parameters put in, to the sink. To be called through S_TRACE, which asks ShouldTrace first.
void STrace(const char* i_pszFile, int i_nLine, const char* i_pszText,
            std::initializer_list<STraceParameter> i_parameters) noexcept;

// The same, and what stands behind the first " -- " is from now on the thread's reason in the hub, whoever listens. To
// be called through S_REASON.
void SReason(const char* i_pszFile, int i_nLine, const char* i_pszText,
             std::initializer_list<STraceParameter> i_parameters) noexcept;

// Why the call under way has failed, in words that do not stand in a trace; empty forgets the call before.
inline void SetReason(const char* i_pszReason) noexcept {
    HarrowLogSetReason(i_pszReason);
}

// Reports a failed assertion: the expression, the message or both (either may be null). Execution goes on.
void SAssert(const char* i_pszFile, int i_nLine, const char* i_pszExpression, const char* i_pszMessage) noexcept;

}  // namespace Harrowlib201

// S_TRACE(text, parameter...): the parameters are not even built when nobody listens, and one that cannot be built for
// lack of memory costs the message and nothing else.
#define S_TRACE(text, ...)                                                         \
    do {                                                                           \
        if (::Harrowlib201::ShouldTrace()) {                                       \
            try {                                                                  \
                ::Harrowlib201::STrace(__FILE__, __LINE__, (text), {__VA_ARGS__}); \
            } catch (const std::bad_alloc&) {                                      \
            }                                                                      \
        }                                                                          \
    } while (false)

// S_REASON(text, parameter...): the trace of what a call fails with. Its parameters are always built, because hosts
// that listen to nothing are told too.
#define S_REASON(text, ...)                                                     \
    do {                                                                        \
        try {                                                                   \
            ::Harrowlib201::SReason(__FILE__, __LINE__, (text), {__VA_ARGS__}); \
        } catch (const std::bad_alloc&) {                                       \
        }                                                                       \
    } while (false)

// S_ASSERT(condition): reports the condition's text when it does not hold, and goes on.
#define S_ASSERT(condition)                                                   \
    do {                                                                      \
        if (!(condition) && ::Harrowlib201::ShouldAssert()) {                 \
            ::Harrowlib201::SAssert(__FILE__, __LINE__, #condition, nullptr); \
        }                                                                     \
    } while (false)

// The same with a message of its own.
#define S_ASSERT_MSG(condition, message)                                        \
    do {                                                                        \
        if (!(condition) && ::Harrowlib201::ShouldAssert()) {                   \
            ::Harrowlib201::SAssert(__FILE__, __LINE__, #condition, (message)); \
        }                                                                       \
    } while (false)

// The same with a text in place of the condition's own.
#define S_ASSERT_TEXT(condition, text)                                    \
    do {                                                                  \
        if (!(condition) && ::Harrowlib201::ShouldAssert()) {             \
            ::Harrowlib201::SAssert(__FILE__, __LINE__, (text), nullptr); \
        }                                                                 \
    } while (false)

// A failed assertion whose text is the message alone.
#define S_FAIL(message)                                                      \
    do {                                                                     \
        if (::Harrowlib201::ShouldAssert()) {                                \
            ::Harrowlib201::SAssert(__FILE__, __LINE__, nullptr, (message)); \
        }                                                                    \
    } while (false)
