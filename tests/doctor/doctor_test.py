"""Breaks a private realm in every way that morwen-doctor has a finding for. Usage: scripts/realm doctor_test.py PROGRAM DOCUMENT COMPLETION HOST"""
import json, os, pwd, re, socket, subprocess, sys, threading, time  # noqa: E401

DOCTOR, DOCUMENT, COMPLETION, HOST = sys.argv[1:]
DIR = os.environ["MORWEN_REALM_DIR"]
ROOT = os.geteuid() == 0
AS_NOBODY = ["setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups"]
CONF = open(os.environ["KRB5_CONFIG"]).read()
KDC = re.search(r" kdc = (\S+)", CONF).group(1)
seen, faults, kept, further = set(), [], [], []
# What a host is told of what the administrator breaks and the doctor finds: the first words of the reason.
REASONS = {
    "no configuration": r'getting a ticket for morwen/localhost for alice@MORWEN.TEST .*Cannot find KDC for realm "MORWEN.TEST"',
    "configuration with a brace open": r"a line of the Kerberos configuration cannot be read \(.*/syntax.conf, or a file that it includes\); morwen-doctor",
    "small realm": 'getting a ticket .*Cannot find KDC for realm "MORWEN.TEST"',
    "host in another realm": "getting a ticket for morwen/localhost .*Server krbtgt/OTHER.TEST@MORWEN.TEST not found",
    "unknown realm": "the ticket brings .*mapping alice@MORWEN.TEST to a local account by the rules of the default realm, NO.TEST",
    "slip in the name": "getting a ticket for morwne/localhost .*Server morwne/localhost@MORWEN.TEST not found",
    "tickets kept by nobody": "the credential cache KCM: cannot be used: No KCM server found",
    "KDC without address": r"getting .*No KDC of the realm MORWEN.TEST has answered .*: kdc.invalid:88 host name not found\.",
    "closed port": r"getting .*127.0.0.1:1 \(TCP\) Connection refused; 127.0.0.1:1 \(UDP\) Connection refused\.",
    "silent KDC": r"getting .*\(TCP\) no answer",
    "clock": "getting a ticket .*Clock skew too great",
    "no cache": "there are no tickets to log on with in FILE:.*none.cc: No credentials cache found",
    "unreadable cache": "there are no tickets .*alice.cc: Credentials cache permissions incorrect",
    "default cache of another": "the default credential cache .*owned.cc is not used, because it is a file of the account with the number",
    "expired ticket": r"the ticket of alice@MORWEN.TEST in .*expired at .* UTC; log on again \(kinit\)",
    "wrong case": "getting a ticket for MORWEN/localhost .*Server MORWEN/localhost@MORWEN.TEST not found",
    "no keytab": "the service's keytab FILE:.*none.keytab cannot be read: .* not found",
    "empty keytab": "the service's keytab FILE:.*empty.keytab holds no key",
    "keytab of another service": "refused a logon to morwen/localhost@MORWEN.TEST .*isn't for us; the keytab has old/localhost@MORWEN.TEST",
    "rc4 alone": "getting a ticket for rc4-hmac/localhost .*no support for encryption type",
    "old key": "refused a logon to old/localhost@MORWEN.TEST .*the ticket is for key version 3, the keytab has 2",
    "wrong key": "refused a logon to other/localhost@MORWEN.TEST .*the keytab's key for the service does not open the ticket",
    "no folder for the replay cache": "refused a logon .*No such file or directory .*none/krb5_.*rcache2",
    "user who may not be acted as": "the user maps to root, whom no logon may act as; see auth_to_local",
    "client's old ticket": "refused a logon .*the ticket is for key version 1, the keytab has 2",
}


def path(name):
    return os.path.join(DIR, name)


def write(name, content, mode=0o600):
    with open(path(name), "wb") as file:
        file.write(content if isinstance(content, bytes) else content.encode())
    os.chmod(path(name), mode)
    return path(name)


def sh(command, text=""):
    done = subprocess.run(["sh", "-c", command], input=text, capture_output=True, text=True, cwd=DIR, timeout=30)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"


def config(name, *changes):
    text = CONF
    for old, new in changes:
        assert old in text, old
        text = text.replace(old, new)
    return {"KRB5_CONFIG": write(name + ".conf", text, 0o644)}


def kdcs(name, *addresses):
    return config(name, (f"kdc = {KDC}", "\n".join("kdc = " + address for address in addresses)))


def expect(name, report, status, expected):
    """The findings must be the expected ones, each with a meaning and a remedy, and decide the exit status."""
    seen.update(expected)
    found = {f["id"]: f["status"] for f in report["findings"] if f["status"] in ("warning", "error")}
    if found != expected or status != int("error" in found.values()):
        faults.append(f"{name}: expected {expected}, got {found}, exit status {status}: {json.dumps(report, indent=1)}")
    silent = [f["id"] for f in report["findings"] if f["id"] in found and not (f.get("meaning") and f.get("remedy"))]
    faults.extend(f"{name}: no meaning or remedy: {id}" for id in silent)


def report_in(text):
    assert "{\n" in text, text
    return json.JSONDecoder().raw_decode(text[text.index("{\n"):])[0]


def check(name, args, env, expected, library="", nobody=False, words="", prefix=()):
    if (nobody or prefix or "--account" in args) and not ROOT:
        return (faults.append if os.environ.get("CI") == "true" else print)(f"skipped, needs root: {name}")
    sh("cp -p fresh.cc alice.cc")  # without the tickets for services that the row before has left
    command = [*prefix, *(AS_NOBODY if nobody else []), DOCTOR, *args.split(), "--json", "--timeout", "1"]
    whole = {name: value for name, value in {**os.environ, **env}.items() if value is not None}
    done = subprocess.run(command, env=whole, capture_output=True, text=True, timeout=40, input="bob-secret\n")
    report = report_in(done.stdout + done.stderr)
    expect(name, report, done.returncode, expected)
    if name in REASONS:
        sh("cp -p fresh.cc alice.cc")
        command = [*prefix, *(AS_NOBODY if nobody else []), HOST, args.split()[2]]
        told = subprocess.run(command, env=whole, capture_output=True, text=True, timeout=40)
        if not re.search(r"SSO\w+: code \d+: " + REASONS.pop(name), told.stdout + told.stderr):
            faults.append(f"{name}: a host is told: {told.stdout}{told.stderr}")
    if words not in "".join(f["found"] + f.get("remedy", "") for f in report["findings"] if f["status"] in ("warning", "error")):
        faults.append(f"{name}: findings and remedies lack \"{words}\": {json.dumps(report, indent=1)}")
    if library not in "".join(f.get("library", "") for f in report["findings"]):
        faults.append(f"{name}: the library's words lack \"{library}\": {json.dumps(report, indent=1)}")


def relayed(request):  # what the KDC answers, as a directory would put it that does not serve the realm
    with socket.create_connection(KDC.split(":")) as kdc:
        kdc.sendall(request)
        return kdc.recv(10000).replace(b"\xa6\3\2\1\6", b"\xa6\3\2\1\x44")


def listen(answer):
    """A port that takes connections and datagrams, and answers over TCP, or never."""
    def serve():
        while answer:
            connection = tcp.accept()[0]
            connection.sendall(answer(connection.recv(10000)))
    tcp, udp = socket.socket(), socket.socket(type=socket.SOCK_DGRAM)
    tcp.bind(("127.0.0.1", 0))
    udp.bind(tcp.getsockname())
    tcp.listen()
    threading.Thread(target=serve, daemon=True).start()
    kept.extend((tcp, udp))
    return "127.0.0.1:%d" % tcp.getsockname()[1]


def start_kdc(name, prefix, old="", new=""):
    """Another KDC of the realm. Returns its address."""
    with socket.socket() as free:
        free.bind((KDC.split(":")[0], 0))
        address = free.getsockname()
    text = open(os.environ["KRB5_KDC_PROFILE"]).read().replace(KDC, "%s:%d" % address).replace(old, new)
    command = [*prefix, "setpriv", "--pdeathsig", "KILL", "krb5kdc", "-n", "-r", "MORWEN.TEST"]  # faketime waits in between
    further.append(subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                    env={**os.environ, "KRB5_KDC_PROFILE": write(name + ".kdc", text)}))
    for _ in range(500):
        try:
            return "%s:%d" % socket.create_connection(address).getpeername()
        except ConnectionRefusedError:
            time.sleep(0.02)
    raise AssertionError("no further KDC")


def prepare():
    sh("kadmin.local -r MORWEN.TEST", """
addprinc -randkey old/localhost
ktadd -k old.keytab old/localhost
addprinc -randkey stale/localhost
addprinc -randkey typed/localhost
ktadd -k all.keytab typed/localhost
addprinc -randkey other/localhost
addprinc -randkey -allow_svr u2u/localhost
addprinc -pw bob-secret -pwexpire 2001-01-01 lapsed
addprinc -pw bob-secret -allow_tix locked
ktadd -k lapsed.keytab -norandkey lapsed
""")
    for cache, options, user in (("short", "-l 1s", "alice"), ("fixed", "-F", "alice"), ("stale", "", "alice"), ("bob", "", "bob"),
                                 ("service", "-S morwen/localhost", "alice")):
        sh(f"kinit {options} -c {cache}.cc {user}", user + "-secret")
    sh("kvno -c stale.cc stale/localhost")
    sh("kadmin.local -r MORWEN.TEST", "cpw -randkey old/localhost\nktadd -k stale.keytab stale/localhost\n")
    sh("ktutil", "rkt all.keytab\ndelent 1\nwkt typed.keytab\nclear\n"
       "addent -password -p other/localhost@MORWEN.TEST -k 1 -e aes256-cts-hmac-sha1-96\nwrong\nwkt other.keytab\n")
    sh("cp alice.cc exposed.cc; cp service.keytab exposed.keytab; chmod 644 exposed.*; cp alice.cc owned.cc;"
       "cp service.keytab owned.keytab; cp -p alice.cc fresh.cc; mkfifo pipe; mkdir open link own; chmod 700 own; ln -s nowhere link/krb5_$(id -u).rcache2; chmod 1777 open;"
       "chmod 711 .; [ $(id -u) != 0 ] || chown nobody owned.* own")
    write("alias.hosts", "127.0.0.1 localhost\n127.0.0.1 www.localhost.test\n", 0o644)
    write("included.conf", "\n[logging]\n kdc here\n", 0o644)


def run_checks(skewed, half):
    client, server = "client --spn morwen/localhost", "server --spn morwen/localhost"
    cache, keytab, error, warning = (lambda name: {"KRB5CCNAME": "FILE:" + path(name)}), (lambda name: {"KRB5_KTNAME": path(name)}), "error", "warning"
    nobody_server = {**keytab("owned.keytab"), **cache("none.cc"), "KRB5RCACHEDIR": path("open")}
    for row in (
        ("healthy client", client, {}, {}),
        ("healthy client that delegates", "client --spn fwd/localhost --delegation", {}, {}),
        ("healthy server", server + " --user alice", {}, {}),
        ("healthy server without a user's ticket", server, cache("none.cc"), {}),
        ("no configuration", client, {"KRB5_CONFIG": path("nowhere")}, {"config-missing": error}),
        ("configuration with a brace open", client, config("syntax", ("[domain_realm]", "[domain_realm")), {"config-syntax": error}, "", False, 'syntax.conf, line %d: "[domain_realm"' % (1 + CONF[:CONF.index("[domain_")].count("\n"))),
        ("included configuration", client, config("includes", ("[realms]", f"include {path('included.conf')}\n[realms]")),
         {"config-syntax": error}, "", False, 'included.conf, line 3: "kdc here"'),
        ("configuration of others", client, {"KRB5_CONFIG": write("secret.conf", CONF)}, {"config-unreadable": error}, "", True),
        ("no default realm", client, config("norealm", ("default_realm = MORWEN.TEST", "")), {"realm-missing": error}),
        ("unknown realm", client, config("unknown", ("default_realm = MORWEN.TEST", "default_realm = NO.TEST")), {"kdc-unknown": error}),
        ("small realm", client, config("small", ("MORWEN.TEST", "morwen.test")), {"realm-case": error}, "", False, "write MORWEN.TEST"),
        ("small realm, server", server, {**config("small", ("MORWEN.TEST", "morwen.test")), **cache("none.cc")}, {"realm-case": error}),
        ("small realm in one place", client, config("mixed", ("localhost = MORWEN.TEST", "localhost = morwen.test")), {"realm-case": error}),
        ("host in another realm", client, config("moved", ("localhost = MORWEN.TEST", "localhost = OTHER.TEST")), {"host-realm": error},
         "krbtgt/OTHER.TEST@MORWEN.TEST", False, "it must say MORWEN.TEST"),
        ("host in another realm, server", server, {**config("moved", ("localhost = MORWEN.TEST", "localhost = OTHER.TEST")), **cache("none.cc")},
         {"host-realm": error}),
        ("slip in the name", "client --spn morwne/localhost", {}, {"spn-typo": error}, "not found", False, "use morwen/localhost"),
        ("slip in the name, server", "server --spn morwem/localhost", cache("none.cc"), {"spn-typo": error}, "", False, "use morwen/localhost"),
        ("alias on its own line", "client --spn morwen/www.localhost.test", {}, {"spn-alias": error}, "", False, "is known: morwen/localhost",
         ["unshare", "-m", "sh", "-c", f'mount --bind {path("alias.hosts")} /etc/hosts && exec "$@"', "sh"]),
        ("tickets kept by nobody", client, {"KRB5CCNAME": "KCM:"}, {"cache-service": error}, "No KCM server", False, "sssd-kcm.socket"),
        ("root's keytab", server + " --account nobody", {"KRB5RCACHEDIR": path("own")}, {"keytab-unreadable": error}, "cannot be read", False, "chown nobody"),
        ("healthy service account", server + " --account nobody --impersonate --user alice", {**keytab("owned.keytab"), "KRB5RCACHEDIR": path("own")}, {}),
        ("service account without its folder", server + " --account nobody", keytab("owned.keytab"), {"replay-cache-unwritable": error}),
        ("good password", client + " --user MORWEN\\bob --password-fd 0", cache("none.cc"), {}),
        ("wrong password", client + " --user alice --password-fd 0", {}, {"password-wrong": error}),
        ("old password", client + " --user lapsed --password-fd 0", {}, {"password-expired": error}),
        ("locked user", client + " --user locked --password-fd 0", {}, {"user-locked": error}),
        ("unknown user", client + " --user bobb --password-fd 0", {}, {"user-unknown": error}),
        ("user of a dead realm", client + " --user DEAD.TEST\\bob --password-fd 0", {}, {"password-refused": error}),
        ("no realm", "client --spn morwen/localhost@:", {}, {"spn-malformed": error}),
        ("KDC without address", client, kdcs("address", "kdc.invalid:88"), {"kdc-unresolvable": error}, "host name not found"),
        ("closed port", client, kdcs("closed", "127.0.0.1:1"), {"kdc-refused": error}, "Connection refused"),
        ("silent KDC", client, kdcs("silent", listen(None)), {"kdc-silent": error}),
        ("no KDC", client, kdcs("junk", listen(lambda _: b"\0\0\0\4junk")), {"kdc-not-kerberos": error}, "not Kerberos"),
        ("one of two KDCs dead", client, kdcs("two", "127.0.0.1:1", KDC), {"kdc-refused": warning}),
        ("KDC of another realm", client, kdcs("other", listen(relayed)), {"kdc-wrong-realm": error}),
        ("UDP alone is blocked", client, kdcs("half", half), {"kdc-one-protocol": warning}),
        ("clock", client, kdcs("skewed", skewed), {"clock-skew": error}, "Clock skew too great"),
        ("clock of one of two KDCs", "server --spn old/localhost", {**kdcs("two-clocks", KDC, skewed), **keytab("old.keytab")},
         {"clock-skew": error, "keytab-kvno": error}),
        ("no cache", client, cache("none.cc"), {"cache-missing": error}, "there are no tickets to log on with"),
        ("unreadable cache", client, {}, {"cache-unreadable": error}, "there are no tickets", True),
        ("cache of another", client, cache("owned.cc"), {"cache-owner": warning} if ROOT else {}),
        ("default cache of another", client, {"KRB5CCNAME": None, **config("planted", ("rdns", f"default_ccache_name = FILE:{path('owned.cc')}\nrdns"))},
         {"cache-planted": error} if ROOT else {}, "is a file of the account with the number" if ROOT else ""),
        ("pipe as default cache", client, {"KRB5CCNAME": None, **config("pipe", ("rdns", f"default_ccache_name = FILE:{path('pipe')}\nrdns"))},
         {"cache-planted": error}, "is no regular file"),
        ("pipe as default cache, server", server, {"KRB5CCNAME": None, "KRB5_CONFIG": path("pipe.conf")}, {}),
        ("readable cache", client, cache("exposed.cc"), {"cache-exposed": warning}),
        ("no cache at all", client, cache("old.keytab"), {"cache-broken": error}, "there are no tickets"),
        ("cache with a service's ticket", "client --spn fwd/localhost", cache("service.cc"), {"ticket-missing": error}),
        ("expired ticket", client, cache("short.cc"), {"ticket-expired": error}, "expired at"),
        ("fixed ticket", "client --spn fwd/localhost --delegation", cache("fixed.cc"), {"ticket-not-forwardable": error}),
        ("no service's name", "client --spn morwen", {}, {"spn-malformed": error}),
        ("wrong case", "client --spn MORWEN/localhost", {}, {"spn-case": error}, "not found in Kerberos database"),
        ("unknown service", "client --spn nobody/localhost", {}, {"spn-unknown": error}, "not found in Kerberos database"),
        ("name of three parts", "client --spn ldap/localhost/x", {}, {"spn-unknown": error}, "", False, "addprinc -randkey ldap/localhost/x"),
        ("unknown host", "client --spn morwen/no.invalid", {}, {"host-unresolvable": warning, "spn-unknown": error}),
        ("no common type", client, config("type", ("rdns", "default_tgs_enctypes = camellia128-cts-cmac\nrdns")), {"spn-enctype": error}),
        ("service that takes no tickets", "client --spn u2u/localhost", {}, {"ticket-refused": error}),
        ("old ticket", "client --spn stale/localhost", cache("stale.cc"), {"ticket-stale": error}, "", False, "it is for key version 1; the KDC uses version 2"),
        ("untrusted service", client + " --delegation", {}, {"delegation-untrusted": error}),
        ("no keytab", server, keytab("none.keytab"), {"keytab-missing": error}, "keytab"),
        ("unreadable keytab", server, {**nobody_server, **keytab("service.keytab")}, {"keytab-unreadable": error}, "cannot be read", True),
        ("cache as keytab", server, keytab("alice.cc"), {"keytab-broken": error}, "cannot be read"),
        ("empty keytab", server, {"KRB5_KTNAME": write("empty.keytab", b"\5\2")}, {"keytab-empty": error}, "holds no key"),
        ("readable keytab", server, keytab("exposed.keytab"), {"keytab-exposed": warning}),
        ("keytab of another service", server, keytab("old.keytab"), {"keytab-no-spn": error}, "refused a logon"),
        ("rc4 alone", "server --spn rc4-hmac/localhost", {}, {"keytab-weak": error}, "etting a ticket for rc4-hmac"),
        ("rc4 alone, for a client", "client --spn rc4-hmac/localhost", {}, {"spn-enctype": error}, "etting a ticket for rc4-hmac"),
        ("rc4 allowed", "server --spn rc4-hmac/localhost", config("rc4", ("rdns", "allow_rc4 = true\nrdns")), {"keytab-weak": warning}),
        ("old key", "server --spn old/localhost", keytab("old.keytab"), {"keytab-kvno": error}, "the ticket is for key version 3, the keytab has 2"),
        ("key without aes256", "server --spn typed/localhost", keytab("typed.keytab"), {"keytab-enctype": error}, "refused"),
        ("wrong key", "server --spn other/localhost", keytab("other.keytab"), {"keytab-key": error}, "refused a logon"),
        ("old key, without a user's ticket", "server --spn old/localhost", {**keytab("old.keytab"), **cache("none.cc")}, {"keytab-key": error}),
        ("service elsewhere", "server --spn morwen/192.0.2.1", {}, {"host-elsewhere": warning, "spn-unknown": error}),
        ("no replay cache", server, {"KRB5RCACHENAME": "none:"}, {"replay-cache-off": warning}),
        ("no folder for the replay cache", server, {"KRB5RCACHEDIR": path("none")}, {"replay-cache-unwritable": error}, "refused a logon"),
        ("replay cache behind a link", server, {"KRB5RCACHEDIR": path("link")}, {"replay-cache-owner": error}, "refused"),
        ("trusted service that goes on", "server --spn fwd/localhost --second-hop morwen/localhost", {}, {}),
        ("no list", server + " --second-hop fwd/localhost", {}, {"hop-refused": error}, "", False, "add-service morwen/localhost fwd/localhost"),
        ("no account", server + " --second-hop fwd/localhost", {"KRB5_CLIENT_KTNAME": path("lapsed.keytab")}, {"hop-no-account": error}, "", False,
         "lapsed.keytab has no account"),
        ("user who is not forwarded", server + " --second-hop fwd/localhost", cache("fixed.cc"), {"hop-not-forwardable": error}),
        ("slip in the other service", server + " --second-hop fwdd/localhost", {}, {"spn-typo": error}, "", False, "use fwd/localhost"),
        ("no rule", server + " --user erin@DEAD.TEST", {}, {"account-unmapped": error}),
        ("no account", server + " --user erin", {}, {"account-missing": error}),
        ("root", server + " --impersonate --user bob", {}, {"account-root": error} if ROOT else {}),
        ("no privilege", server + " --impersonate --user bob", nobody_server,
         {"account-root": error, "impersonation-privilege": error}, "", True),
        ("no right", server + " --impersonate", nobody_server, {"impersonation-privilege": error}, "", True),
        ("user who may not be acted as", server + " --impersonate", cache("bob.cc"), {"logon-fails": error} if ROOT else {"impersonation-privilege": error}),
        ("client's old ticket", "server --spn stale/localhost", {**keytab("stale.keytab"), **cache("stale.cc")}, {"ticket-stale": error},
         "the ticket is for key version 1, the keytab has 2", False, "it is for key version 1; the keytab has 2"),
    ):
        check(*row)


def finish(name, expected, *processes):
    """Both halves of a logon end by themselves; their reports are on standard error or output."""
    for process, wanted in zip(processes, expected):
        out, err = process.communicate(timeout=40)
        report = report_in((out or "") + err)
        expect(f"{name}, {report['command']}", report, process.returncode, wanted)
    return report  # the accepting side's


def start(args, env={}, **files):
    return subprocess.Popen([DOCTOR, *args.split(), "--json", "--timeout", "20"], env={**os.environ, **env},
                            stderr=subprocess.PIPE, text=True, **files)


def log_on_by_socket(name, expected, login_env={}, accept_env={}, accept="accept"):
    server = start(accept, accept_env, stdout=subprocess.PIPE)
    port = next(m for m in (re.search(r"listening on 127.0.0.1:(\d+)", line) for line in server.stderr) if m).group(1)
    client = start(f"login --spn morwen/localhost --connect localhost:{port}", login_env, stdout=subprocess.PIPE)
    return finish(name, expected, client, server)


def run_logons():
    # Threads trace while the address is told, so every line must be one write; such a socket keeps them apart.
    ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    with ours, theirs:
        subprocess.run([DOCTOR, *"accept --impersonate --trace --timeout 1".split()], stdout=subprocess.DEVNULL, stderr=theirs, timeout=40)
        theirs.close()
        writes = list(iter(lambda: ours.recv(10000), b""))
    assert len(writes) > 5 and all(text.endswith(b"\n") for text in writes), writes
    user = pwd.getpwnam("nobody").pw_uid if ROOT else os.geteuid()
    report = log_on_by_socket("socket", ({}, {}), accept="accept --impersonate --trace")
    assert report["user"] == [f"S-1-22-1-{user}"] and f"uid {user}" in report["impersonated"][0], report
    assert any("Success" in line or "accept" in line.lower() for line in report["trace"]), report["trace"]
    if ROOT:
        log_on_by_socket("root", ({}, {"impersonation-failed": "error"}), {"KRB5CCNAME": path("bob.cc")},
                         accept="accept --impersonate")
    log_on_by_socket("wrong keytab", ({"login-refused": "error"}, {"accept-refused": "error"}),
                     accept_env={"KRB5_KTNAME": path("old.keytab")})
    client = start("login --spn morwen/localhost", stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    server = start("accept --stdio", stdin=client.stdout, stdout=client.stdin)
    client.stdin, client.stdout = client.stdin.close(), client.stdout.close()
    finish("standard input and output", ({}, {}), client, server)
    for args, env, text, wanted, words in (
        ("login --spn morwen/localhost", {}, "morwen token 3\nAAAA\nmorwen end\n", "login-unproven", "message"),
        ("login --spn nobody/localhost", {}, "", "login-failed", "message 42254"),
        ("login --spn morwen/localhost --connect 127.0.0.1:1", {}, "", "peer-unusable", "refused"),
        ("accept --stdio", {}, "", "peer-unusable", "gone"),
        ("accept --stdio", {}, "morwen done\n", "peer-unusable", "before it has sent a token"),
        ("accept --stdio", {}, "x" * 100000, "peer-unusable", "too long"),
        ("accept --stdio", {}, "\n" * 2000, "peer-unusable", "nothing of a logon"),
        ("accept --stdio", {}, "morwen token 999999999\n", "peer-unusable", "impossible length"),
        ("accept --stdio", {}, "morwen token 3\nAAAAAAAA\n", "peer-unusable", "more than its 3 bytes"),
        ("accept --stdio", {}, "morwen token 6\nAAAA\nmorwen end\n", "peer-unusable", "was lost"),
        ("accept --stdio", {}, "  > hello\n\n  morwen token 3 \r\n AAAA \r\nmorwen end", "peer-unusable", "gone"),
        ("accept --stdio", {}, "  hello\n\n  morwen token 3 \r\n AAAA \r\nmorwen end\n", "accept-refused", "code 100"),
    ):
        process = start(args, env, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        out, err = process.communicate(text, timeout=40)
        report = report_in(out + err)
        expect(args + ": " + text[:40], report, process.returncode, {wanted: "error"})
        assert words in report["findings"][-1]["found"], report


def run_usage():
    for args, status in (("", 2), ("clinet", 2), ("client --no-such", 2), ("login", 2), ("server --account no-such", 2), ("--help", 0), ("findings", 0)):
        done = subprocess.run([DOCTOR, *args.split()], capture_output=True, text=True)
        assert done.returncode == status, done
    listed = {line.split("\t")[0] for line in done.stdout.splitlines()}
    documented = set(re.findall(r"^\| `([a-z0-9-]+)` \| ", open(DOCUMENT).read(), re.M))
    assert listed == documented, f"findings and document differ: {listed ^ documented}"
    assert not ROOT or not REASONS, f"breakages that no row has: {REASONS}"
    assert not ROOT or listed == seen, f"findings that no broken realm here has: {listed ^ seen}"
    completed = subprocess.run(["bash", "-c", f'. "{COMPLETION}"; COMP_WORDS=(d server --imp) COMP_CWORD=2; _morwen_doctor; echo "$COMPREPLY"'],
                               capture_output=True, text=True, env={**os.environ, "PATH": os.path.dirname(DOCTOR) + ":" + os.environ["PATH"]})
    assert completed.stdout == "--impersonate\n", completed
    shown = subprocess.run([DOCTOR, "client", "--spn", "\x1b[31m/x"], capture_output=True, text=True).stdout
    assert "\x1b" not in shown and "Remedy: " in shown, shown


try:
    prepare()
    run_checks(start_kdc("skewed", ["faketime", "-f", "+600s"]), start_kdc("half", [], "kdc_listen =", 'kdc_listen = ""\n;'))
    run_logons()
    run_usage()
finally:
    print("\n".join(faults), f"{len(seen)} findings seen", sep="\n")
    [process.kill() for process in further]
sys.exit(len(faults) != 0)
