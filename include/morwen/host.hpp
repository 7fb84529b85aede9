// host.hpp: the plug-in's functions for C++ hosts, as objects that give back what they hold. Header only, C++17.
//
// 1. Text is UTF-8 (std::string, std::string_view) on this side. Text that is not UTF-8, or has a zero in it,
//    throws std::invalid_argument; a unit without sense in a text of the plug-in becomes U+FFFD.
// 2. A failed call throws morwen::host::Error with the code, the reason and the plug-in's own words. Nothing else is
//    thrown but std::bad_alloc, and std::logic_error for misuse.
// 3. A Package must live as long as every other object. One object is used by one thread at a time, an Impersonation by
//    the thread that made it.
#ifndef MORWEN_HOST_HPP
#define MORWEN_HOST_HPP

#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "morwen/harrow_log.h"
#include "morwen/morwenplugin.h"

namespace morwen::host {

using Text = std::basic_string<SSOChar>;
using Token = std::vector<std::uint8_t>;

// UTF-8 to UTF-16; throws std::invalid_argument, for a zero too: the text would end there and mean another one.
inline Text Wide(std::string_view i_text) {
    const auto refuse = [] { throw std::invalid_argument("morwen::host: a text is not UTF-8, or has a zero in it"); };
    Text wide;
    wide.reserve(i_text.size());
    for (std::size_t i = 0; i < i_text.size();) {
        const auto nLead = static_cast<unsigned char>(i_text[i++]);
        const int nFollowing = nLead < 0x80 ? 0 : nLead < 0xE0 ? 1 : nLead < 0xF0 ? 2 : 3;
        if (nLead == 0 || (nLead >= 0x80 && nLead < 0xC2) || nLead > 0xF4) {
            refuse();
        }
        std::uint32_t nPoint = nFollowing == 0 ? nLead : nLead & (0x3Fu >> nFollowing);
        for (int n = 0; n < nFollowing; ++n) {
            const auto nNext = i < i_text.size() ? static_cast<unsigned char>(i_text[i++]) : 0u;
            if ((nNext & 0xC0u) != 0x80) {
                refuse();
            }
            nPoint = nPoint << 6 | (nNext & 0x3Fu);
        }
        const std::uint32_t nLeast = nFollowing == 2 ? 0x800 : nFollowing == 3 ? 0x10000 : 0;
        if (nPoint < nLeast || nPoint > 0x10FFFF || (nPoint >= 0xD800 && nPoint < 0xE000)) {
            refuse();
        }
        if (nPoint >= 0x10000) {
            wide += static_cast<SSOChar>(0xD7C0 + (nPoint >> 10));
            nPoint = 0xDC00 + (nPoint & 0x3FF);
        }
        wide += static_cast<SSOChar>(nPoint);
    }
    return wide;
}

// UTF-16 to UTF-8; null is the empty text.
inline std::string Narrow(const SSOChar* i_pszText) {
    std::string text;
    while (i_pszText != nullptr && *i_pszText != 0) {
        std::uint32_t nPoint = static_cast<std::uint16_t>(*i_pszText++);
        const std::uint32_t nNext = static_cast<std::uint16_t>(*i_pszText);
        if (nPoint >= 0xD800 && nPoint < 0xDC00 && nNext >= 0xDC00 && nNext < 0xE000) {
            nPoint = 0x10000 + ((nPoint & 0x3FF) << 10) + (nNext & 0x3FF);
            ++i_pszText;
        } else if (nPoint >= 0xD800 && nPoint < 0xE000) {
            nPoint = 0xFFFD;
        }
        const int nFollowing = nPoint < 0x80 ? 0 : nPoint < 0x800 ? 1 : nPoint < 0x10000 ? 2 : 3;
        constexpr unsigned char kLeads[] = {0, 0xC0, 0xE0, 0xF0};
        text += static_cast<char>(kLeads[nFollowing] | (nPoint >> (6 * nFollowing)));
        for (int n = nFollowing; n-- > 0;) {
            text += static_cast<char>(0x80 | (nPoint >> (6 * n) & 0x3F));
        }
    }
    return text;
}

namespace detail {

// What the plug-in hands out, with the function that takes it back.
template <class T, std::uint32_t (*kRelease)(T*)>
class Handed {
public:
    Handed() = default;
    Handed(Handed&& i_other) noexcept : m_p(std::exchange(i_other.m_p, nullptr)) {}
    Handed& operator=(Handed&& i_other) noexcept {
        std::swap(m_p, i_other.m_p);
        return *this;
    }
    ~Handed() {
        if (m_p != nullptr) {
            kRelease(m_p);
        }
    }
    T* get() const noexcept { return m_p; }
    // For an out parameter of an object that holds nothing.
    T** Out() noexcept { return &m_p; }

private:
    T* m_p = nullptr;
};
using HandedText = Handed<SSOChar, SSOFreeString>;
using HandedBuffer = Handed<void, SSOFreeBuffer>;
using HandedChain = Handed<ParasSeq, SSOFreeParameters>;
using HandedError = Handed<SSOError, SSOFreeError>;

inline Token TokenOf(const HandedBuffer& i_buffer, SSOLength i_nLength) {
    const auto* const pBytes = static_cast<const std::uint8_t*>(i_buffer.get());
    return pBytes != nullptr ? Token(pBytes, pBytes + i_nLength) : Token();
}

inline SSOLength LengthOf(const Token& i_token) {
    if (i_token.size() > 0xFFFFFFFFu) {
        throw std::invalid_argument("morwen::host: a token is too long");
    }
    return static_cast<SSOLength>(i_token.size());
}

// The message of a record, with the record's texts in their places.
inline std::string Words(const SSOError& i_record) {
    HandedText text;
    if (i_record.message == nullptr && SSOGetMessageContent(i_record.messageId, text.Out()) != SSO_OK) {
        return "message " + std::to_string(i_record.messageId);
    }
    const std::string message = Narrow(i_record.message != nullptr ? i_record.message : text.get());
    std::string words;
    for (std::size_t i = 0; i < message.size() && message[i] != '\r' && message[i] != '\n'; ++i) {
        if (message[i] != '%' || i + 1 == message.size() || message[i + 1] < '1' || message[i + 1] > '3') {
            words += message[i];
            continue;
        }
        const SSOSubstitution* pText = i_record.substitutions;
        for (int nSkip = message[++i] - '1'; nSkip > 0 && pText != nullptr; --nSkip) {
            pText = pText->next;
        }
        words += Narrow(pText != nullptr ? pText->data : nullptr);
    }
    return words;
}

}  // namespace detail

// A failed call. what() is UTF-8, for the people who look after the program: function, code, reason and message.
class Error : public std::runtime_error {
public:
    // Takes the calling thread's record and reason. i_pszWhat: which function failed.
    static Error OfThread(const char* i_pszWhat, std::uint32_t i_nCode) {
        detail::HandedError record;
        const std::string reason = HarrowLogReason();
        std::string words = std::string(i_pszWhat) + ": code " + std::to_string(i_nCode);
        words += reason.empty() ? reason : ": " + reason;
        if (SSOGetError(i_nCode, record.Out()) != SSO_OK) {
            return {words, reason, i_nCode, 0};
        }
        return {words + (reason.empty() ? ": " : " -- ") + detail::Words(*record.get()), reason, i_nCode,
                record.get()->messageId};
    }

    // Why, as harrow_log.h says it: which ticket, key, file, account or KDC. Empty when the message says it all.
    // Nothing for the peer.
    const std::string& Reason() const noexcept { return *m_pReason; }

    std::uint32_t Code() const noexcept { return m_nCode; }  // enum SSOCode
    // 0 for a failure that leaves no record.
    std::uint32_t MessageId() const noexcept { return m_nMessageId; }
    // The security package refused the logon; any other code is a fault of the surroundings or of the call.
    bool IsDenied() const noexcept { return m_nCode == SSO_DENIED; }

private:
    Error(const std::string& i_words, const std::string& i_reason, std::uint32_t i_nCode, std::uint32_t i_nMessageId)
        : std::runtime_error(i_words),
          m_pReason(std::make_shared<const std::string>(i_reason)),
          m_nCode(i_nCode),
          m_nMessageId(i_nMessageId) {}

    std::shared_ptr<const std::string> m_pReason;  // shared, because copying an exception must not throw
    std::uint32_t m_nCode;
    std::uint32_t m_nMessageId;
};

// Throws unless the code is a success.
inline std::uint32_t Check(const char* i_pszWhat, std::uint32_t i_nCode) {
    if (i_nCode >= SSO_DENIED) {
        throw Error::OfThread(i_pszWhat, i_nCode);
    }
    return i_nCode;
}

// Settings of a provider or parameters of a login; each Set replaces an earlier value of its key.
class Parameters {
public:
    Parameters& Set(std::string_view i_key, std::string_view i_value) {
        return Add(i_key, SSO_PARAMETER_STRING, Wide(i_value));
    }
    Parameters& Set(std::string_view i_key, const char* i_pszValue) { return Set(i_key, std::string_view(i_pszValue)); }
    Parameters& Set(std::string_view i_key, bool i_bValue) {
        return Add(i_key, SSO_PARAMETER_BOOL, Wide(i_bValue ? "1" : "0"));
    }
    Parameters& Set(std::string_view i_key, std::int64_t i_nValue) {
        return Add(i_key, SSO_PARAMETER_LONG, Wide(std::to_string(i_nValue)));
    }

    // The chain for one call; it points into this object. Null when there is none.
    const ParasSeq* Chain() {
        ParasSeq* pNext = nullptr;
        for (std::size_t i = m_elements.size(); i-- > 0;) {
            Element& element = m_elements[i];
            element.m_record = {element.m_key.c_str(), element.m_nType, element.m_value.c_str(), pNext};
            pNext = &element.m_record;
        }
        return pNext;
    }

private:
    struct Element {
        Text m_key;
        std::uint32_t m_nType;
        Text m_value;
        ParasSeq m_record;
    };
    Parameters& Add(std::string_view i_key, std::uint32_t i_nType, Text i_value) {
        m_elements.push_back({Wide(i_key), i_nType, std::move(i_value), {}});  // of equal keys the later counts
        return *this;
    }

    std::vector<Element> m_elements;
};

// The package, started.
class Package {
public:
    Package() { Check("SSOInitPackage", SSOInitPackage()); }
    ~Package() { SSOTermPackage(); }
    Package(const Package&) = delete;
    Package& operator=(const Package&) = delete;

    // Makes a provider ready, SSO_PROVIDER_SSPI or SSO_PROVIDER_THREADTOKEN. Every host calls this before its first
    // login.
    void Use(std::string_view i_provider, Parameters i_settings = {}) {
        Check("SSOInitProvider", SSOInitProvider(Wide(i_provider).c_str(), i_settings.Chain()));
    }
};

// The thread acts as the user of a context until this object goes, on whichever way out. A thread that cannot be made
// itself again must not go on: the process ends (std::terminate). Call Revert first to hear of it as an Error.
class Impersonation {
public:
    explicit Impersonation(std::string_view i_contextKey) : m_key(Wide(i_contextKey)) {
        Check("SSOImpersonate", SSOImpersonate(m_key.c_str()));
    }
    ~Impersonation() {
        if (!m_bReverted && SSORevert(m_key.c_str()) != SSO_OK) {
            std::terminate();
        }
    }
    Impersonation(const Impersonation&) = delete;
    Impersonation& operator=(const Impersonation&) = delete;

    // Throws Error while the thread is still the user; may then be tried again.
    void Revert() {
        if (!m_bReverted) {
            Check("SSORevert", SSORevert(m_key.c_str()));
            m_bReverted = true;
        }
    }

private:
    Text m_key;
    bool m_bReverted = false;
};

// A kept context; lets it go at the end. Moved, not copied; empty when the plug-in keeps none.
class Context {
public:
    Context() = default;
    explicit Context(std::string i_key) : m_key(std::move(i_key)) {}
    Context(Context&& i_other) noexcept : m_key(std::exchange(i_other.m_key, {})) {}
    Context& operator=(Context&& i_other) noexcept {
        std::swap(m_key, i_other.m_key);
        return *this;
    }
    ~Context() {
        if (!m_key.empty()) {
            try {
                SSOReleaseSecurityContext(Wide(m_key).c_str());
            } catch (const std::bad_alloc&) {
                // The context stays until it expires.
            }
        }
    }

    // Keeps the identity that the calling thread has.
    static Context OfThread() {
        detail::HandedText key;
        Check("SSOAcquireCurrentSecurityContext",
              SSOAcquireCurrentSecurityContext(Wide(SSO_PROVIDER_THREADTOKEN).c_str(), nullptr, key.Out()));
        return Context(Narrow(key.get()));
    }

    explicit operator bool() const noexcept { return !m_key.empty(); }
    const std::string& Key() const noexcept { return m_key; }
    // There is a context and it has not expired.
    bool IsAlive() const { return SSOLookupSecurityContext(Wide(m_key).c_str()) == SSO_OK; }
    // Another context that has this key is let go; decimal digits may be another one's, now or later.
    void Rename(std::string i_key) {
        Check("SSOAssociateSecurityContext", SSOAssociateSecurityContext(Wide(m_key).c_str(), Wide(i_key).c_str()));
        m_key = std::move(i_key);
    }
    // The context must stay, under this key, until the thread is itself again.
    [[nodiscard]] Impersonation Impersonate() const& { return Impersonation(m_key); }
    Impersonation Impersonate() const&& = delete;
    // The key is the caller's from now on, and so is letting the context go.
    std::string Detach() noexcept { return std::exchange(m_key, {}); }

private:
    std::string m_key;
};

// The client's half. Send Token(), pass each answer to Continue, until IsDone(): then the server is authenticated.
// One that is given up before stays in memory until the package ends.
class ClientLogin {
public:
    // i_login holds SSO_KEY_SPN, and SSO_KEY_NEGOTIATE or SSO_KEY_CHANNEL_BINDINGS where they are wanted. An empty user
    // name means the logged-on user's own tickets, else it is DOMAIN\user. The password's copy is overwritten before
    // this returns.
    explicit ClientLogin(Parameters i_login, std::string_view i_user = {}, std::string_view i_password = {}) {
        Wiped password(Wide(i_password));
        detail::HandedBuffer token;
        SSOLength nLength = 0;
        m_nCode = Check("SSOStartLogin",
                        SSOStartLogin(Wide(i_user).c_str(), password.m_text.c_str(), Wide(SSO_PROVIDER_SSPI).c_str(),
                                      i_login.Chain(), m_key.Out(), token.Out(), &nLength));
        m_token = detail::TokenOf(token, nLength);
    }
    explicit ClientLogin(std::string_view i_spn) : ClientLogin(Parameters().Set(SSO_KEY_SPN, i_spn)) {}

    bool IsDone() const noexcept { return m_nCode == SSO_OK; }
    // Empty: there is nothing to send. With SSO_KEY_NEGOTIATE there may be a token after the end too.
    const Token& NextToken() const noexcept { return m_token; }
    // Throws Error for an answer that is refused; a better one may still follow.
    void Continue(const Token& i_answer) {
        detail::HandedBuffer token;
        SSOLength nLength = 0;
        const std::uint32_t nCode =
            Check("SSOContinueLogin",
                  SSOContinueLogin(m_key.get(), i_answer.data(), detail::LengthOf(i_answer), token.Out(), &nLength));
        m_token = detail::TokenOf(token, nLength);
        m_nCode = nCode;
    }

private:
    struct Wiped {
        explicit Wiped(Text i_text) : m_text(std::move(i_text)) {}
        ~Wiped() {
            volatile SSOChar* const pText = m_text.data();
            for (std::size_t i = 0; i < m_text.size(); ++i) {
                pText[i] = 0;
            }
        }
        Wiped(const Wiped&) = delete;
        Wiped& operator=(const Wiped&) = delete;
        Text m_text;
    };

    std::uint32_t m_nCode = SSO_CONTINUE;
    detail::HandedText m_key;
    Token m_token;
};

// Who has logged on.
struct LogonInformation {
    std::string m_userSid;
    std::vector<std::string> m_groupSids;
};

// The server's half. Pass each token of the client to Accept and send what it returns; when the client sends nothing
// more, Close. One that is given up in between stays in memory until the package ends.
class ServerLogin {
public:
    // What to send to the client; empty when there is nothing. Throws Error for a token that is refused, as an empty
    // one is, and std::logic_error after Close: another login is another object's.
    Token Accept(const Token& i_token) {
        return Step(i_token.empty() ? static_cast<const void*>("") : i_token.data(), detail::LengthOf(i_token));
    }
    // The user is who the ticket says: Information and TakeContext have something to give. Throws Error when the login
    // is not complete, and std::logic_error when no token has been accepted.
    void Close() {
        if (!m_bDone && m_key.get() == nullptr) {
            throw std::logic_error("morwen::host: no token has been accepted");
        }
        if (!m_bDone) {
            Step(nullptr, 0);  // as the plug-in knows that the client is done
        }
    }

    bool IsDone() const noexcept { return m_bDone; }
    const LogonInformation& Information() const noexcept { return m_information; }
    // The kept context; empty when the provider keeps none.
    Context TakeContext() noexcept { return std::move(m_context); }

private:
    Token Step(const void* i_pvToken, SSOLength i_nTokenLength) {
        if (m_bDone) {
            throw std::logic_error("morwen::host: the login is complete");
        }
        detail::HandedBuffer reply;
        SSOLength nLength = 0;
        detail::HandedChain information;
        detail::HandedText key;
        const std::uint32_t nCode = Check(
            "SSOAcceptLogin", SSOAcceptLogin(Wide(SSO_PROVIDER_SSPI).c_str(), m_key.get(), i_pvToken, i_nTokenLength,
                                             reply.Out(), &nLength, information.Out(), key.Out()));
        if (nCode == SSO_ACCEPTED) {
            std::string contextKey = Narrow(key.get());
            m_context = contextKey == SSO_KEY_TEXT_CACHING_OFF ? Context() : Context(std::move(contextKey));
            Read(information.get());
            m_bDone = true;
        } else {
            m_key = std::move(key);
        }
        return detail::TokenOf(reply, nLength);
    }

    void Read(const ParasSeq* i_pChain) {
        for (; i_pChain != nullptr; i_pChain = i_pChain->next) {
            const std::string key = Narrow(i_pChain->key);
            const std::string value = Narrow(i_pChain->value);
            if (key == SSO_KEY_USER_SID) {
                m_information.m_userSid = value;
            } else if (key == SSO_KEY_GROUP_SIDS) {
                for (std::size_t nBegin = 0, nEnd = 0; (nEnd = value.find(';', nBegin)) != std::string::npos;
                     nBegin = nEnd + 1) {
                    m_information.m_groupSids.push_back(value.substr(nBegin, nEnd - nBegin));
                }
            }
        }
    }

    detail::HandedText m_key;
    bool m_bDone = false;
    LogonInformation m_information;
    Context m_context;
};

}  // namespace morwen::host

#endif
