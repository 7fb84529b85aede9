"""Logons between this library and programs of other makers, in a private realm. docs/interoperability.md must show what comes of
each; a row whose program is not installed is named and skipped, but not where CI=true.

Usage: scripts/realm peers_test.py WEB_SERVER [PART OF A ROW'S NAME]
"""
import base64, contextlib, functools, hashlib, http.client, os, pathlib, pwd, re, shutil, signal, socket, ssl, struct  # noqa: E401
import subprocess, sys, threading, time  # noqa: E401
import morwen

HERE, DIR, ROOT = pathlib.Path(__file__).parent, pathlib.Path(os.environ["MORWEN_REALM_DIR"]), os.getuid() == 0
NOBODY = pwd.getpwnam("nobody") if ROOT else pwd.getpwuid(os.getuid())
SPN, PRINCIPAL, ALICE = "morwen/localhost", "alice@MORWEN.TEST", f"S-1-22-1-{NOBODY.pw_uid}"
RAW, SPNEGO = ("raw",), ("SPNEGO",)
GOKRB5, APACHE = "/usr/share/gocode/src/github.com/jcmturner/gokrb5", "/usr/lib/apache2/modules"
INITDB = max(pathlib.Path("/usr/lib/postgresql").glob("*/bin/initdb"), default=pathlib.Path("initdb"))
SAME, OTHER = ("tls-server-end-point:" + hashlib.sha256(name).hexdigest() for name in (b"this server", b"another one"))
clean = contextlib.ExitStack()


def run(*command, **more):
    done = subprocess.run(command, text=True, stdin=subprocess.DEVNULL, timeout=60, capture_output=True, **more)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def start(*command, **more):
    process = clean.enter_context(subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *map(str, command)], **more))
    clean.callback(process.terminate)
    return process


def of_kind(token, tokens):
    assert (bytes.fromhex("06062b0601050502") in token[:12]) == (tokens in SPNEGO), f"not {tokens}: {token.hex()[:40]}"
    return token


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def connected(port):
    for _ in range(300):
        with contextlib.suppress(ConnectionRefusedError):
            return socket.create_connection(("127.0.0.1", port), 20)
        time.sleep(0.05)
    raise TimeoutError(f"nobody listens on {port}")


def folder_of_nobody(name):
    """With the services' keys, and a place for a replay cache."""
    folder = DIR / name
    folder.mkdir()
    shutil.copy(DIR / "service.keytab", folder / "keytab")
    for path in (folder, folder / "keytab"):
        os.chown(path, NOBODY.pw_uid, NOBODY.pw_gid)
    return folder, dict(os.environ, KRB5RCACHEDIR=str(folder))


# ---- Tokens as lines: Java and Go ----

def line_peer(*command, **more):
    process = start(*command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, **more)

    def exchange(token=None):
        if token:
            process.stdin.write(base64.b64encode(token).decode() + "\n")
            process.stdin.flush()
        line = process.stdout.readline().strip()
        return base64.b64decode(line[1:]) if line.startswith("t") else line[1:]
    return exchange


def java(half, tokens, binding="", made_by="tls"):
    internal, (kind, _, digits) = ["--add-exports", "java.security.jgss/sun.security.jgss.krb5.internal=ALL-UNNAMED"], binding.partition(":")
    if not (DIR / "Jgss.class").exists():
        run("javac", *internal, "-d", str(DIR), str(HERE / "Jgss.java"))
    return line_peer("java", *internal, "-XX:TieredStopAtLevel=1", "-Djavax.security.auth.useSubjectCredsOnly=false", "-cp", DIR,
                     f"-Djava.security.krb5.conf={DIR}/krb5.conf", "Jgss", half, tokens, SPN,
                     *[f"{kind}:".encode().hex() + digits, made_by] * bool(binding))


def to_morwen(exchange, tokens, mutual=True, rule="ignore"):
    login, token = morwen.ServerLogin(), of_kind(exchange(), tokens)
    try:
        with morwen.Package(channel_bindings=SAME, channel_bindings_rule=rule):
            answer = login.step(token)
    except morwen.Error as error:
        return "refused" if "channel binding" in error.reason else str(error)
    said = exchange(answer) if mutual else ""
    with login.finish() as user:
        return "yes" if user.sid == ALICE and said.partition("@")[0] == SPN * mutual else f"{user} {said}"


def from_morwen(exchange, tokens, **options):
    login = morwen.ClientLogin(SPN, negotiate=tokens in SPNEGO, **options)
    answer = exchange(of_kind(login.step(), tokens))
    if isinstance(answer, str):
        return "refused" if re.search("(?i)channel ?binding", answer) else answer
    login.step(answer)
    said = exchange()
    return "yes" if login.done and said == PRINCIPAL else said


def gokrb5(tokens):
    # Its reader of krb5.conf knows no blocks inside a realm.
    (DIR / "go.conf").write_text(re.sub(r" *auth_to_local_names = \{[^}]*\}\n", "", (DIR / "krb5.conf").read_text()))
    environment = dict(os.environ, GOCACHE=f"{DIR}/go", GO111MODULE="off", GOPATH=GOKRB5.partition("/src/")[0], KRB5_CONFIG=f"{DIR}/go.conf")
    run("go", "build", "-o", f"{DIR}/go-client", str(HERE / "client.go"), env=environment)
    return to_morwen(line_peer(f"{DIR}/go-client", tokens, SPN, env=environment), tokens, mutual=False)


# ---- PostgreSQL: messages of one letter, a length that counts itself, data ----

def receive(stream, letter=True):
    kind = stream.read(1) if letter else b""
    return kind, stream.read(struct.unpack(">I", stream.read(4))[0] - 4)


def send(stream, kind, data=b""):
    stream.write(kind + struct.pack(">I", len(data) + 4) + data)
    stream.flush()


def psql(tokens):
    def serve():
        with listener.accept()[0].makefile("rwb") as stream:
            login = morwen.ServerLogin()
            receive(stream, letter=False)
            send(stream, b"R", struct.pack(">I", 7))
            send(stream, b"R", struct.pack(">I", 8) + login.step(of_kind(receive(stream)[1], tokens)))
            users.append(login.finish().sid)
            send(stream, b"R", bytes(4))
            send(stream, b"Z", b"I")
            receive(stream)  # an empty query, so that psql ends
            send(stream, b"I")
            send(stream, b"Z", b"I")
    users = []
    with socket.create_server(("127.0.0.1", 0)) as listener:
        thread = threading.Thread(target=serve, daemon=True)
        thread.start()
        run("psql", "-X", "-c", "", f"host=localhost port={listener.getsockname()[1]} user=alice dbname=x krbsrvname=morwen "
            "gssencmode=disable sslmode=disable")
        thread.join(10)
    return "yes" if users == [ALICE] else str(users)


def postgresql(tokens):
    (own, environment), port = folder_of_nobody("postgresql"), free_port()
    as_nobody = ["setpriv", f"--reuid={NOBODY.pw_uid}", f"--regid={NOBODY.pw_gid}", "--clear-groups"] if ROOT else []
    run(*as_nobody, str(INITDB), "-D", f"{own}/data", "-U", "alice", "-N", "--no-instructions", "-A", "trust", cwd=own)
    (own / "data/pg_hba.conf").write_text("host all all 127.0.0.1/32 gss include_realm=0\n")
    start(*as_nobody, INITDB.with_name("postgres"), "-D", own / "data", "-h", "127.0.0.1", "-p", port, "-k", own, "-c",
          f"krb_server_keyfile={own}/keytab", "-F", cwd=own, stderr=subprocess.DEVNULL, env=environment)
    login, kind, data = morwen.ClientLogin("postgres/localhost"), b"E", b"starting up"
    while kind == b"E" and b"starting up" in data:
        with connected(port).makefile("rwb") as stream:
            send(stream, b"", struct.pack(">I", 3 << 16) + b"user\0alice\0database\0postgres\0\0")
            kind, data = receive(stream)
            if (kind, data) == (b"R", struct.pack(">I", 7)):
                send(stream, b"p", of_kind(login.step(), tokens))
                login.step(receive(stream)[1][4:])
                kind, data = receive(stream)
    return "yes" if (kind, data, login.done) == (b"R", bytes(4), True) else str(data)


# ---- HTTP ----

def ask(connection, token):
    connection.request("GET", "/", headers={"Authorization": "Negotiate " + base64.b64encode(token).decode()})
    answer = connection.getresponse()
    token = base64.b64decode(answer.headers.get("WWW-Authenticate", "").partition(" ")[2])
    return answer.status, answer.headers["User"], answer.read().decode(), token


def get(connection, tokens, **options):
    """With a ticket: the status, the user, the page, and whether the server is the one that was meant."""
    login = morwen.ClientLogin("HTTP/localhost", negotiate=tokens in SPNEGO, **options)
    *got, token = ask(connection, of_kind(login.step(), tokens))
    if got[0] == 200:
        login.step(token)
    return *got, login.done


@functools.cache
def apache():
    (own, environment), port = folder_of_nobody("apache"), free_port()
    (own / "index.html").write_text("inside")
    modules = "".join(f"LoadModule {name}_module {APACHE}/mod_{name}.so\n" for name in (
        "mpm_event", "authn_core", "authz_core", "authz_user", "auth_gssapi", "headers", "dir"))
    (own / "apache.conf").write_text(f"""{modules}
Listen 127.0.0.1:{port}
ServerName localhost
PidFile {own}/pid
DefaultRuntimeDir {own}
ErrorLog {own}/log
User {NOBODY.pw_name}
Group #{NOBODY.pw_gid}
DocumentRoot {own}
DirectoryIndex index.html
<Location />
    AuthType GSSAPI
    GssapiAllowedMech krb5
    GssapiCredStore keytab:{own}/keytab
    Require user {PRINCIPAL}
    Header set User "expr=%{{REMOTE_USER}}"
</Location>
""")
    start("apache2", "-X", "-d", own, "-f", own / "apache.conf", stdin=subprocess.DEVNULL, env=environment)
    connected(port).close()
    return port


def to_apache(tokens):
    got = get(http.client.HTTPConnection("127.0.0.1", apache()), tokens)
    return "yes" if got == (200, PRINCIPAL, "inside", True) else str(got)


@functools.cache
def web():
    files = DIR / "files"
    files.mkdir()
    for name, owner in (("hers", NOBODY.pw_uid), ("not-hers", os.getuid())):
        (files / name).write_text("the file\n")
        (files / name).chmod(0o600)
        os.chown(files / name, owner, -1)
    (files / "away").symlink_to("../krb5.conf")  # which all may read
    run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", f"{DIR}/key.pem",
        "-out", f"{DIR}/certificate.pem", "-days", "2", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost")
    server = start(sys.executable, sys.argv[1], "--certificate", DIR / "certificate.pem", "--key", DIR / "key.pem", "--files", files,
                   "--port", 0, stdout=subprocess.PIPE, stderr=(DIR / "web.log").open("w"), text=True)
    return int(server.stdout.readline().strip().rpartition(":")[2])


def curl(tokens):
    user, log, page = ("--negotiate", "-u", ":"), ("-v", "--stderr", "-"), f"Welcome, {NOBODY.pw_name}"
    for path, options, words in [
            ("/", user, page), ("/", user, ALICE), ("/files/hers", user, "the file"), *[("/files/not-hers", user, "not for you")] * ROOT,
            ("/files/../krb5.conf", user, "not for you"), ("/files/away", user, "not for you"), ("/files/", user, "not for you"),
            ("/", (), "not logged on"), ("/", ("-d", "x"), "501"), ("/", ("-H", "Authorization: Negotiate eA=="), "not let in"),
            ("/", ("-H", f"A: {'x' * 50000}") * 2, "431"), ("/", user + log, "Authorization: Negotiate YII")]:
        got = run("curl", "-s", "--path-as-is", "--cacert", f"{DIR}/certificate.pem", *options, f"https://localhost:{web()}{path}")
        assert words in got, (path, options, got)
    return "yes" if of_kind(base64.b64decode(re.search("Authorization: Negotiate ([\\w+/=]+)", got)[1]), tokens) else got


def chromium(tokens):
    # In a new profile it refuses Negotiate, and logs on when it starts again.
    pages = [run("chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
                 "--disable-background-networking", "--disable-component-update", "--ignore-certificate-errors",
                 f"--user-data-dir={DIR}/chromium", f"--log-net-log={DIR}/net.{i}", "--net-log-capture-mode=IncludeSensitive",
                 f"--auth-server-allowlist={allowed}", "--dump-dom", f"https://localhost:{web()}/")
             for i, allowed in enumerate(("localhost", "localhost", "elsewhere"))]
    of_kind(base64.b64decode(re.search("Authorization: Negotiate ([\\w+/=]+)", (DIR / "net.1").read_text())[1]), tokens)
    return "yes" if f"Welcome, {NOBODY.pw_name}" in pages[1] and "not logged on" in pages[2] else str(pages)


def web_connection():
    port = web()
    connection = http.client.HTTPSConnection("localhost", port, context=ssl.create_default_context(cafile=f"{DIR}/certificate.pem"))
    connection.connect()
    return connection


def in_two_legs(tokens):
    """As clients do that first ask whether Kerberos is welcome; made here of a raw token."""
    connection = web_connection()
    status, _, _, answer = ask(connection, of_kind(bytes.fromhex("601b06062b0601050502a011300fa00d300b06092a864886f712010202"), tokens))
    response = morwen.ClientLogin("HTTP/localhost").step()
    for tag in b"\x04\xa2\x30\xa1":
        response = struct.pack(">BBH", tag, 0x82, len(response)) + response
    second, _, text, last = ask(connection, response)
    return "yes" if (status, answer[:1], second, last[:1]) == (401, b"\xa1", 200, b"\xa1") and ALICE in text else f"{status} {second}"


def to_web(tokens, hashed=None):
    """With the binding of the server's certificate, or that of something else."""
    connection = web_connection()
    hashed = hashlib.sha256(hashed or connection.sock.getpeercert(binary_form=True)).hexdigest()
    status, _, text, _ = get(connection, tokens, channel_bindings=f"tls-server-end-point:{hashed}")
    named = re.search("refused: .*channel binding", (DIR / "web.log").read_text())
    return "yes" if status == 200 and ALICE in text else "refused" if status == 403 and named else text


ROWS = [  # who logs on to whom, kinds of tokens, what it needs, and the function that says "yes", "refused" or what else has come of it
    ("Java → morwen", RAW + SPNEGO, "javac", lambda tokens: to_morwen(java("initiate", tokens), tokens)),
    *[(f"Java → morwen, {whose}", kinds, "javac", lambda tokens, rule=rule, binding=binding: to_morwen(
        java("initiate", tokens, *binding), tokens, rule=rule)) for whose, kinds, rule, *binding in (
            ("its TLS's channel bindings", RAW + SPNEGO, "require", SAME), ("an application's", RAW, "check", SAME, "application"),
            ("of another channel", RAW, "check", OTHER), ("none, but required", RAW, "require"))],
    ("morwen → Java", RAW + SPNEGO, "javac", lambda tokens: from_morwen(java("accept", tokens), tokens)),
    *[(f"morwen → Java, {whose}", RAW, "javac", lambda tokens, ours=ours, binding=binding: from_morwen(
        java("accept", tokens, *binding), tokens, channel_bindings=ours)) for whose, ours, *binding in (
            ("its TLS's channel bindings", SAME, SAME), ("an application's", f"{SAME};null-addresses", SAME, "application"),
            ("an application's, as if its TLS's", SAME, SAME, "application"),
            ("of another channel", OTHER, SAME), ("none, but Java has some", "", SAME))],
    ("gokrb5 → morwen", RAW + SPNEGO, "go", gokrb5),
    ("psql → morwen", RAW, "psql", psql),
    ("morwen → PostgreSQL", RAW, str(INITDB), postgresql),
    ("morwen → Apache, mod_auth_gssapi", RAW + SPNEGO, f"{APACHE}/mod_auth_gssapi.so", to_apache),
    ("curl → examples/web", SPNEGO, "curl", curl),
    ("Chromium → examples/web", SPNEGO, "chromium", chromium),
    ("morwen → examples/web, with its channel bindings", RAW + SPNEGO, "openssl", to_web),
    ("morwen → examples/web, in two legs", SPNEGO, "openssl", in_two_legs),
    ("morwen → examples/web, with another server's", SPNEGO, "openssl", lambda tokens: to_web(tokens, b"another certificate"))]


def main():
    signal.alarm(240)  # what this has started ends with it
    os.chmod(DIR, 0o711)
    run("kadmin.local", "-q", "addprinc -randkey HTTP/localhost")
    run("kadmin.local", "-q", "addprinc -randkey postgres/localhost")
    run("kadmin.local", "-q", f"ktadd -norandkey -k {DIR}/service.keytab HTTP/localhost postgres/localhost")
    page, wrong = (HERE.parents[1] / "docs/interoperability.md").read_text(), []
    for name, tokens, need, function in [(name, each, *rest) for name, kinds, *rest in ROWS for each in kinds]:
        if sys.argv[2:] and sys.argv[2] not in name:
            continue
        if not shutil.which(need) and not os.path.exists(need) or need == "go" and not os.path.exists(GOKRB5):
            print(f"{name}, {tokens}: skipped, {need} is missing; run scripts/setup --peers")
            wrong += [f"{name}: not skipped where CI=true"] * (os.environ.get("CI") == "true")
            continue
        began = time.monotonic()
        try:
            outcome = function(tokens)
        except Exception as error:
            outcome = repr(error)
        print(f"{name}, {tokens}: {outcome} ({time.monotonic() - began:.1f} s)", flush=True)
        if f"| {name} | {tokens} | {outcome} |" not in page:
            wrong.append(f"{name}, {tokens}: docs/interoperability.md shows something else")
    return wrong


with clean, morwen.Package():
    faults = main()
sys.exit("\n".join(faults) or 0)
