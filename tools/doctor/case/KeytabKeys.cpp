// The entries of a keytab.
#include "tools/doctor/case/KeytabKeys.h"

#include <algorithm>
#include <array>

#include "tools/doctor/case/EncTypes.h"

namespace morwen::doctor {

KeytabKeys::~KeytabKeys() {
    for (krb5_keytab_entry& entry : m_entries) {
        krb5_free_keytab_entry_contents(m_context, &entry);
    }
}

krb5_error_code KeytabKeys::Read(const std::string& i_name) {
    krb5_kt_cursor pCursor = nullptr;
    krb5_error_code nCode = krb5_kt_resolve(m_context, i_name.c_str(), m_keytab.Receive());
    if (nCode == 0) {
        nCode = krb5_kt_start_seq_get(m_context, m_keytab.get(), &pCursor);
    }
    if (nCode != 0) {
        return nCode;
    }
    krb5_keytab_entry entry{};
    while ((nCode = krb5_kt_next_entry(m_context, m_keytab.get(), &entry, &pCursor)) == 0) {
        m_entries.push_back(entry);
    }
    krb5_kt_end_seq_get(m_context, m_keytab.get(), &pCursor);
    return nCode == KRB5_KT_END ? 0 : nCode;
}

std::vector<const krb5_keytab_entry*> KeytabKeys::Of(krb5_const_principal i_principal) const {
    std::vector<const krb5_keytab_entry*> entries;
    for (const int nFlags : {0, KRB5_PRINCIPAL_COMPARE_CASEFOLD}) {
        for (const krb5_keytab_entry& entry : m_entries) {
            if (i_principal == nullptr ||
                krb5_principal_compare_flags(m_context, entry.principal, i_principal, nFlags) != 0) {
                entries.push_back(&entry);
            }
        }
        if (!entries.empty()) {
            break;
        }
    }
    return entries;
}

std::vector<krb5_principal> KeytabKeys::Principals() const {
    std::vector<krb5_principal> principals;
    for (const krb5_keytab_entry& entry : m_entries) {
        const auto same = [&](krb5_principal i_p) {
            return krb5_principal_compare(m_context, i_p, entry.principal) != 0;
        };
        if (std::none_of(principals.begin(), principals.end(), same)) {
            principals.push_back(entry.principal);
        }
    }
    return principals;
}

std::string KeytabKeys::Text(const std::vector<const krb5_keytab_entry*>& i_entries) const {
    std::string text;
    for (const krb5_keytab_entry* const pEntry : i_entries) {
        Enumerate(text, std::to_string(pEntry->vno) + " " + TypeText(pEntry->key.enctype));
    }
    return text;
}

std::string DefaultKeytab(krb5_context i_context) {
    std::array<char, 4096> aName{};
    return krb5_kt_default_name(i_context, aName.data(), int{aName.size()}) == 0 ? aName.data() : "";
}

}  // namespace morwen::doctor
