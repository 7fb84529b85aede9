#include "handlers/SystemErrorText.h"

#include "platform/Platform.h"

namespace morwen {

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

}  // namespace

SWCharString FormatSystemText(DWORD i_nCode) {
    return SystemText(i_nCode).Text();
}

SWCharString GetLastErrorText() {
    const SWCharString ssText = FormatSystemText(Platform::Kernel().GetLastError());
    return ssText.isEmpty() ? SWCharString(u"Unknown error.") : ssText;
}

}  // namespace morwen
