// A service that the KDC, or the keytab, does not have under the name given: which one is meant?
#include "tools/doctor/checks/UnknownService.h"

#include <netdb.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "tools/doctor/case/KeytabKeys.h"

namespace morwen::doctor {

namespace {

constexpr size_t kMostSlips = 2;
constexpr size_t kMostQuestions = 60;  // to the KDC, about one name

std::string Changed(std::string i_text, int (*i_pfnChange)(int)) {
    std::transform(i_text.begin(), i_text.end(), i_text.begin(),
                   [i_pfnChange](unsigned char i_c) { return static_cast<char>(i_pfnChange(i_c)); });
    return i_text;
}

std::string Lower(const std::string& i_text) {
    return Changed(i_text, std::tolower);
}

struct Name {
    std::string m_service;
    std::string m_host;
    std::string m_realm;

    std::string Short() const { return m_service + "/" + m_host; }
    std::string Full() const { return Short() + "@" + m_realm; }
};

// Nothing in the fields for what is no host's service.
Name NameOf(krb5_const_principal i_principal) {
    const auto text = [](const krb5_data& i_data) { return std::string(i_data.data, i_data.length); };
    return i_principal->length != 2
               ? Name{}
               : Name{text(i_principal->data[0]), text(i_principal->data[1]), text(i_principal->realm)};
}

// The other names of a host: the official one, and those on every line of the hosts file that has one of its addresses,
// for the resolver itself stops at the first.
std::set<std::string> NamesOfHost(const std::string& i_host) {
    std::set<std::string> names{Lower(i_host), Lower(i_host.substr(0, i_host.find('.')))};
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* pList = nullptr;
    if (getaddrinfo(i_host.c_str(), nullptr, &hints, &pList) != 0) {
        return names;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> pOwner(pList, freeaddrinfo);
    if (pList->ai_canonname != nullptr) {
        names.insert(Lower(pList->ai_canonname));
    }
    std::set<std::string> addresses;
    for (const addrinfo* p = pList; p != nullptr; p = p->ai_next) {
        char aText[NI_MAXHOST]{};
        if (getnameinfo(p->ai_addr, p->ai_addrlen, aText, sizeof aText, nullptr, 0, NI_NUMERICHOST) == 0) {
            addresses.insert(aText);
        }
    }
    std::ifstream hosts("/etc/hosts");
    for (std::string line; std::getline(hosts, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string address;
        words >> address;
        if (addresses.contains(address)) {
            for (std::string name; words >> name;) {
                names.insert(Lower(name));
            }
        }
    }
    return names;
}

// Other spellings, and other names of the host, under which administrators register a service.
std::vector<Name> Aliases(const Name& i_asked) {
    const std::set<std::string> hosts = NamesOfHost(i_asked.m_host);
    std::vector<Name> aliases;
    for (const std::string& service :
         {Lower(i_asked.m_service), Changed(i_asked.m_service, std::toupper), i_asked.m_service}) {
        aliases.push_back({service, i_asked.m_host, i_asked.m_realm});
        for (const std::string& host : hosts) {
            aliases.push_back({service, host, i_asked.m_realm});
        }
    }
    for (const std::string& host : hosts) {
        aliases.push_back({"host", host, i_asked.m_realm});
    }
    return aliases;
}

// The services of which this machine has seen something: keys in the keytab, tickets in the user's cache.
std::vector<Name> Seen(const Case& i_case, bool i_bKeysOnly) {
    const krb5_context context = i_case.Context();
    std::vector<Name> names;
    KeytabKeys keys(context);
    if (keys.Read(DefaultKeytab(context)) == 0) {
        for (const krb5_principal principal : keys.Principals()) {
            names.push_back(NameOf(principal));
        }
    }
    Krb5CacheOwner cache(context);
    krb5_cc_cursor pCursor = nullptr;
    if (i_bKeysOnly || krb5_cc_default(context, cache.Receive()) != 0 ||
        krb5_cc_start_seq_get(context, cache.get(), &pCursor) != 0) {
        return names;
    }
    krb5_creds ticket{};
    while (krb5_cc_next_cred(context, cache.get(), &pCursor, &ticket) == 0) {
        names.push_back(NameOf(ticket.server));
        krb5_free_cred_contents(context, &ticket);
    }
    krb5_cc_end_seq_get(context, cache.get(), &pCursor);
    return names;
}

// What a name would be without one letter, or with two neighbours exchanged: the slips that need no guessing of
// letters.
std::vector<std::string> Straightened(const std::string& i_text) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < i_text.size(); ++i) {
        if (i + 1 < i_text.size()) {
            texts.push_back(i_text);
            std::swap(texts.back()[i], texts.back()[i + 1]);
        }
        texts.push_back(i_text.substr(0, i) + i_text.substr(i + 1));
    }
    return texts;
}

// How many letters are missing, added, changed or exchanged with their neighbour between two names.
size_t SlipsBetween(const std::string& i_one, const std::string& i_other) {
    const size_t nWidth = i_other.size() + 1;
    std::vector<size_t> costs((i_one.size() + 1) * nWidth);
    const auto cost = [&](size_t i_nOne, size_t i_nOther) -> size_t& { return costs[i_nOne * nWidth + i_nOther]; };
    for (size_t i = 0; i <= i_one.size(); ++i) {
        for (size_t n = 0; n < nWidth; ++n) {
            if (i == 0 || n == 0) {
                cost(i, n) = i + n;
                continue;
            }
            const size_t nChange = i_one[i - 1] == i_other[n - 1] ? 0 : 1;
            cost(i, n) = std::min({cost(i - 1, n) + 1, cost(i, n - 1) + 1, cost(i - 1, n - 1) + nChange});
            if (i > 1 && n > 1 && i_one[i - 1] == i_other[n - 2] && i_one[i - 2] == i_other[n - 1]) {
                cost(i, n) = std::min(cost(i, n), cost(i - 2, n - 2) + 1);
            }
        }
    }
    return costs.back();
}

std::vector<Name> Slips(const Name& i_asked, const std::vector<Name>& i_seen) {
    std::vector<Name> slips;
    for (const Name& seen : i_seen) {
        if (!seen.m_service.empty() && SlipsBetween(Lower(seen.Short()), Lower(i_asked.Short())) <= kMostSlips) {
            slips.push_back(seen);
        }
    }
    if (SlipsBetween("morwen", Lower(i_asked.m_service)) <= kMostSlips) {  // what this library's guides call it
        slips.push_back({"morwen", i_asked.m_host, i_asked.m_realm});
    }
    for (const std::string& service : Straightened(i_asked.m_service)) {
        slips.push_back({service, i_asked.m_host, i_asked.m_realm});
    }
    const size_t nFirst = std::min(i_asked.m_host.find('.'), i_asked.m_host.size());
    for (const std::string& label : Straightened(i_asked.m_host.substr(0, nFirst))) {
        slips.push_back({i_asked.m_service, label + i_asked.m_host.substr(nFirst), i_asked.m_realm});
    }
    return slips;
}

// Which names the KDC knows, or the keytab has.
class Known {
public:
    Known(Case& io_case, FreshTickets* i_pTickets, const Name& i_asked)
        : m_context(io_case.Context()),
          m_pTickets(i_pTickets),
          m_seen(Seen(io_case, i_pTickets == nullptr)),
          m_asked{i_asked.Full()} {}

    const std::vector<Name>& SeenNames() const noexcept { return m_seen; }
    const std::string& Tried() const noexcept { return m_tried; }

    // Each name once; the name that is looked for never.
    bool Has(const Name& i_name) {
        if (i_name.m_service.empty() || i_name.m_host.empty() || m_asked.size() > kMostQuestions ||
            !m_asked.insert(i_name.Full()).second) {
            return false;
        }
        Enumerate(m_tried, i_name.Short());
        if (m_pTickets == nullptr) {
            return std::any_of(m_seen.begin(), m_seen.end(),
                               [&](const Name& i_seen) { return i_seen.Full() == i_name.Full(); });
        }
        Krb5Principal principal(m_context);
        Krb5Credentials ticket(m_context);
        return krb5_parse_name(m_context, i_name.Full().c_str(), principal.Receive()) == 0 &&
               m_pTickets->Get(principal.get(), ticket) == 0;
    }

private:
    krb5_context m_context;
    FreshTickets* m_pTickets;
    std::vector<Name> m_seen;
    std::set<std::string> m_asked;
    std::string m_tried;
};

constexpr const char* kWhereNamesStand = " (SI_SERVER_SSPI_SPN of the program, --spn here)";

}  // namespace

bool SayUnknown(Case& io_case, FreshTickets* i_pTickets, krb5_principal i_service, const std::string& i_words) {
    if (i_service->length != 2) {  // a directory's "ldap/host/domain": there is nothing to compare it with
        std::string name = PrincipalText(io_case.Context(), i_service);
        name.resize(name.ends_with('@') ? name.size() - 1 : name.size());  // the KDC is to find out the realm
        if (i_pTickets != nullptr) {
            io_case.m_report.Fail("spn-unknown", "the service " + name, i_words,
                                  "kadmin addprinc -randkey " + Quoted(name) + "; in a directory: setspn -S " +
                                      Quoted(name.substr(0, name.rfind('@'))) + " ACCOUNT");
        }
        return i_pTickets != nullptr;
    }
    Name asked = NameOf(i_service);
    const bool bMapped = !asked.m_realm.empty() && io_case.m_options.m_spn.find('@') == std::string::npos;
    if (asked.m_realm.empty()) {  // the KDC is to find out
        asked.m_realm = io_case.m_realm;
    }
    Report& report = io_case.m_report;
    const std::string lookedAt = "the service " + asked.Full();
    Known known(io_case, i_pTickets, asked);
    for (const Name& seen : known.SeenNames()) {
        if (seen.Short() == asked.Short() && seen.m_realm != asked.m_realm &&
            Lower(seen.m_realm) == Lower(asked.m_realm)) {
            report.Fail("realm-case", lookedAt, i_words + "; keytab or tickets have it in " + seen.m_realm,
                        "write " + seen.m_realm + " in the configuration and in the programs' settings");
            return true;
        }
    }
    const std::string& ownRealm = io_case.m_realm;
    if (asked.m_realm != ownRealm && known.Has({asked.m_service, asked.m_host, ownRealm})) {
        if (bMapped) {
            report.Fail("host-realm", lookedAt,
                        i_words + "; [domain_realm] puts " + asked.m_host + " into " + asked.m_realm + ", but " +
                            ownRealm + " has the service",
                        "correct the line of [domain_realm] that fits " + asked.m_host + ": it must say " + ownRealm);
        } else {
            report.Fail("spn-alias", lookedAt, i_words + "; " + ownRealm + " has the service",
                        "use " + Quoted(asked.Short()) + kWhereNamesStand);
        }
        return true;
    }
    std::string others;
    std::string host;
    for (const Name& alias : Aliases(asked)) {
        if (!known.Has(alias)) {
            continue;
        }
        if (Lower(alias.Short()) == Lower(asked.Short())) {
            report.Fail("spn-case", lookedAt, i_words + "; known: " + alias.Short(),
                        "use the name as it is registered: " + Quoted(alias.Short()) + kWhereNamesStand);
            return true;
        }
        Enumerate(Lower(alias.m_service) == Lower(asked.m_service) ? host : others, alias.Short());
    }
    const std::string name = Quoted(asked.Short());
    const std::string add = "kadmin addprinc -randkey " + name + "; in a directory: setspn -S " + name + " ACCOUNT";
    if (!host.empty()) {
        report.Fail("spn-alias", lookedAt, i_words + "; another name of the host is known: " + host,
                    "use that name" + std::string(kWhereNamesStand) +
                        "; or, if clients are to use this one, register it too: " + add);
        return true;
    }
    const std::string tried = known.Tried();
    for (const Name& slip : Slips(asked, known.SeenNames())) {
        if (known.Has(slip)) {
            report.Fail(
                "spn-typo", lookedAt, i_words + "; nearly the same is known: " + slip.Short(),
                "use " + Quoted(slip.Short()) + " if that is meant" + kWhereNamesStand + "; only if it is not: " + add);
            return true;
        }
    }
    if (i_pTickets == nullptr) {
        return false;
    }
    report.Fail("spn-unknown", lookedAt,
                i_words + "; also tried: " + tried + "; known: " + (others.empty() ? "none" : others),
                (others.empty() ? "" : "use the known name, or ") + add);
    return true;
}

}  // namespace morwen::doctor
