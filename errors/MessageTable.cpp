#include "errors/MessageTable.h"

#include "errors/SSOException.h"

namespace morwen {

namespace {

// Each text says what happened and what to do. A message is shared by several failures, so it names what they have in
// common; the trace names the one that it was.
constexpr Harrowlib201::SMessage kMessages[] = {
    {kMsgParameterType,
     "The parameter %1 has the wrong type. Check the type tag that the program gives it (1 text, 2 number, 3 "
     "boolean)."},
    {kMsgGeneral,
     "The operation could not be carried out. The reason that goes with this message says why; where it is not enough, "
     "\"morwen-doctor client --spn SERVICE/HOST\", or on the service's machine \"morwen-doctor server\", names the "
     "cause and what to do."},
    {kMsgOutOfMemoryRecord,
     "Memory ran out while an error was reported. End other programs or raise the memory limit."},
    {kMsgOutOfMemory,
     "Memory ran out. Nothing was changed; end other programs or raise the memory limit, and try again."},
    {kMsgNotInitialized,
     "The plug-in is not ready for logons. The program must call SSOInitPackage successfully before it uses the "
     "plug-in."},
    {kMsgUserNameFormat,
     "The user name does not have the form DOMAIN\\user. Give the name with its domain, for example "
     "EXAMPLE\\alice."},
    {kMsgLogonDeniedClient,
     "The logon was denied. Check the user name and the password, and whether the account is locked or expired; the "
     "reason that goes with this message is the domain's own."},
    {kMsgNoContext,
     "There is no security context under the given key. It was released, was given another key, or never "
     "existed; the user must log on again."},
    {kMsgImpersonation,
     "The identity of the thread could not be changed or read. Check that the service has the right to act as its "
     "users; the reason that goes with this message names the step that failed."},
    {kMsgNoPackage,
     "The security package %1 cannot be used. Check that Kerberos is installed and configured on this "
     "computer."},
    {kMsgServerPrincipal,
     "The server could not be identified. Check that the login has the parameter SI_SERVER_SSPI_SPN, that it names "
     "this "
     "server's principal, and that the server holds that principal's current key."},
    {kMsgCredentials,
     "The credentials were refused or cannot be used. On a server check the keytab: is it there, may the service read "
     "it, "
     "does it hold the principal's current key? On a client check that the user is logged on (klist). The reason "
     "that goes with this message says which it is."},
    {kMsgUnknownProvider,
     "There is no provider of the type \"%1\". The types are SSPI and THREADTOKEN, in capital letters."},
    {kMsgContextUnusable,
     "The security context cannot be used: there is none under the key, it has expired, or the thread's identity could "
     "not be captured. The user must log on again."},
};

}  // namespace

std::span<const Harrowlib201::SMessage> MessageTable() noexcept {
    return kMessages;
}

}  // namespace morwen
