// One owner type for each kind of object that libkrb5 hands out.
#pragma once

#include <krb5/krb5.h>

#include <utility>

namespace morwen {

// Owns a libkrb5 object that is released with a context: Release(context, object). The context must outlive the owner.
template <class T, auto Release>
class Krb5Owner {
public:
    explicit Krb5Owner(krb5_context i_context) noexcept : m_context(i_context) {}
    Krb5Owner(krb5_context i_context, T i_object) noexcept : m_context(i_context), m_object(i_object) {}
    Krb5Owner(Krb5Owner&& io_other) noexcept
        : m_context(io_other.m_context), m_object(std::exchange(io_other.m_object, T{})) {}
    Krb5Owner& operator=(Krb5Owner&&) = delete;
    Krb5Owner(const Krb5Owner&) = delete;
    Krb5Owner& operator=(const Krb5Owner&) = delete;
    ~Krb5Owner() { Reset(); }

    T get() const noexcept { return m_object; }
    T operator->() const noexcept { return m_object; }
    explicit operator bool() const noexcept { return m_object != T{}; }
    // For a call that writes the object through a pointer.
    T* Receive() noexcept {
        Reset();
        return &m_object;
    }
    T Detach() noexcept { return std::exchange(m_object, T{}); }
    void Reset() noexcept {
        if (m_object != T{}) {
            static_cast<void>(Release(m_context, std::exchange(m_object, T{})));
        }
    }

private:
    krb5_context m_context;
    T m_object{};
};

using Krb5Principal = Krb5Owner<krb5_principal, krb5_free_principal>;
using Krb5Credentials = Krb5Owner<krb5_creds*, krb5_free_creds>;
using Krb5Ticket = Krb5Owner<krb5_ticket*, krb5_free_ticket>;
using Krb5Authenticator = Krb5Owner<krb5_authenticator*, krb5_free_authenticator>;
using Krb5AuthContext = Krb5Owner<krb5_auth_context, krb5_auth_con_free>;
using Krb5CacheOwner = Krb5Owner<krb5_ccache, krb5_cc_close>;
using Krb5MemoryCache = Krb5Owner<krb5_ccache, krb5_cc_destroy>;
using Krb5Keytab = Krb5Owner<krb5_keytab, krb5_kt_close>;
using Krb5Text = Krb5Owner<char*, krb5_free_unparsed_name>;
using Krb5String = Krb5Owner<char*, krb5_free_string>;
using Krb5ErrorRecord = Krb5Owner<krb5_error*, krb5_free_error>;
using Krb5ReplyPart = Krb5Owner<krb5_ap_rep_enc_part*, krb5_free_ap_rep_enc_part>;
using Krb5InitOptions = Krb5Owner<krb5_get_init_creds_opt*, krb5_get_init_creds_opt_free>;

// Owns the bytes behind a krb5_data that a call has filled.
class Krb5Data {
public:
    explicit Krb5Data(krb5_context i_context) noexcept : m_context(i_context) {}
    Krb5Data(const Krb5Data&) = delete;
    Krb5Data& operator=(const Krb5Data&) = delete;
    ~Krb5Data() { krb5_free_data_contents(m_context, &m_data); }

    krb5_data* Receive() noexcept {
        krb5_free_data_contents(m_context, &m_data);
        m_data = krb5_data{};
        return &m_data;
    }
    const krb5_data& operator*() const noexcept { return m_data; }
    const krb5_data* operator->() const noexcept { return &m_data; }

private:
    krb5_context m_context;
    krb5_data m_data{};
};

}  // namespace morwen
