#include "handlers/SystemErrorText.h"

#include <string>

#include "harrow/log/STrace.h"
#include "harrow/text/SWCharStringConv.h"
#include "platform/Platform.h"

namespace morwen {

using Harrowlib201::SWCharStringConv;

namespace {

constexpr DWORD kSizeHint = 1024;
constexpr DWORD kDefaultLanguage = 0x400;

// Gives the text back to the system.
class SystemText {
public:
    explicit SystemText(DWORD i_nCode) {
        Platform::Kernel().FormatMessageW(
            FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
            i_nCode, kDefaultLanguage, reinterpret_cast<WCHAR*>(&m_pszText), kSizeHint, nullptr);
    }
    ~SystemText() {
        if (m_pszText != nullptr) {
            Platform::Kernel().LocalFree(m_pszText);
        }
    }
    SystemText(const SystemText&) = delete;
    SystemText& operator=(const SystemText&) = delete;

    SWCharString Text() const { return SWCharString::FromUnits(m_pszText); }

private:
    WCHAR* m_pszText = nullptr;
};

// The system ends its texts with a line break.
std::u16string_view WithoutLineBreak(const SWCharString& i_ssText) {
    return i_ssText.view().substr(0, i_ssText.view().find_last_not_of(u" \t\r\n") + 1);
}

}  // namespace

SWCharString FormatSystemText(DWORD i_nCode) {
    return SystemText(i_nCode).Text();
}

SWCharString GetLastErrorText() {
    const SWCharString ssSystem = FormatSystemText(Platform::Kernel().GetLastError());
    const std::u16string_view words = WithoutLineBreak(ssSystem);
    return SWCharString(words.empty() ? std::u16string_view(u"Unknown error.") : words);
}

SWCharString GetErrorText(SECURITY_STATUS i_nStatus) {
    if (i_nStatus == SEC_E_OK) {
        return {};
    }
    const SWCharString ssSystem = FormatSystemText(static_cast<DWORD>(i_nStatus));
    const std::u16string_view words = WithoutLineBreak(ssSystem);
    std::u16string text = u"Error ";
    text += SWCharStringConv::ToString(static_cast<int64_t>(i_nStatus)).view();
    text += u": ";
    text += words.empty() ? std::u16string_view(u"???") : words;
    return SWCharString(text);
}

void NoteReason(SECURITY_STATUS i_nStatus) noexcept {
    try {
        const SWCharString ssSystem = FormatSystemText(static_cast<DWORD>(i_nStatus));
        const std::string words = SWCharStringConv::ToUtf8(WithoutLineBreak(ssSystem));
        Harrowlib201::SetReason(words.empty() ? ("status " + std::to_string(i_nStatus)).c_str() : words.c_str());
    } catch (const std::bad_alloc&) {
        Harrowlib201::SetReason("memory is short");
    }
}

}  // namespace morwen
