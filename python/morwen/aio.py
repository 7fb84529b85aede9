"""The same for asyncio: every call that may wait runs on a thread of a pool of its own, never on the event loop's.

log_on and accept carry a login's tokens over a stream in frames: the length of what follows (four bytes, the highest first), one
letter, data. t: a token. d: the client's half is done. w: the server's is too, with a welcome. r: the server refuses. The example
programs in C speak the same. Of what follows nothing is protected: use them inside TLS. Limit the time with asyncio.timeout.
"""
from __future__ import annotations

import asyncio
import concurrent.futures
import functools
import os
import struct
from collections.abc import Callable
from typing import ParamSpec, TypeVar

from . import _library, errors
from .context import Context
from .login import ClientLogin, ServerLogin, User

P = ParamSpec("P")
T = TypeVar("T")

_LARGEST_FRAME, _MOST_ROUNDS = 256 * 1024, 8
# As many logins may wait for a KDC at once; more wait for their turn.
_pool = concurrent.futures.ThreadPoolExecutor(32, "morwen")


def _forked() -> None:
    """A child has none of the threads, and would wait for them."""
    global _pool
    _pool = concurrent.futures.ThreadPoolExecutor(32, "morwen")


os.register_at_fork(after_in_child=_forked)


async def run(function: Callable[P, T], *arguments: P.args, **named: P.kwargs) -> T:
    """Calls it on a thread of the pool. Who stops awaiting it does not end the call."""
    return await asyncio.wrap_future(_pool.submit(functools.partial(function, *arguments, **named)))


async def step(login: ClientLogin | ServerLogin, token: bytes = b"") -> bytes:
    """login.step(token)."""
    return await run(lambda: login.step(token))


async def finish(login: ServerLogin) -> User:
    """login.finish(). A user whom nobody awaits any more is let go."""
    def let_go(done: concurrent.futures.Future[User]) -> None:
        if not done.cancelled() and not done.exception():
            done.result().context.release()
    call = _pool.submit(login.finish)
    try:
        return await asyncio.wrap_future(call)
    except asyncio.CancelledError:
        call.add_done_callback(let_go)
        raise


async def as_user(context: Context, function: Callable[P, T], *arguments: P.args, **named: P.kwargs) -> T:
    """Calls a plain function on a thread that acts as the user meanwhile."""
    def act() -> T:
        with context.impersonate():
            return function(*arguments, **named)
    return await run(act)


async def log_on(reader: asyncio.StreamReader, writer: asyncio.StreamWriter, spn: str, user: str = "", password: str = "", *,
                 negotiate: bool = False, channel_bindings: str = "") -> bytes:
    """The client's half of a login. Returns the welcome of a server that is the one that was meant.

    Raises Denied when the server refuses, Error when the login does not begin or for the server's answer, and ConnectionError."""
    login = ClientLogin(spn, user, password, negotiate=negotiate, channel_bindings=channel_bindings)
    token = await step(login)
    for _ in range(_MOST_ROUNDS):
        if token:
            await _send(writer, b"t", token)
        if login.done:
            await _send(writer, b"d")
        kind, data = await _receive(reader)
        if kind == b"r":
            raise errors.Denied("log_on", _library.DENIED, "The server refuses the logon.")
        if kind != (b"w" if login.done else b"t"):
            break
        if login.done:
            return data
        token = await step(login, data)
    raise ConnectionAbortedError("the server does not speak this protocol")


async def accept(reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> User:
    """The server's half. The client waits for a welcome() then, which is sent when the server has looked at the user.

    Raises Error or ConnectionError; the client is told that it is refused, and never why."""
    login = ServerLogin()
    try:
        for _ in range(_MOST_ROUNDS):
            kind, data = await _receive(reader)
            if kind == b"d":
                return await finish(login)
            if kind != b"t":
                break
            if answer := await step(login, data):
                await _send(writer, b"t", answer)
        raise ConnectionAbortedError("the client does not speak this protocol")
    except BaseException:
        refuse(writer)
        raise


async def welcome(writer: asyncio.StreamWriter, text: bytes) -> None:
    """Tells the client that it is logged on."""
    await _send(writer, b"w", text)


def refuse(writer: asyncio.StreamWriter) -> None:
    """Tells the client that it is not let in, in place of a welcome."""
    writer.write(_frame(b"r"))


def _frame(kind: bytes, data: bytes = b"") -> bytes:
    if len(data) >= _LARGEST_FRAME:
        raise ValueError("a frame is too large")
    return struct.pack(">I", len(data) + 1) + kind + data


async def _send(writer: asyncio.StreamWriter, kind: bytes, data: bytes = b"") -> None:
    writer.write(_frame(kind, data))
    await writer.drain()


async def _receive(reader: asyncio.StreamReader) -> tuple[bytes, bytes]:
    try:
        length, kind = struct.unpack(">Ic", await reader.readexactly(5))
        # What a stranger claims to send must not decide how much memory is taken.
        if not 0 < length <= _LARGEST_FRAME:
            raise ConnectionAbortedError("the other side sends what is no frame")
        return kind, await reader.readexactly(length - 1)
    except asyncio.IncompleteReadError:
        raise ConnectionAbortedError("the other side is gone") from None
