// The plug-in as this program uses it.
#include "tools/doctor/logon/Library.h"

namespace morwen::doctor {

Library::Library(bool i_bKeepContexts) {
    m_package.Use(SSO_PROVIDER_SSPI, host::Parameters().Set(SSO_KEY_CACHE_CONTEXTS, i_bKeepContexts));
}

std::string WordsOf(const host::Error& i_error) {
    // The message sends readers here, so it is of no use here.
    std::string words = i_error.Reason().empty() ? i_error.what() : i_error.Reason();
    words += " (code " + std::to_string(i_error.Code());
    return words + (i_error.MessageId() != 0 ? ", message " + std::to_string(i_error.MessageId()) : "") + ")";
}

}  // namespace morwen::doctor
