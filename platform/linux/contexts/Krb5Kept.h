// Owners for libkrb5 objects that outlive the context they were made with.
#pragma once

#include <krb5/krb5.h>

#include <type_traits>
#include <utility>

#include "platform/linux/contexts/Krb5ContextPool.h"

namespace morwen {

// Releases the object with whatever context the pool lends then: these objects are plain data or counted entries of
// tables of the process, and belong to no context (checked with the address sanitizer). Without memory for one they
// stay. Names and tickets are released without one, because libkrb5 needs none for them.
template <class T, auto Release>
class Krb5Kept {
public:
    Krb5Kept() noexcept = default;
    explicit Krb5Kept(T i_object) noexcept : m_object(i_object) {}
    Krb5Kept(Krb5Kept&& io_other) noexcept : m_object(std::exchange(io_other.m_object, T{})) {}
    Krb5Kept& operator=(Krb5Kept&& io_other) noexcept {
        std::swap(m_object, io_other.m_object);
        return *this;
    }
    Krb5Kept(const Krb5Kept&) = delete;
    Krb5Kept& operator=(const Krb5Kept&) = delete;
    ~Krb5Kept() {
        if (m_object == T{}) {
            return;
        }
        if constexpr (std::is_same_v<T, krb5_principal> || std::is_same_v<T, krb5_creds*>) {
            Release(nullptr, m_object);
        } else if (const auto lent = Krb5LentContext::ForReleasing(); lent.get() != nullptr) {
            static_cast<void>(Release(lent.get(), m_object));
        }
    }

    T get() const noexcept { return m_object; }
    // For who has a context to release it with.
    T Detach() noexcept { return std::exchange(m_object, T{}); }
    explicit operator bool() const noexcept { return m_object != T{}; }

private:
    T m_object{};
};

using KeptPrincipal = Krb5Kept<krb5_principal, krb5_free_principal>;
using KeptCredentials = Krb5Kept<krb5_creds*, krb5_free_creds>;
using KeptAuthContext = Krb5Kept<krb5_auth_context, krb5_auth_con_free>;
using KeptKeytab = Krb5Kept<krb5_keytab, krb5_kt_close>;
using KeptMemoryCache = Krb5Kept<krb5_ccache, krb5_cc_destroy>;

}  // namespace morwen
