#include "handlers/kerberos/ErrorText.h"

#include <string>

#include "handlers/SystemErrorText.h"
#include "harrow/text/SWCharStringConv.h"

namespace morwen {

using Harrowlib201::SWCharStringConv;

SWCharString GetErrorText(SECURITY_STATUS i_nStatus) {
    if (i_nStatus == SEC_E_OK) {
        return {};
    }
    const SWCharString ssSystem = FormatSystemText(static_cast<DWORD>(i_nStatus));
    // The system ends its texts with a line break.
    const std::u16string_view words = ssSystem.view().substr(0, ssSystem.view().find_last_not_of(u" \t\r\n") + 1);
    std::u16string text = u"Error ";
    text += SWCharStringConv::ToString(static_cast<int64_t>(i_nStatus)).view();
    text += u": ";
    text += words.empty() ? std::u16string_view(u"???") : words;
    return SWCharString(text);
}

}  // namespace morwen
