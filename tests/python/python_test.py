"""The Python module in a realm: who logs on, what is refused with which exception, acting as the user, asyncio, the C server.

Usage: scripts/realm python_test.py EXAMPLE SERVER
"""
import asyncio, os, signal, subprocess, sys, threading, time  # noqa: E401
from unittest import mock
import morwen
from morwen import aio, errors

EXAMPLE, SERVER = sys.argv[1:]
SPN, OWN, call_plainly = "morwen/localhost", os.geteuid(), errors.call
ALICE = 65534 if OWN == 0 else OWN


def log_on(spn=SPN, user="", password="", **more):
    client, server = morwen.ClientLogin(spn, user, password, **more), morwen.ServerLogin()
    token = client.step()
    while not client.done:
        token = client.step(server.step(token))
    return server.finish()


def raised(call, *arguments):
    try:
        return call(*arguments)
    except Exception as error:
        return error


def half_done(act):
    client, server = morwen.ClientLogin(SPN), morwen.ServerLogin()
    return act(client, server, server.step(client.step()))


def left_on_another_thread():
    acting = log_on().context.impersonate()
    acting.__enter__()
    threading.Thread(target=acting.__exit__).start()
    time.sleep(10)


with morwen.Package():
    for call, arguments, kind, code, words, reason in [
            (log_on, (), morwen.User, 0, "", ""),
            (log_on, (SPN, "MORWEN.TEST\\bob", "bob-secret"), morwen.User, 0, f"S-1-22-1-{OWN}'", ""),
            (log_on, (SPN, "MORWEN.TEST\\bob", "bob-secrte"), morwen.Denied, 3, "The logon was denied.", "assword"),
            (log_on, (SPN, "bob", "bob-secret"), morwen.Error, 100, "code 100: ", ""),
            (log_on, (SPN, "MORWEN\\bob\0", "bob-secret"), ValueError, 0, "zero", ""),
            (log_on, ("nobody/localhost",), morwen.Error, 100, "SSOStartLogin: code 100: ", "nobody/localhost"),
            (morwen.ServerLogin().step, (b"nonsense",), morwen.Error, 100, "SSOAcceptLogin", "token"),
            (morwen.ServerLogin().step, (b"",), morwen.Error, 100, "empty", ""),
            (morwen.ServerLogin().finish, (), morwen.Error, 100, "SSOAcceptLogin", ""),
            (half_done, (lambda client, server, answer: client.step(answer[:-1]),), morwen.Error, 100, "SSOContinueLogin", ""),
            (half_done, (lambda client, server, answer: (client.step(answer), client.step(answer)),), RuntimeError, 0, "complete", ""),
            (half_done, (lambda client, server, answer: (server.finish(), server.step(b"x")),), RuntimeError, 0, "complete", ""),
            (morwen.Context("").impersonate().__enter__, (), morwen.NoContext, 100, "SSOImpersonate", ""),
            (morwen.Context("1").rename, ("gone",), morwen.NoContext, 103, "SSOAssociateSecurityContext", "")]:
        got = raised(call, *arguments)
        assert type(got) is kind and words in repr(got) and getattr(got, "code", 0) == code, (arguments, got)
        assert reason in getattr(got, "reason", ""), (got, got.reason)

    with log_on() as user:
        assert user.sid == f"S-1-22-1-{ALICE}" and user.groups[0].startswith("S-1-22-2-"), user
        user.context.rename("the user's")
        with user.context.impersonate(), morwen.Context.of_thread() as kept:
            assert os.geteuid() == ALICE and kept.alive and kept.key != user.context.key
        assert os.geteuid() == OWN and user.context.alive and user.context
    assert not morwen.Context("the user's").alive and not user.context
    with morwen.Package(keep_contexts=False):
        assert not log_on().context
    with morwen.Package(channel_bindings="tls-server-end-point:00ff", channel_bindings_rule="require"):
        assert log_on(negotiate=True, channel_bindings="tls-server-end-point:00FF").sid
        assert "channel bindings" in raised(lambda: log_on(negotiate=True)).reason
    with morwen.Package(channel_bindings_rule="ignore"):
        assert log_on().sid
    with morwen.Package(keep_contexts=True, context_seconds=3600, spn=SPN):
        assert log_on().context
    with log_on() as user, mock.patch.object(errors, "call", lambda *call: (call_plainly(*call), signal.raise_signal(signal.SIGINT))):
        try:
            user.context.impersonate().__enter__()
            raise AssertionError("nothing was raised")
        except KeyboardInterrupt:
            assert os.geteuid() == OWN, "a signal left the thread the user"
    child = os.fork()
    if child == 0:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 2)
        left_on_another_thread()
    assert os.waitpid(child, 0)[1] & 127 == 6, "a thread went on as the user"


async def served(reader, writer):
    try:
        with await aio.accept(reader, writer) as who:
            assert isinstance(raised(who.context.impersonate().__enter__), RuntimeError), "the loop's thread acts as a user"
            try:
                uid, thread = await aio.as_user(who.context, lambda: (os.geteuid(), threading.current_thread().name))
                await aio.welcome(writer, f"{who.sid} {uid} {thread[:6]}".encode())
            except morwen.Error:  # nobody acts as root
                aio.refuse(writer)
    except (morwen.Error, OSError) as error:
        refused.append(error)
    writer.close()


async def client(port, *arguments):
    reader, writer = await asyncio.open_connection("127.0.0.1", port)
    try:
        if isinstance(arguments[0], bytes):
            writer.write(arguments[0])
            return await reader.read()
        return (await aio.log_on(reader, writer, *arguments)).decode()
    finally:
        writer.close()


async def many(c_port):
    listener = await asyncio.start_server(served, "127.0.0.1")
    own = listener.sockets[0].getsockname()[1]
    bob, frame_r = ("MORWEN\\bob", "bob-secret"), b"\0\0\0\1r"
    got = await asyncio.gather(*(client(*call) for call in [
        (own, SPN), (own, SPN, *bob), (c_port, SPN), (c_port, SPN, *bob), (own, b"\0\0\0\1d"), (own, b"\xff\0\0\0t"), (own, b"\0\0\0\2tx"),
        (own, b"\0\0\0\0t"), (own, "other/localhost"), (own, "aes256-sha1/localhost")]), return_exceptions=True)
    assert got[0] == f"S-1-22-1-{ALICE} {ALICE} morwen", got
    assert OWN and got[1] == got[0] or not OWN and isinstance(got[1], morwen.Denied), got
    assert got[2:8] == [f"Welcome, S-1-22-1-{uid}." for uid in (ALICE, OWN)] + [frame_r] * 4, got
    assert isinstance(got[8], morwen.Error) and got[9].startswith("S-1-22-1-") and len(refused) == 5, (got, refused)
    listener.close()

refused, port_file = [], os.path.join(os.environ["MORWEN_REALM_DIR"], "python.port")
with subprocess.Popen([SERVER, "--port-file", port_file], stdout=subprocess.DEVNULL) as server, morwen.Package():
    while not (os.path.exists(port_file) and os.path.getsize(port_file)):
        assert server.poll() is None, "the server does not start"
        time.sleep(0.05)
    try:
        asyncio.run(many(int(open(port_file).read())))
    finally:
        server.terminate()
    child = os.fork()  # when the pool has threads
    if child == 0:
        signal.alarm(10)
        os._exit(0 if asyncio.run(aio.run(os.getpid)) == os.getpid() else 1)
    assert os.waitpid(child, 0)[1] == 0, "a forked child waits for its parent's threads"
assert server.returncode == 0, server.returncode

for spn, status, words in ((SPN, 0, "this thread acts as the user"), ("nobody/localhost", 1, "SSOStartLogin: code 100: ")):
    done = subprocess.run([sys.executable, EXAMPLE, spn], text=True, timeout=30, capture_output=True)
    assert done.returncode == status and words in done.stdout + done.stderr, done
