#include "platform/linux/keys/AcceptorKeys.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <utility>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/HeldMap.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/log/STrace.h"
#include "platform/linux/keys/SourceLook.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

// More keytabs than a process uses.
constexpr size_t kMostKeytabs = 16;

struct HeldKeys {
    SourceLook m_look;
    std::shared_ptr<const AcceptorKeys> m_pKeys;
};

// Nothing is looked at or read under the lock: whoever accepts a logon needs it.
class HeldKeytabs {
public:
    std::shared_ptr<const AcceptorKeys> Get(krb5_context i_context, const std::string& i_name) {
        if (auto pKeys = LookedAtNow(i_name)) {
            return pKeys;
        }
        // Before the content: a change between the two is seen at the next look.
        const SourceLook look(PathOfKrb5Name(i_name));
        if (auto pKeys = Unchanged(i_name, look)) {
            return pKeys;
        }
        auto pKeys = std::make_shared<const AcceptorKeys>(i_context, i_name);
        std::shared_ptr<const AcceptorKeys> pReplaced;  // goes after the lock, as all of them
        const Harrowlib201::CS_Locker locker(m_section);
        if (HeldKeys* const pHeld = m_keytabs.Find(i_name)) {
            if (pHeld->m_look.GoOnWith(look)) {
                return pHeld->m_pKeys;  // another thread has read the same: what goes by the keys is asked for once
            }
            pReplaced = pHeld->m_pKeys;
        }
        return m_keytabs.Hold(i_name, {look, std::move(pKeys)}).m_pKeys;
    }

    void Clear() {
        const Harrowlib201::CS_Locker locker(m_section);
        m_keytabs.Clear();
    }

private:
    std::shared_ptr<const AcceptorKeys> LookedAtNow(const std::string& i_name) {
        const Harrowlib201::CS_Locker locker(m_section);
        const HeldKeys* const pHeld = m_keytabs.Find(i_name);
        return pHeld != nullptr && pHeld->m_look.IsOfThisTick() ? pHeld->m_pKeys : nullptr;
    }

    // What has changed is forgotten at once: should it be unreadable now, nobody gets the old keys.
    std::shared_ptr<const AcceptorKeys> Unchanged(const std::string& i_name, const SourceLook& i_look) {
        std::shared_ptr<const AcceptorKeys> pChanged;  // goes after the lock
        const Harrowlib201::CS_Locker locker(m_section);
        HeldKeys* const pHeld = m_keytabs.Find(i_name);
        if (pHeld == nullptr) {
            return nullptr;
        }
        if (pHeld->m_look.GoOnWith(i_look)) {
            return pHeld->m_pKeys;
        }
        pChanged = std::move(pHeld->m_pKeys);
        m_keytabs.Forget(i_name);
        return nullptr;
    }

    Harrowlib201::CS_Wrapper m_section;
    Harrowlib201::HeldMap<std::string, HeldKeys, kMostKeytabs> m_keytabs S_GUARDED_BY(m_section);
};

HeldKeytabs& Held() {
    static Harrowlib201::NeverDestroyed<HeldKeytabs> s_held;
    return *s_held;
}

// A walk over a keytab, which must end before the keytab is closed.
struct Cursor {
    krb5_context m_context;
    krb5_keytab m_keytab;
    krb5_kt_cursor m_cursor{};

    ~Cursor() {
        if (m_cursor != nullptr) {
            static_cast<void>(krb5_kt_end_seq_get(m_context, m_keytab, &m_cursor));
        }
    }
};

// Keys do not stay in the process when the library leaves it.
const Harrowlib201::AtUnload s_clear([] { AcceptorKeys::ReleaseHeld(); });

// No two keytabs of the process get one name, not even from two copies of this library.
std::string NewMemoryName() {
    static std::atomic<uint64_t> s_nLast{0};
    return "MEMORY:morwen-" + std::to_string(reinterpret_cast<uintptr_t>(&s_nLast)) + "-" + std::to_string(++s_nLast);
}

std::string WithKind(std::string i_name) {
    if (i_name.starts_with('/')) {
        i_name.insert(0, "FILE:");
    }
    return i_name;
}

[[noreturn]] void FailUnreadable(krb5_context i_context, krb5_error_code i_nCode, const std::string& i_name) {
    Fail(i_nCode == ENOMEM ? SEC_E_INSUFFICIENT_MEMORY : SEC_E_NO_CREDENTIALS,
         "the service's keytab " + i_name + " cannot be read: " + ErrorWords(i_context, i_nCode));
}

}  // namespace

std::shared_ptr<const AcceptorKeys> AcceptorKeys::Default(krb5_context i_context) {
    // Before anything else, as libkrb5 does, which takes longer over it.
    if (const char* const pszNamed = secure_getenv("KRB5_KTNAME")) {
        return Named(i_context, pszNamed);
    }
    std::array<char, 4096>
        aName;  // NOLINT(cppcoreguidelines-pro-type-member-init): clearing it would cost more than the call
    if (const krb5_error_code nCode = krb5_kt_default_name(i_context, aName.data(), int{aName.size()}); nCode != 0) {
        FailUnreadable(i_context, nCode, "(the default keytab)");
    }
    return Named(i_context, aName.data());
}

std::shared_ptr<const AcceptorKeys> AcceptorKeys::Named(krb5_context i_context, std::string i_name) {
    return Held().Get(i_context, WithKind(std::move(i_name)));
}

void AcceptorKeys::ReleaseHeld() noexcept {
    Held().Clear();
}

AcceptorKeys::AcceptorKeys(krb5_context i_context, std::string i_name) : m_name(std::move(i_name)) {
    try {
        ReadEntries(i_context);
        OrderByName();
        Publish(i_context);
    } catch (...) {
        FreeEntries();
        throw;
    }
    S_TRACE("ssoplugin: AcceptorKeys::AcceptorKeys() -- Read %1 keys from %2.", uint64_t{m_entries.size()}, m_name);
}

AcceptorKeys::~AcceptorKeys() {
    FreeEntries();
}

void AcceptorKeys::ReadEntries(krb5_context i_context) {
    Krb5Keytab source(i_context);
    krb5_error_code nCode = krb5_kt_resolve(i_context, m_name.c_str(), source.Receive());
    Cursor cursor{i_context, source.get()};
    if (nCode == 0) {
        nCode = krb5_kt_start_seq_get(i_context, source.get(), &cursor.m_cursor);
    }
    if (nCode != 0) {
        FailUnreadable(i_context, nCode, m_name);
    }
    do {
        m_entries.emplace_back();
        nCode = krb5_kt_next_entry(i_context, source.get(), &m_entries.back(), &cursor.m_cursor);
    } while (nCode == 0);
    m_entries.pop_back();  // the one that was not filled
    if (nCode != KRB5_KT_END) {
        FailUnreadable(i_context, nCode, m_name);
    }
    if (m_entries.empty()) {
        Fail(SEC_E_NO_CREDENTIALS, "the service's keytab " + m_name + " holds no key");
    }
}

void AcceptorKeys::OrderByName() {
    for (const krb5_keytab_entry& entry : m_entries) {
        const auto name = TicketService::Of(*entry.principal);
        if (!name) {
            continue;  // no ticket's name is so long
        }
        auto& alike = m_services[name->PlaceInAnyCase()];
        auto it = std::find_if(alike.begin(), alike.end(),
                               [&](const Service& i_other) { return name->Is(*i_other.m_pName, false); });
        if (it == alike.end()) {
            it = alike.insert(it, {entry.principal, {}});
        }
        it->m_entries.push_back(&entry);
    }
}

void AcceptorKeys::Publish(krb5_context i_context) {
    krb5_keytab keytab = nullptr;
    krb5_error_code nCode = krb5_kt_resolve(i_context, NewMemoryName().c_str(), &keytab);
    m_keytab = KeptKeytab(keytab);
    for (size_t i = 0; nCode == 0 && i < m_entries.size(); ++i) {
        nCode = krb5_kt_add_entry(i_context, keytab, &m_entries[i]);
    }
    if (nCode != 0) {
        FailKrb5(i_context, nCode, "holding the keys of " + m_name + " in memory");
    }
}

void AcceptorKeys::FreeEntries() noexcept {
    if (const auto lent = Krb5LentContext::ForReleasing(); lent.get() != nullptr) {
        for (krb5_keytab_entry& entry : m_entries) {
            krb5_free_keytab_entry_contents(lent.get(), &entry);
        }
    }
}

const AcceptorKeys::Service* AcceptorKeys::Find(const TicketService& i_service) const {
    const auto alike = m_services.find(i_service.PlaceInAnyCase());
    if (alike == m_services.end()) {
        return nullptr;
    }
    for (const bool bInAnyCase : {false, true}) {
        for (const Service& service : alike->second) {
            if (i_service.Is(*service.m_pName, bInAnyCase)) {
                return &service;
            }
        }
    }
    return nullptr;
}

bool AcceptorKeys::AreOfOneAccount(const TicketService& i_left, const TicketService& i_right) const {
    const Service* const pLeft = Find(i_left);
    const Service* const pRight = Find(i_right);
    return pLeft != nullptr && pRight != nullptr &&
           std::any_of(pLeft->m_entries.begin(), pLeft->m_entries.end(), [&](const krb5_keytab_entry* i_pLeft) {
               return std::any_of(pRight->m_entries.begin(), pRight->m_entries.end(),
                                  [&](const krb5_keytab_entry* i_pRight) { return HaveSameKey(*i_pLeft, *i_pRight); });
           });
}

bool AcceptorKeys::HaveSameKey(const krb5_keytab_entry& i_left, const krb5_keytab_entry& i_right) noexcept {
    return i_left.key.enctype == i_right.key.enctype && i_left.key.length == i_right.key.length &&
           std::equal(i_left.key.contents, i_left.key.contents + i_left.key.length, i_right.key.contents);
}

}  // namespace morwen
