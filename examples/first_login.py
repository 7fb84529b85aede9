#!/usr/bin/env python3
"""A first login in Python, through ctypes: the user logs on to a service, at the example server or within this process.

usage: first_login.py SERVICE/HOST [HOST:PORT] [--user 'DOMAIN\\USER']

With HOST:PORT the other side is sso_server there; without, this process takes both sides. Without --user it is the logged-on
user, with the tickets that are there; with it the password is asked for. Exit status: 0 logged on, 1 refused, 2 anything else.
"""
import argparse
import ctypes
import getpass
import socket
import struct
import sys

OK, CONTINUE, ACCEPTED, DENIED = 0, 1, 2, 3
STRING = 1  # the type of a parameter

library, log = (ctypes.CDLL(f"{name}.dll" if sys.platform == "win32" else f"lib{name}.so.1") for name in ("morwenplugin", "harrowlog"))
log.HarrowLogReason.restype = ctypes.c_char_p


class Parameter(ctypes.Structure):
    """ParasSeq. Texts are UTF-16 with a zero unit; the chain keeps what it points to only as long as Python does."""


Parameter._fields_ = [("key", ctypes.c_void_p), ("type", ctypes.c_uint32), ("value", ctypes.c_void_p),
                      ("next", ctypes.POINTER(Parameter))]


class Substitution(ctypes.Structure):
    """SSOSubstitution: a text for %1, %2 or %3 of a message."""


Substitution._fields_ = [("data", ctypes.c_void_p), ("next", ctypes.POINTER(Substitution))]


class Record(ctypes.Structure):
    """SSOError."""
    _fields_ = [("code", ctypes.c_uint32), ("message_id", ctypes.c_uint32),
                ("substitutions", ctypes.POINTER(Substitution)), ("message", ctypes.c_void_p)]


# Numbers and null pointers go by themselves; pointers that the library hands out are kept in c_void_p.
for name in ("SSOInitPackage", "SSOTermPackage", "SSOInitProvider", "SSOStartLogin", "SSOContinueLogin", "SSOAcceptLogin",
             "SSOReleaseSecurityContext", "SSOFreeBuffer", "SSOFreeString", "SSOFreeParameters", "SSOFreeError", "SSOGetError",
             "SSOGetMessageContent"):
    getattr(library, name).restype = ctypes.c_uint32


def wide(text):
    return ctypes.create_string_buffer(text.encode("utf-16-le") + b"\0")  # one zero byte more is put behind it


def narrow(address):
    """The UTF-16 text at an address; None is the empty text."""
    units = ctypes.cast(address, ctypes.POINTER(ctypes.c_uint16))
    length = 0
    while address and units[length]:
        length += 1
    return ctypes.string_at(address, 2 * length).decode("utf-16-le", "replace") if address else ""


def chain(address):
    """The parameters of a chain that the library handed out."""
    found, element = {}, ctypes.cast(address, ctypes.POINTER(Parameter))
    while element:
        found[narrow(element.contents.key)] = narrow(element.contents.value)
        element = element.contents.next
    return found


class Out(ctypes.c_void_p):
    """What comes out through a pointer; take() gives it back to the library after it was read."""
    def take(self, read, release):
        try:
            return read(self.value)
        finally:
            release(self)


class Failure(Exception):
    """A failed call, with its reason and the library's own words."""
    def __init__(self, function, code):
        self.code = code
        self.reason = log.HarrowLogReason().decode("utf-8", "replace")  # before the thread's next call
        words, record = self.reason and f": {self.reason}", Out()
        if library.SSOGetError(code, ctypes.byref(record)) == OK:
            words += ": " + record.take(self.words, library.SSOFreeError)
        super().__init__(f"{function}: code {code}{words}")

    @staticmethod
    def words(address):
        record, text = Record.from_address(address), Out()
        if record.message:
            return narrow(record.message)
        if library.SSOGetMessageContent(record.message_id, ctypes.byref(text)) != OK:
            return f"message {record.message_id}"
        words, element, number = text.take(narrow, library.SSOFreeString), record.substitutions, 0
        while element:
            number += 1
            words = words.replace(f"%{number}", narrow(element.contents.data))
            element = element.contents.next
        return words.strip()


def call(function, *arguments):
    code = getattr(library, function)(*arguments)
    if code >= DENIED:
        raise Failure(function, code)
    return code


def step(function, *arguments, more=()):
    """A call that may make a token. Returns the code and the token."""
    token, length = Out(), ctypes.c_uint32()
    code = call(function, *arguments, ctypes.byref(token), ctypes.byref(length), *more)
    return code, token.take(lambda address: ctypes.string_at(address, length.value) if address else b"", library.SSOFreeBuffer)


class Server:
    """The accepting side within this process."""
    def __init__(self):
        self.key, self.who = Out(), {}

    def answer(self, token, last=False):
        information, key = Out(), Out()
        code, answer = step("SSOAcceptLogin", wide("SSPI"), self.key, token, len(token or b""),
                            more=(ctypes.byref(information), ctypes.byref(key)))
        if key:
            library.SSOFreeString(self.key)
            self.key = key
        self.who = information.take(chain, library.SSOFreeParameters)
        if last and code == ACCEPTED:
            library.SSOReleaseSecurityContext(self.key)
            library.SSOFreeString(self.key)
            return f"logged on: {self.who['SSPI_USER_SID']}"
        return answer


class Peer:
    """sso_server: a frame is the length of what follows, a letter for its kind, and the data."""
    def __init__(self, address):
        host, port = address.rsplit(":", 1)
        self.stream = socket.create_connection((host, int(port)), timeout=10).makefile("rwb")

    def answer(self, token, last=False):
        frame = b"d" if last else b"t" + token
        self.stream.write(struct.pack(">I", len(frame)) + frame)
        self.stream.flush()
        head = self.stream.read(5)
        if len(head) < 5:
            raise ConnectionAbortedError("the server is gone")
        length, kind = struct.unpack(">Ic", head)
        if kind != (b"w" if last else b"t"):
            raise PermissionError("the server refuses the logon")
        data = self.stream.read(length - 1)
        return "logged on; the server says: " + data.decode() if last else data


def log_on(spn, user, password, peer):
    names = wide("SI_SERVER_SSPI_SPN"), wide(spn)
    service = Parameter(ctypes.addressof(names[0]), STRING, ctypes.addressof(names[1]), None)
    key, secret = Out(), wide(password)
    try:
        code, token = step("SSOStartLogin", wide(user), secret, wide("SSPI"), ctypes.byref(service), ctypes.byref(key))
        ctypes.memset(secret, 0, len(secret))
        peer = peer()  # not before: asking the KDC may take longer than a server waits
        while code == CONTINUE:
            answer = peer.answer(token)
            code, token = step("SSOContinueLogin", key, answer, len(answer))
        print(peer.answer(None, last=True))  # the server has proved who it is; Kerberos has no token for it at the end
    finally:
        library.SSOFreeString(key)


def main():
    parser = argparse.ArgumentParser(description="logs a user on through the library")
    parser.add_argument("spn", metavar="SERVICE/HOST")
    parser.add_argument("server", metavar="HOST:PORT", nargs="?", help="sso_server; without it, both sides are here")
    parser.add_argument("--user", default="", help="DOMAIN\\USER, instead of the logged-on user")
    options = parser.parse_args()
    password = getpass.getpass() if options.user else ""
    try:
        call("SSOInitPackage")
        call("SSOInitProvider", wide("SSPI"), None)
        log_on(options.spn, options.user, password, (lambda: Peer(options.server)) if options.server else Server)
    except (Failure, OSError) as error:
        print(error, file=sys.stderr)
        refused = isinstance(error, PermissionError) or isinstance(error, Failure) and error.code == DENIED
        return 1 if refused else 2
    finally:
        library.SSOTermPackage()
    return 0


if __name__ == "__main__":
    sys.exit(main())
