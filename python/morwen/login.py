"""Both halves of a login. The program carries the tokens, whole and in order, over a connection of its own."""
from __future__ import annotations

import ctypes
import dataclasses

from . import _library, errors
from .context import Context


def _step(function: str, *arguments: object, more: tuple[object, ...] = ()) -> tuple[int, bytes]:
    """The code, and the token for the other side."""
    token, length = _library.Out(), ctypes.c_uint32()
    code = errors.call(function, *arguments, ctypes.byref(token), ctypes.byref(length), *more)
    return code, token.take(lambda address: _library.data(address, length.value), "SSOFreeBuffer")


class ClientLogin:
    """The client's half. Until done: send what step() gives, give it the answer. Then the server is the one that was meant. With
    negotiate the last step may give a token too, which is sent like the others.

    user is DOMAIN\\user, with the password; without one, the logged-on user's own tickets are used. Both stay in this object until
    the first step has taken place. A step may ask KDCs, for some ten seconds at most each. A login that is given up before it is
    done stays in memory until the package ends.

    negotiate wraps the tokens into SPNEGO. channel_bindings says which TLS connection the login is for: "tls-server-end-point:" and the
    hash of the server's certificate, which is hashlib.sha256(connection.getpeercert(True)).hexdigest() for most.
    """
    def __init__(self, spn: str, user: str = "", password: str = "", *, negotiate: bool = False, channel_bindings: str = "") -> None:
        self._spn, self._user, self._password, self._key = spn, user, password, ""
        self._more = {"SSPI_NEGOTIATE": negotiate or None, "SSPI_CHANNEL_BINDINGS": channel_bindings or None}
        self.done = False

    def step(self, answer: bytes = b"") -> bytes:
        """The first time without an answer. Of an answer that is refused (Error) a better one may still follow."""
        if self.done:
            raise RuntimeError("the login is complete")
        if self._key:
            code, token = _step("SSOContinueLogin", _library.wide(self._key), answer, len(answer))
        else:
            code, token = self._begin()
        self.done = code == _library.OK
        return token

    def _begin(self) -> tuple[int, bytes]:
        key, secret = _library.Out(), _library.wide(self._password)
        try:
            service = _library.Chain({"SI_SERVER_SSPI_SPN": self._spn, **self._more})
            begun = _step("SSOStartLogin", _library.wide(self._user), secret, _library.wide(_library.SSPI), service.head,
                          ctypes.byref(key))
        finally:
            ctypes.memset(secret, 0, len(secret))  # Python's own copy is not in our hands
        self._key, self._password = key.take(_library.narrow, "SSOFreeString"), ""
        return begun


@dataclasses.dataclass(frozen=True)
class User:
    """Who has logged on. sid and groups are security identifiers (S-1-...); the context is empty when none is kept. "with" lets it
    go at the end."""
    sid: str
    groups: tuple[str, ...]
    context: Context

    def __enter__(self) -> User:
        return self

    def __exit__(self, *_: object) -> None:
        self.context.release()


class ServerLogin:
    """The server's half, one for each connection. Give each token to step(), send what it returns; when the client says that it is
    done, finish() says who it is. A login that is given up after its first step stays in memory until the package ends."""
    def __init__(self) -> None:
        self._key = ""
        self._user: User | None = None

    def step(self, token: bytes) -> bytes:
        """The answer to send, b"" for none. Of a token that is refused (Error) a better one may still follow."""
        if not token:  # to the library this would mean that the client is done
            raise errors.Error("SSOAcceptLogin", _library.ERROR, "The client's token is empty.")
        return self._accept(token)

    def finish(self) -> User:
        """The user is who the ticket says. Error if the login is not complete."""
        if self._user is None:
            self._accept(None)
        if self._user is None:
            raise errors.Error("SSOAcceptLogin", _library.ERROR, "The login is not complete.")
        return self._user

    def _accept(self, token: bytes | None) -> bytes:
        if self._user is not None:
            raise RuntimeError("the login is complete")
        information, key = _library.Out(), _library.Out()
        code, answer = _step("SSOAcceptLogin", _library.wide(_library.SSPI), _library.wide(self._key), token, len(token or b""),
                             more=(ctypes.byref(information), ctypes.byref(key)))
        found = information.take(_library.chain, "SSOFreeParameters")
        self._key = key.take(_library.narrow, "SSOFreeString")
        if code == _library.ACCEPTED:
            context = Context("" if self._key == "DUMMY_KEY__CACHING_IS_OFF" else self._key)
            groups = tuple(found.get("SSPI_USER_GROUP_SIDS", "").split(";")[:-1])
            self._user = User(found.get("SSPI_USER_SID", ""), groups, context)
        return answer
