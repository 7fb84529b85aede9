// The entries of a keytab.
#pragma once

#include <string>
#include <vector>

#include "tools/doctor/case/Case.h"

namespace morwen::doctor {

class KeytabKeys {
public:
    explicit KeytabKeys(krb5_context i_context) : m_context(i_context), m_keytab(i_context) {}
    ~KeytabKeys();
    KeytabKeys(const KeytabKeys&) = delete;
    KeytabKeys& operator=(const KeytabKeys&) = delete;

    // libkrb5's code.
    krb5_error_code Read(const std::string& i_name);

    krb5_keytab Keytab() const noexcept { return m_keytab.get(); }
    bool IsEmpty() const noexcept { return m_entries.empty(); }
    // The entries of a principal; of all principals for null.
    std::vector<const krb5_keytab_entry*> Of(krb5_const_principal i_principal) const;
    // "2 aes256-cts-hmac-sha1-96, 2 aes128-cts-hmac-sha1-96", versions and types; never a key.
    std::string Text(const std::vector<const krb5_keytab_entry*>& i_entries) const;
    // The principals, each once.
    std::vector<krb5_principal> Principals() const;

private:
    krb5_context m_context;
    Krb5Keytab m_keytab;
    std::vector<krb5_keytab_entry> m_entries;
};

// The name of the keytab that a service takes.
std::string DefaultKeytab(krb5_context i_context);

}  // namespace morwen::doctor
