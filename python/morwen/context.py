"""A user's kept context, and acting as the user."""
from __future__ import annotations

import ctypes
import os
import sys
import threading

from . import _library, errors


class Context:
    """A kept context. Let it go with release() or "with"; else it stays until it expires. False when none is kept."""
    def __init__(self, key: str) -> None:
        self.key = key

    @classmethod
    def of_thread(cls) -> Context:
        """Keeps the identity that the calling thread has."""
        key = _library.Out()
        errors.call("SSOAcquireCurrentSecurityContext", _library.wide(_library.THREADTOKEN), None, ctypes.byref(key))
        return cls(key.take(_library.narrow, "SSOFreeString"))

    def __bool__(self) -> bool:
        return bool(self.key)

    def __enter__(self) -> Context:
        return self

    def __exit__(self, *_: object) -> None:
        self.release()

    @property
    def alive(self) -> bool:
        """There is a context and it has not expired."""
        return _library.invoke("SSOLookupSecurityContext", _library.wide(self.key)) == _library.OK

    def impersonate(self) -> Impersonation:
        """For "with": this thread acts as the user inside. The context must stay, under this key, until then."""
        return Impersonation(self.key)

    def rename(self, key: str) -> None:
        """Another context that has this key is let go. Not decimal digits: they may be another context's key."""
        errors.call("SSOAssociateSecurityContext", _library.wide(self.key), _library.wide(key))
        self.key = key

    def release(self) -> None:
        """Lets it go; once more does nothing."""
        if self.key:
            _library.invoke("SSOReleaseSecurityContext", _library.wide(self.key))
        self.key = ""


class Impersonation:
    """The thread acts as the user inside the "with", by its effective ids: files, not programs that it starts.

    A thread that cannot be made itself again must not go on: then the process ends (os.abort). A coroutine gives its thread to
    others whenever it waits, so that this refuses an event loop's thread: use morwen.aio.as_user there. Not on the main thread of a
    program whose signal handlers raise, as that for Ctrl-C does: in the instant before the end begins, one may leave it the user.
    """
    def __init__(self, key: str) -> None:
        self._key = _library.wide(key)
        self._thread = 0

    def __enter__(self) -> None:
        if "asyncio" in sys.modules and sys.modules["asyncio"]._get_running_loop() is not None:
            raise RuntimeError("an event loop's thread cannot act as a user; use morwen.aio.as_user")
        self._thread = threading.get_ident()
        try:
            errors.call("SSOImpersonate", self._key)
        except errors.Error:
            raise
        except BaseException:  # a signal handler's, when the thread may be the user already
            self.__exit__()
            raise

    def __exit__(self, *_: object) -> None:
        raised = None
        while True:  # a signal handler of the program may raise before the call or after it
            try:
                # Another thread would revert itself, and leave this one as it is.
                failed = threading.get_ident() != self._thread or _library.invoke("SSORevert", self._key) != _library.OK
                break
            except BaseException as error:
                raised = error
        if failed:
            os.write(2, b"morwen: a thread cannot be made itself again\n")
            os.abort()
        if raised:
            raise raised
