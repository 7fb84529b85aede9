"""Faults of the surroundings: each has a clear code in bounded time, and the next logon works when it is gone.

Usage: scripts/realm surroundings_test.py SLOW_ACCOUNT [CASE]. Each case runs in a process of its own, through the Python module.
"""
import concurrent.futures, contextlib, ctypes, os, pathlib, re, resource, select, shutil, signal, socket, subprocess, sys, threading, time  # noqa: E401
import morwen

REALM = os.environ["MORWEN_REALM_DIR"]
USED, UNTAKEN, BOB = "SSOAcceptLogin: code 100", "SSOStartLogin: code 100", ("MORWEN\\bob", "bob-secret")


def outcome(user="", password="", between=lambda: None, expected=None):
    try:
        client, server = morwen.ClientLogin("morwen/localhost", user, password), morwen.ServerLogin()
        token = client.step()
        between()
        while not client.done:
            token = client.step(server.step(token))
        with server.finish() as who:
            return "" if expected in (None, who.sid) else who.sid
    except morwen.Error as failure:
        return str(failure)


def expect(words, *arguments, within=3):
    select.select([], [], [], 0.02)  # not sleep, which libfaketime breaks: the library looks at a file once in a tick of the clock
    began = time.monotonic()
    got = outcome(*arguments)
    took = time.monotonic() - began
    assert (words in got) if words else not got, f"expected \"{words}\", got \"{got}\""
    assert took < within, f"took {took} seconds"


def put(name, content):
    pathlib.Path(name + ".new").write_bytes(content)
    os.replace(name + ".new", name)


def replaced(name, words):
    good = pathlib.Path(name).read_bytes()
    for content in (b"", b"garbage", good[:40], None):
        put(name, content) if content is not None else os.remove(name)
        expect(words)
        put(name, good)
        expect("")
    select.select([], [], [], 0.1)  # until its time is long past
    expect("")
    os.chmod(name, 0)
    expect(words)
    os.chmod(name, 0o600)
    expect("")


def keytab():
    replaced("service.keytab", USED)


def tickets():
    replaced("alice.cc", UNTAKEN)
    subprocess.run(["kinit", "-c", "bob.cc", "bob"], input=b"bob-secret", check=True, stdout=subprocess.DEVNULL)
    put("alice.cc", pathlib.Path("bob.cc").read_bytes())
    expect("", "", "", lambda: None, f"S-1-22-1-{os.geteuid()}")


def responder(answer):
    """The address of a KDC that answers so."""
    def serve():
        while True:
            request, who = udp.recvfrom(10000)
            udp.sendto(answer(request), who)
    udp = socket.socket(type=socket.SOCK_DGRAM)
    udp.bind(("127.0.0.1", 0))
    threading.Thread(target=serve, daemon=True).start()
    return "127.0.0.1:%d" % udp.getsockname()[1]


def kdc():
    def slow(request):
        time.sleep(0.8)
        with socket.socket(type=socket.SOCK_DGRAM) as there:
            there.sendto(request, (address.split(":")[0], int(address.split(":")[1])))
            return there.recv(10000)

    def become(other):
        put("krb5.conf", good.replace(address.encode(), other.encode()))
        time.sleep(1.1)  # the configuration is looked at once a second
    good, dead = pathlib.Path("krb5.conf").read_bytes(), "127.0.0.1:1"
    address = re.search(r" kdc = (\S+)", good.decode()).group(1)
    expect("", *BOB, lambda: become(dead))  # gone between the two halves
    for other, words, within in ((dead, UNTAKEN, 3), (responder(lambda _: os.urandom(700)), UNTAKEN, 12), (responder(slow), "", 8)):
        become(other)
        expect(words, *BOB, within=within)
        expect("")  # with a ticket that is there, no KDC is needed
        become(address)
        expect("", *BOB)


def configuration():
    good = pathlib.Path("krb5.conf").read_bytes()
    package.__exit__()  # which forgets that Kerberos could be used
    for content, words in ((b"[libdefaults\n", "SSOInitProvider: code 100"), (good, "")):
        put("krb5.conf", content)
        time.sleep(1.1)  # it is looked at once a second
        got = ""
        try:
            package.__enter__()
        except morwen.Error as failure:
            got = str(failure)
        assert ((words in got and "The security package Kerberos/SSPI" in got) if words else not got), got
    expect("")


def clock():
    for ahead in ("+11h", "-2h"):
        put("time", ahead.encode())
        expect("code 100")
        put("time", b"+0")
        expect("")


def limited(kind, value):
    was = resource.getrlimit(kind)
    resource.setrlimit(kind, (value, was[1]))
    got = outcome()
    resource.setrlimit(kind, was)
    return got


def full_disk():
    signal.signal(signal.SIGXFSZ, signal.SIG_DFL)  # as in any host but Python
    shutil.rmtree("rcache")
    os.mkdir("rcache")
    for value in (0, 16, 1):
        assert USED in limited(resource.RLIMIT_FSIZE, value)
    expect("")


def descriptors():
    refused, before = 0, os.listdir("/proc/self/fd")
    for value in range(3, 40):
        refused += "code 100" in limited(resource.RLIMIT_NOFILE, value)
        expect("")
    assert refused and os.listdir("/proc/self/fd") == before, refused


def forked(work):
    child = os.fork()
    if child == 0:
        signal.alarm(5)
        work()
        ctypes.CDLL(None).exit(0)  # with all that runs at a program's end; the package has not been ended
    assert os.waitpid(child, 0)[1] == 0, "the child did not end cleanly"


def again():
    package.__exit__()
    with contextlib.suppress(morwen.Error):  # where its parent's threads had locked what they were at work with
        package.__enter__()
        package.__exit__()


def fork():
    for work in (lambda: None, lambda: expect(""), package.__exit__):  # a thread of the library runs since the first logon
        forked(work)
        expect("")
    with logging_on():  # whatever their locks protect just then
        for _ in range(100):
            forked(lambda: None)
            forked(package.__exit__)
            forked(again)


def account():
    assert os.geteuid() == 0, "alice and bob have one account"
    time.sleep(1.1)  # what was looked up before is forgotten
    put("slow", b"")
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        slow = pool.submit(expect, "", within=30)  # alice is nobody here
        waits = []
        while not slow.done():
            began = time.monotonic()
            expect("", *BOB, within=30)
            waits.append(time.monotonic() - began)
    assert len(waits) > 3 and max(waits) < 2, waits
    slow.result()


def children(count=300, close=True):
    with logging_on():
        seen = [subprocess.run(["ls", "-l", "/proc/self/fd"], close_fds=close, capture_output=True, text=True).stdout for _ in range(count)]
    inherited = sum("rcache2" in files for files in seen)
    assert all(seen) and not inherited, f"{inherited} of {count} have the replay file"


@contextlib.contextmanager
def logging_on():
    def log_on():
        while running:
            seen.add(outcome())
    running, seen = True, set()
    threads = [threading.Thread(target=log_on) for _ in range(4)]
    for thread in threads:
        thread.start()
    try:
        yield seen
    finally:
        running = False
        for thread in threads:
            thread.join()
    expect("")


def end():
    with logging_on() as seen:
        for _ in range(20):
            time.sleep(0.05)
            package.__exit__()
            assert "code 100" in outcome()
            package.__enter__()
    assert "" in seen and all("code 100" in words for words in seen if words), seen


def run(name):
    folder = os.path.join(REALM, name)
    os.makedirs(os.path.join(folder, "rcache"))
    for file in ("krb5.conf", "alice.cc", "service.keytab"):
        shutil.copy(os.path.join(REALM, file), folder)
    put(os.path.join(folder, "time"), b"+0")
    env = {**os.environ, "KRB5_CONFIG": "krb5.conf", "KRB5CCNAME": "FILE:alice.cc", "KRB5_KTNAME": "FILE:service.keytab", "KRB5RCACHEDIR": "rcache"}
    if name == "clock":
        env |= {"LD_PRELOAD": "/usr/$LIB/faketime/libfaketimeMT.so.1", "FAKETIME_TIMESTAMP_FILE": folder + "/time", "FAKETIME_NO_CACHE": "1",
                "FAKETIME_DONT_FAKE_MONOTONIC": "1"}
    if name == "account":
        env |= {"LD_PRELOAD": sys.argv[1]}
    plain = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []  # root, but not above modes
    began = time.monotonic()
    done = subprocess.run([*plain, sys.executable, __file__, *sys.argv[1:], name], cwd=folder, env=env, timeout=50, capture_output=True, text=True)
    print(f"{name}: {'holds' if done.returncode == 0 else 'DOES NOT HOLD'}, {time.monotonic() - began:.1f} s")
    return "" if done.returncode == 0 else f"{name} ended with {done.returncode}: {done.stdout}{done.stderr}"


if len(sys.argv) == 2:
    cases = ("kdc", "end", "configuration", "clock", "fork", "children", "keytab", "tickets", "full_disk", "descriptors")
    cases += ("account",) * (os.geteuid() == 0)
    with concurrent.futures.ThreadPoolExecutor(3) as pool:
        sys.exit("\n".join(filter(None, pool.map(run, cases))) or 0)
package = morwen.Package()
package.__enter__()
expect("")
globals()[sys.argv[2]](*map(int, sys.argv[3:]))  # and ends without ending the package
