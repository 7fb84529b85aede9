"""The package, started and ended."""
from __future__ import annotations

from . import _library, errors


class Package:
    """Starts the library for as long as a "with" lasts; every other object is used inside. May be nested.

    A server's settings, each as it was or at its default unless given: keep_contexts (True): a user's context is kept for
    impersonation. context_seconds (0: as long as its ticket): how long it can be impersonated. renew (True) and spn: contexts of
    users who have delegated tickets are renewed in the name of this service before they end, if context_seconds is longer.
    channel_bindings and channel_bindings_rule ("ignore"): "check" refuses clients that bind their logins to another TLS connection
    than this ("tls-server-end-point:" and the hash of the certificate), "require" also those that bind theirs to none.
    """
    def __init__(self, *, keep_contexts: bool | None = None, context_seconds: int | None = None, renew: bool | None = None,
                 spn: str | None = None, channel_bindings: str | None = None, channel_bindings_rule: str | None = None) -> None:
        self._settings = {"SI_CACHE_SECCONTEXT": keep_contexts, "SSPI_CTXT_CACHE_EXPIRY": context_seconds,
                          "CONTEXT_RENEWALS_ALLOWED": renew, "SI_SERVER_SSPI_SPN": spn,
                          "SSPI_CHANNEL_BINDINGS": channel_bindings, "SSPI_CHANNEL_BINDINGS_RULE": channel_bindings_rule}

    def __enter__(self) -> Package:
        errors.call("SSOInitPackage")
        try:
            settings = _library.Chain(self._settings)
            errors.call("SSOInitProvider", _library.wide(_library.SSPI), settings.head)
        except BaseException:
            _library.invoke("SSOTermPackage")
            raise
        return self

    def __exit__(self, *_: object) -> None:
        _library.invoke("SSOTermPackage")  # waits for calls under way on other threads
