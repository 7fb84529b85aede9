// The kernel calls: pseudo handles, the last error, error texts, dates.
#include "platform/linux/seam/LinuxKernel.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <new>
#include <string>

#include "harrow/text/SWCharStringConv.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/seam/StatusTexts.h"

namespace morwen {

namespace {

// What went wrong in this case if the thread remembers it, and what the code means.
std::string TextFor(DWORD i_nCode) {
    std::string text(FailureText(static_cast<SECURITY_STATUS>(i_nCode)));
    const std::string_view meaning = StatusText(i_nCode);
    if (!text.empty() && !meaning.empty()) {
        text += text.ends_with('.') ? " " : ". ";
    }
    return text.append(meaning);
}

}  // namespace

HANDLE LinuxKernel::GetCurrentThread() noexcept {
    return CurrentThreadHandle();
}

HANDLE LinuxKernel::GetCurrentProcess() noexcept {
    return CurrentProcessHandle();
}

DWORD LinuxKernel::GetCurrentProcessId() noexcept {
    return static_cast<DWORD>(getpid());
}

DWORD LinuxKernel::GetLastError() noexcept {
    return t_nLastError;
}

DWORD LinuxKernel::FormatMessageW(DWORD i_nFlags, const void*, DWORD i_nMessageId, DWORD, WCHAR* o_pszBuffer,
                                  DWORD i_nSize, void*) noexcept {
    const auto fail = [](DWORD i_nError) {
        t_nLastError = i_nError;
        return DWORD{0};
    };
    if ((i_nFlags & FORMAT_MESSAGE_FROM_SYSTEM) == 0 || o_pszBuffer == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const bool bAllocate = (i_nFlags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    if (bAllocate) {
        *reinterpret_cast<WCHAR**>(o_pszBuffer) = nullptr;
    }
    try {
        const std::string text = TextFor(i_nMessageId);
        if (text.empty()) {
            return fail(ERROR_MR_MID_NOT_FOUND);
        }
        const Harrowlib201::SWCharString ssText = Harrowlib201::SWCharStringConv::FromUtf8(text);
        const size_t nUnits = ssText.length() + 1;
        if (bAllocate) {
            // The size is the least to allocate then.
            auto* const pszText = static_cast<WCHAR*>(std::calloc(std::max<size_t>(nUnits, i_nSize), sizeof(WCHAR)));
            if (pszText == nullptr) {
                return fail(ERROR_NOT_ENOUGH_MEMORY);
            }
            *reinterpret_cast<WCHAR**>(o_pszBuffer) = pszText;
            o_pszBuffer = pszText;
        } else if (nUnits > i_nSize) {
            return fail(ERROR_INSUFFICIENT_BUFFER);
        }
        std::copy_n(ssText.c_str(), nUnits, o_pszBuffer);
        return static_cast<DWORD>(nUnits - 1);
    } catch (const std::bad_alloc&) {
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
}

HLOCAL LinuxKernel::LocalFree(HLOCAL i_pvMemory) noexcept {
    std::free(i_pvMemory);
    return nullptr;
}

BOOL LinuxKernel::FileTimeToSystemTime(const FILETIME* i_pFileTime, SYSTEMTIME* o_pSystemTime) noexcept {
    using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;
    constexpr std::chrono::sys_days kEpoch = std::chrono::year(1601) / 1 / 1;

    if (i_pFileTime == nullptr || o_pSystemTime == nullptr || i_pFileTime->dwHighDateTime > 0x7FFFFFFFU) {
        return FailWithLastError(ERROR_INVALID_PARAMETER);
    }
    const Ticks ticks(static_cast<int64_t>(uint64_t{i_pFileTime->dwHighDateTime} << 32U | i_pFileTime->dwLowDateTime));
    const auto days = std::chrono::floor<std::chrono::days>(ticks);
    const std::chrono::sys_days date = kEpoch + days;
    const std::chrono::year_month_day calendar(date);
    const std::chrono::hh_mm_ss<std::chrono::milliseconds> clock(
        std::chrono::floor<std::chrono::milliseconds>(ticks - days));
    const auto field = [](auto i_nValue) { return static_cast<uint16_t>(i_nValue); };
    *o_pSystemTime = {field(static_cast<int>(calendar.year())),
                      field(static_cast<unsigned>(calendar.month())),
                      field(std::chrono::weekday(date).c_encoding()),
                      field(static_cast<unsigned>(calendar.day())),
                      field(clock.hours().count()),
                      field(clock.minutes().count()),
                      field(clock.seconds().count()),
                      field(clock.subseconds().count())};
    return TRUE;
}

}  // namespace morwen
