"""The library through ctypes: its functions, structures and texts. For this package alone."""
from __future__ import annotations

import array
import ctypes
import itertools
import sys
from collections.abc import Callable, Mapping
from typing import TypeVar

T = TypeVar("T")

OK, CONTINUE, ACCEPTED, DENIED, ERROR, NO_CONTEXT = 0, 1, 2, 3, 100, 103
SSPI, THREADTOKEN = "SSPI", "THREADTOKEN"
_STRING, _LONG, _BOOL = 1, 2, 3
_UTF_16 = f"utf-16-{sys.byteorder[0]}e"

try:
    _library, _hub = ctypes.CDLL("libmorwenplugin.so.1"), ctypes.CDLL("libharrowlog.so.1")
except OSError as error:
    raise ImportError(f"{error} (Debian package libmorwenplugin1)") from None

# A call gives up Python's lock while it lasts, so that other threads go on.
_ADDRESS, _NUMBER = ctypes.c_void_p, ctypes.c_uint32
for _name, _arguments in {
        "SSOInitPackage": (), "SSOTermPackage": (), "SSOInitProvider": (_ADDRESS,) * 2,
        "SSOStartLogin": (_ADDRESS,) * 7, "SSOContinueLogin": (_ADDRESS, _ADDRESS, _NUMBER, _ADDRESS, _ADDRESS),
        "SSOAcceptLogin": (_ADDRESS, _ADDRESS, _ADDRESS, _NUMBER, *(_ADDRESS,) * 4), "SSOImpersonate": (_ADDRESS,),
        "SSORevert": (_ADDRESS,), "SSOAssociateSecurityContext": (_ADDRESS,) * 2, "SSOLookupSecurityContext": (_ADDRESS,),
        "SSOAcquireCurrentSecurityContext": (_ADDRESS,) * 3, "SSOReleaseSecurityContext": (_ADDRESS,),
        "SSOFreeBuffer": (_ADDRESS,), "SSOFreeString": (_ADDRESS,), "SSOFreeParameters": (_ADDRESS,), "SSOFreeError": (_ADDRESS,),
        "SSOGetError": (_NUMBER, _ADDRESS), "SSOGetMessageContent": (_NUMBER, _ADDRESS)}.items():
    getattr(_library, _name).argtypes, getattr(_library, _name).restype = _arguments, _NUMBER

_hub.HarrowLogReason.restype = ctypes.c_char_p


class Parameter(ctypes.Structure):
    """ParasSeq."""


Parameter._fields_ = [("key", ctypes.c_void_p), ("type", ctypes.c_uint32), ("value", ctypes.c_void_p),
                      ("next", ctypes.POINTER(Parameter))]


class Substitution(ctypes.Structure):
    """SSOSubstitution: a text for %1, %2 or %3 of a message."""


Substitution._fields_ = [("data", ctypes.c_void_p), ("next", ctypes.POINTER(Substitution))]


class Record(ctypes.Structure):
    """SSOError."""
    _fields_ = [("code", ctypes.c_uint32), ("message_id", ctypes.c_uint32), ("substitutions", ctypes.POINTER(Substitution)),
                ("message", ctypes.c_void_p)]


class Out(ctypes.c_void_p):
    """What comes out through a pointer."""
    def take(self, read: Callable[[int | None], T], release: str) -> T:
        """Reads it and gives it back."""
        try:
            return read(self.value)
        finally:
            invoke(release, self)
            self.value = None


def invoke(function: str, *arguments: object) -> int:
    """The code, whatever it is."""
    code: int = getattr(_library, function)(*arguments)
    return code


def reason() -> str:
    """Why the calling thread's last call failed."""
    words: bytes = _hub.HarrowLogReason()
    return words.decode("utf-8", "replace")


def wide(text: str) -> ctypes.Array[ctypes.c_char]:
    """The text in UTF-16. ctypes puts one zero byte behind it, and here is the other."""
    if "\0" in text:
        raise ValueError("a text with a zero character")  # would be cut there, and might name somebody else
    return ctypes.create_string_buffer(text.encode(_UTF_16) + b"\0")


def narrow(address: int | None) -> str:
    """The UTF-16 text at an address; None is the empty text, half a surrogate pair becomes U+FFFD."""
    if not address:
        return ""
    units = ctypes.cast(address, ctypes.POINTER(ctypes.c_uint16))
    found = array.array("H", itertools.takewhile(bool, map(units.__getitem__, itertools.count())))
    return found.tobytes().decode(_UTF_16, "replace")


def data(address: int | None, length: int) -> bytes:
    return ctypes.string_at(address, length) if address else b""


class Chain:
    """Parameters for a call; None values are left out. What the library gets points into this object."""
    def __init__(self, values: Mapping[str, str | int | None]) -> None:
        self._kept: list[object] = []
        self.head = None
        for key, value in values.items():
            if value is None:
                continue
            kind = _BOOL if isinstance(value, bool) else _LONG if isinstance(value, int) else _STRING
            texts = wide(key), wide(str(int(value)) if kind != _STRING else str(value))
            element = Parameter(ctypes.addressof(texts[0]), kind, ctypes.addressof(texts[1]), self.head)
            self._kept.append((texts, element, self.head))
            self.head = ctypes.pointer(element)


def chain(address: int | None) -> dict[str, str]:
    """The parameters of a chain that the library handed out."""
    found, element = {}, ctypes.cast(address or 0, ctypes.POINTER(Parameter))
    while element:
        found[narrow(element.contents.key)] = narrow(element.contents.value)
        element = element.contents.next
    return found
