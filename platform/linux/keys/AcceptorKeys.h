// The service's keys, held in memory.
#pragma once

#include <krb5/krb5.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/linux/contexts/Krb5Kept.h"
#include "platform/linux/keys/TicketService.h"
#include "platform/linux/pac/KeptPacs.h"

namespace morwen {

// The content of one keytab as it was when it was read, never changed after: libkrb5 may walk a MEMORY keytab only
// while nobody changes it. A changed file becomes a new object. Any method on any thread.
class AcceptorKeys {
public:
    // The keys behind the default keytab, shared by all who ask until the file changes. Throws SspiFailure
    // (SEC_E_NO_CREDENTIALS, the text naming the keytab) when there is none, or none that can be read, or no key in it.
    static std::shared_ptr<const AcceptorKeys> Default(krb5_context i_context);
    // The same of another keytab, by its name.
    static std::shared_ptr<const AcceptorKeys> Named(krb5_context i_context, std::string i_name);
    // Lets go of all that are shared; the memory of those that nobody uses is wiped.
    static void ReleaseHeld() noexcept;

    // Reads the keytab; throws as Default does.
    AcceptorKeys(krb5_context i_context, std::string i_name);
    ~AcceptorKeys();
    AcceptorKeys(const AcceptorKeys&) = delete;
    AcceptorKeys& operator=(const AcceptorKeys&) = delete;

    // The keytab as the administrator knows it, such as FILE:/etc/krb5.keytab.
    const std::string& Name() const noexcept { return m_name; }
    // Holds Entries and nothing else.
    krb5_keytab Keytab() const noexcept { return m_keytab.get(); }
    const std::vector<krb5_keytab_entry>& Entries() const noexcept { return m_entries; }
    struct Service {
        krb5_const_principal m_pName;  // as it is in the keytab
        std::vector<const krb5_keytab_entry*> m_entries;
    };
    // That with the very same name, or with the same in capitals and small letters, as directories give tickets for any
    // spelling; found at once, however many there are. Null when the keytab has no key for the service. Throws
    // std::bad_alloc.
    const Service* Find(const TicketService& i_service) const;
    // Whether both have the same key: a directory gives an account one under all its names.
    bool AreOfOneAccount(const TicketService& i_left, const TicketService& i_right) const;
    static bool HaveSameKey(const krb5_keytab_entry& i_left, const krb5_keytab_entry& i_right) noexcept;
    // What has been found in tickets that Entries have opened. It goes with them.
    KeptPacs& Pacs() const noexcept { return m_pacs; }

private:
    void ReadEntries(krb5_context i_context);
    void OrderByName();
    void Publish(krb5_context i_context);
    void FreeEntries() noexcept;

    const std::string m_name;
    std::vector<krb5_keytab_entry> m_entries;
    std::unordered_map<std::string, std::vector<Service>> m_services;  // by TicketService::PlaceInAnyCase
    KeptKeytab m_keytab;
    mutable KeptPacs m_pacs;
};

}  // namespace morwen
