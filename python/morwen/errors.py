"""What a failed call raises."""
from __future__ import annotations

import ctypes
import re

from . import _library


class Error(Exception):
    """A call failed. As text: the function, its code, the reason and the message.

    code: of the C header's enum SSOCode. message: what kind of thing failed, or "". message_id: its number in the administrators'
    page "messages", or 0. reason: which file, ticket, key or KDC it was, or "". For the program's own log: do not tell it to the
    other side.
    """
    def __init__(self, function: str, code: int, message: str = "", message_id: int = 0, reason: str = "") -> None:
        super().__init__(f"{function}: code {code}: " + " -- ".join(filter(None, (reason, message))))
        self.function, self.code, self.message, self.message_id, self.reason = function, code, message, message_id, reason


class Denied(Error):
    """Code 3: the name, password, account or ticket is refused. Any other code is a fault of the surroundings or of the call."""


class NoContext(Error):
    """The context is gone or has expired: the user logs on again. Code 103, or 100 with message 61217."""


_CONTEXT_UNUSABLE = 61217


def _read(address: int | None) -> tuple[str, int]:
    """A record's words, with its texts in their places, and their number."""
    assert address
    record, template = _library.Record.from_address(address), _library.Out()
    message = _library.narrow(record.message)
    if not message and _library.invoke("SSOGetMessageContent", record.message_id, ctypes.byref(template)) == _library.OK:
        message = template.take(_library.narrow, "SSOFreeString")
    texts, element = [], record.substitutions
    while element:
        texts.append(_library.narrow(element.contents.data))
        element = element.contents.next
    texts += [""] * 3
    return re.sub("%([123])", lambda place: texts[int(place[1]) - 1], message.strip()), record.message_id


def call(function: str, *arguments: object) -> int:
    """The code of a success; a failure raises what the calling thread's record says."""
    code = _library.invoke(function, *arguments)
    if code < _library.DENIED:
        return code
    record, reason = _library.Out(), _library.reason()
    found = _library.invoke("SSOGetError", code, ctypes.byref(record)) == _library.OK
    message, number = record.take(_read, "SSOFreeError") if found else ("", 0)
    kind = Denied if code == _library.DENIED else Error
    if code == _library.NO_CONTEXT or number == _CONTEXT_UNUSABLE:
        kind = NoContext
    raise kind(function, code, message, number, reason)
