// The catalogue of problems.
#include "tools/doctor/report/Report.h"

namespace morwen::doctor {

namespace {

constexpr Problem kProblems[] = {
    {"config-missing", "configuration", "Without configuration nothing here knows a realm or its KDCs."},
    {"config-unreadable", "configuration", "This account may not read the configuration, so for it there is none."},
    {"config-syntax", "configuration", "Kerberos reads none of the configuration, and every logon fails."},
    {"realm-missing", "configuration", "There is no default realm to look for users and services in."},
    {"host-unresolvable", "host", "Clients cannot connect to the service under the name in its principal."},
    {"host-elsewhere", "host", "Clients that follow the name in the principal end up on another machine."},
    {"kdc-unknown", "kdc", "Neither the configuration nor DNS names a KDC of the realm, so no ticket can be had."},
    {"kdc-unresolvable", "kdc", "The KDC's host name has no address. With no other KDC no ticket can be had."},
    {"kdc-refused", "kdc",
     "The machine is there, but no KDC listens on the port. With no other KDC no ticket can be had."},
    {"kdc-silent", "kdc",
     "No answer: the machine is down, or a firewall swallows the packets. Even with another KDC logons get slow."},
    {"kdc-wrong-realm", "kdc", "The KDC answers, but serves another realm."},
    {"kdc-not-kerberos", "kdc", "What listens there is no KDC."},
    {"kdc-one-protocol", "kdc",
     "The KDC answers over one of TCP and UDP only: large tickets need TCP, and some programs begin with UDP."},
    {"clock-skew", "clock", "Kerberos refuses tickets between machines whose clocks differ by more than the limit."},
    {"cache-missing", "cache", "This user has no tickets, and a logon without a password needs one."},
    {"cache-unreadable", "cache", "The tickets belong to somebody else or lie where this account must not look."},
    {"cache-owner", "cache", "These are another account's tickets: logons happen in that user's name."},
    {"cache-planted", "cache",
     "Nobody has named this cache, and it is not certainly this account's: logons without a password are refused."},
    {"cache-exposed", "cache", "Whoever can read the file can act as this user until the tickets end."},
    {"cache-broken", "cache", "What lies there is no credential cache."},
    {"ticket-missing", "cache", "The cache holds no ticket-granting ticket, so tickets for services cannot be had."},
    {"ticket-expired", "cache",
     "The ticket-granting ticket is past its end, and no service ticket can be had with it."},
    {"ticket-not-forwardable", "cache",
     "The KDC does not let this ticket be delegated; the server cannot go on as the "
     "user elsewhere."},
    {"spn-malformed", "spn", "The service's principal has the form service/host or service/host@REALM."},
    {"spn-case", "spn", "Names in a realm may be case sensitive: the service exists, but is spelled differently."},
    {"spn-unknown", "spn", "The KDC does not know the service under this name, so nobody can log on to it."},
    {"spn-enctype", "spn", "Client, service and KDC have no encryption type in common."},
    {"ticket-refused", "spn", "The KDC gives this user no ticket for the service."},
    {"ticket-stale", "spn",
     "The service's key was changed after the cached ticket was made; a server with the new key alone refuses it."},
    {"delegation-untrusted", "delegation",
     "The realm does not trust the service with delegated tickets, so clients do not send any."},
    {"keytab-missing", "keytab", "Without its keys the service cannot open the tickets of its clients."},
    {"keytab-unreadable", "keytab", "The account that the service runs as may not read its keys."},
    {"keytab-broken", "keytab", "What lies there is no keytab."},
    {"keytab-empty", "keytab", "The keytab is there, but no key is in it."},
    {"keytab-exposed", "keytab",
     "Whoever can read the file can pretend to be the service, and make tickets of any user for it."},
    {"keytab-no-spn", "keytab",
     "The keytab has no key of the service, so the tickets of its clients cannot be opened."},
    {"keytab-weak", "keytab",
     "All keys are of encryption types that are broken, or that this machine does not permit."},
    {"keytab-kvno", "keytab", "The KDC encrypts tickets with a version of the key that the keytab does not have."},
    {"keytab-enctype", "keytab", "The KDC encrypts tickets with a key of a type that the keytab does not have."},
    {"keytab-key", "keytab", "Version and type are right, but it is another key: clients' tickets do not open."},
    {"replay-cache-off", "replay-cache", "A stolen token can be used a second time."},
    {"replay-cache-unwritable", "replay-cache",
     "The service cannot note which tokens it has seen, and refuses every logon."},
    {"replay-cache-owner", "replay-cache", "The file is not this account's own, so the service refuses every logon."},
    {"account-unmapped", "account", "No rule turns the principal into the name of a local account."},
    {"account-missing", "account", "The principal stands for a name that is no account of this machine."},
    {"account-root", "account", "No ticket makes a root: the library refuses to act as this user."},
    {"impersonation-privilege", "privilege", "The service can act as its own account only, as no other user."},
    {"logon-fails", "logon", "The library fails although the checks above see nothing wrong; its words say where."},
    {"login-failed", "login", "The client's half does not begin: something is wrong on this machine or with the KDC."},
    {"login-unproven", "login", "The server's answer was not made with the service's key: it is not the one meant."},
    {"login-refused", "login", "The other side refuses; it has said why on its own output, never to its peer."},
    {"accept-refused", "accept", "The library does not accept what the client sent."},
    {"impersonation-failed", "accept", "The user is logged on, but the service cannot act as the user."},
    {"peer-unusable", "peer", "The other side is not there, is too slow, or does not speak as this program does."},
};

}  // namespace

std::span<const Problem> Problems() noexcept {
    return kProblems;
}

}  // namespace morwen::doctor
