// The plug-in as this program uses it.
#include "tools/doctor/logon/Library.h"

namespace morwen::doctor {

Library::Library(bool i_bKeepContexts) {
    m_package.Use(SSO_PROVIDER_SSPI, host::Parameters().Set(SSO_KEY_CACHE_CONTEXTS, i_bKeepContexts));
}

std::string WordsOf(const host::Error& i_error) {
    const std::string words = i_error.what();
    return i_error.MessageId() != 0 ? words + " (message " + std::to_string(i_error.MessageId()) + ")" : words;
}

}  // namespace morwen::doctor
