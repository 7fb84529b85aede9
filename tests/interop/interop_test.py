#!/usr/bin/env python3
"""interop_test.py BIN [--write]: logs on between all libraries with all KDCs. The tables of docs/interoperability.md must
show just that; --write makes them so. Inside the realm of each KDC it runs itself, and prints a line of JSON a cell."""
import collections, functools, itertools, json, os, pathlib, pwd, re, shutil, signal, subprocess, sys, time

KDCS = {"mit": "MIT", "heimdal": "Heimdal", "samba": "Samba"}
PEERS = {"morwen": "morwen", "mit": "MIT", "heimdal": "Heimdal"}
PAIRS = list(itertools.product(PEERS, PEERS))
TYPES = {"aes256-sha1": 18, "aes128-sha1": 17, "aes256-sha2": 20, "aes128-sha2": 19, "rc4-hmac": 23}
DELEGATE, MUTUAL, IF_TRUSTED = 1, 2 | 60, 32768  # with all kinds of protection of messages
ASKED = {0: "not asked", IF_TRUSTED: "if trusted", DELEGATE: "always"}
# What the side that refuses must say. The page states each reason under the same word.
REASONS = {"fixed": "^$",  # not tried
           "sha2": "KDC has no support for encryption type",
           "rc4": "KDC has no support for encryption type|permitted_enctypes in krb5.conf",
           "account": "mapping .* to a local account by .*: No translation available|local account .* does not exist",
           "key": "key version|kvno|key table"}
ROOT = pathlib.Path(__file__).parents[2]
ACCOUNT = pwd.getpwnam("nobody") if os.getuid() == 0 else pwd.getpwuid(os.getuid())  # of alice
REALM = pathlib.Path(os.environ.get("MORWEN_REALM_DIR", "."))


def run(*command, **more):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **more).stdout


def kadmin(*commands):
    run("kadmin.local", "-r", "MORWEN.TEST", input="\n".join(commands).replace("KEYTAB", f"-k {REALM}/other.keytab"))


RUNNING = set()


@functools.cache
class Peer:
    """A process that initiates or accepts for one library, under one configuration."""

    def __init__(self, name, role, configuration):
        self.name = f"{name}.{role}.{configuration}"
        self.process = subprocess.Popen([f"{sys.argv[1]}/interop_peer_{name}"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, env=dict(os.environ, KRB5_CONFIG=f"{REALM}/{configuration}"))

    def ask(self, verb, first="-", second="-", token=b""):
        RUNNING.add(self.process)
        self.process.stdin.write(f"{verb} {first} {second} {len(token)}\n".encode() + token)
        self.process.stdin.flush()
        length, _, outcome = self.process.stdout.readline().decode().strip().partition(" ")
        return self.process.stdout.read(int(length)), outcome


@functools.cache
def identifier(client):
    """Under which the library must report the user."""
    if (REALM / "samba").exists():
        entry = run("ldbsearch", "-H", f"{REALM}/samba/private/sam.ldb", f"sAMAccountName={client}", "objectSid")
        return re.search("objectSid: (.*)", entry)[1]
    return f"S-1-22-1-{ACCOUNT.pw_uid}"


class Logon:
    """How a user logs on to a service; gives the reason for which a pair of libraries refuses that, if it does."""

    def __init__(self, service, client="alice", flags=MUTUAL, forwardable=True, configuration="krb5.conf",
                 keytab="service.keytab", key_type=None, version=1, least=0, refused=lambda pair: None):
        vars(self).update(locals())
        self.who = client if "@" in client else client + "@MORWEN.TEST"

    def initiate(self, name):
        """The initiating peer, with a cache of its own, and its first token."""
        first = REALM / re.sub("/", ".", f"{self.client}.{self.forwardable}.{self.version}.cc")
        if not first.exists():
            run("kinit", "-f" if self.forwardable else "-F", "-c", str(first), self.client,
                input=self.client.partition("@")[0] + "-secret\n")
        peer = Peer(name, "initiator", self.configuration)
        own = REALM / f"{peer.name}.{first.name}"
        if not own.exists():
            shutil.copy(first, own)
        peer.ask("set", "KRB5CCNAME", f"FILE:{own}")
        return peer, *peer.ask("init", self.service, self.flags)

    def outcome(self, pair):
        """What has come of it; all that was said when that is neither a logon as asked for nor a failure."""
        began = time.monotonic()
        initiator, token, said = self.initiate(pair[0])
        if not token:
            return said
        acceptor = Peer(pair[1], "acceptor", self.configuration)
        acceptor.ask("set", "KRB5_KTNAME", f"FILE:{REALM}/{self.keytab}")
        answer, accepted = acceptor.ask("accept", token=token)
        if accepted.startswith("failed"):
            return accepted
        said = initiator.ask("step", self.service, self.flags, answer)[1] if answer else said
        mutual = pair[0] == "morwen" or self.flags & MUTUAL
        names = f"{self.who} to {self.service}@MORWEN.TEST" + ("" if mutual else " one way")
        who, seen = [identifier(self.client)] * 2 if pair[1] == "morwen" else (self.who, names)
        # In the clear stand the types of both keys and the version of the service's.
        keys = re.findall(rb"\xa0\x03\x02\x01(.)(?:\xa1\x03\x02\x01(.))?\xa2(?:\x81.|\x82..)\x04", token, re.S)[:2]
        right = (said == ("logged on" if pair[0] == "morwen" else names) and bool(answer) == bool(mutual) and
                 accepted in (seen, f"{seen} delegating {who}") and keys[0][1] == bytes([self.version]) and
                 all(key[0][0] == (self.key_type or key[0][0]) for key in keys) and len(keys) == 2 and
                 len(token) > self.least and time.monotonic() - began < 10)
        return ("yes" if accepted == seen else "tickets") if right else f"{said}; {accepted}; {keys}; {len(token)}"

    def cell(self, pair):
        """What should come of it and what has; of a refusal its reason."""
        reason = self.refused(pair)
        outcome = "" if reason == "fixed" else self.outcome(pair)
        if reason and re.search(REASONS[reason], outcome):
            outcome = reason
        asks = IF_TRUSTED if pair[0] == "morwen" else self.flags
        delegates = self.forwardable and (asks & DELEGATE or asks & IF_TRUSTED and self.service.startswith("fwd"))
        return reason or ("tickets" if delegates else "yes"), outcome


class SecondHop(Logon):
    """The user logs on to a service that speaks through morwen, which goes on with the KDC's leave alone."""

    def outcome(self, pair):
        initiator, token, _ = self.initiate(pair[0])
        service, back_end = (Peer(*who, self.configuration) for who in (("morwen", "front"), (pair[1], "acceptor")))
        for peer, keytab in ((service, "front.keytab"), (back_end, "service.keytab")):
            peer.ask("set", "KRB5_KTNAME", f"FILE:{REALM}/{keytab}")
        service.ask("set", "MORWEN_GOES_ON", "1")
        first = service.ask("accept", token=token)[1]
        token, said = service.ask("init", "morwen/localhost", 0)
        answer, accepted = back_end.ask("accept", token=token) if token else (b"", "")
        said = service.ask("step", "morwen/localhost", 0, answer)[1] if answer else said
        who = identifier(self.client) if pair[1] == "morwen" else f"{self.who} to morwen/localhost@MORWEN.TEST"
        return "yes" if (accepted, said) == (who, "logged on") else f"{first}; {said}; {accepted}"


def matrix(kdc):
    """The product of all that can be chosen freely."""
    for key_type, allowed in [*itertools.product(TYPES, [False]), ("rc4-hmac", True)]:
        for mutual, asked, trusted, forwardable in itertools.product([MUTUAL, 0], ASKED, [True, False], [True, False]):
            def refused(pair):
                if pair[0] == "morwen" and (mutual, asked) != (MUTUAL, IF_TRUSTED):
                    return "fixed"
                if kdc == "samba" and key_type.endswith("sha2"):
                    return "sha2"
                return "rc4" if key_type == "rc4-hmac" and not allowed and "morwen" in pair else None
            mutually, trusts, forwards = ("yes" if fact else "no" for fact in (mutual, trusted, forwardable))
            yield key_type + ", allowed" * allowed, [mutually, ASKED[asked], trusts, forwards], Logon(
                "fwd-" * trusted + key_type + "/localhost", "alice", mutual | asked, forwardable,
                "changed.conf" if allowed else "krb5.conf", key_type=TYPES[key_type], refused=refused)


def situations(kdc):
    """What happens around a logon, made here between the rows."""
    unmapped = lambda pair: "account" if pair[1] == "morwen" else None
    morwen, host, other = "morwen/localhost", "host/localhost", {"keytab": "other.keytab"}
    if kdc == "samba":
        yield "to a morwen server with nothing delegated, from there on to the second library's server", SecondHop("front/localhost")
        yield "a user in 300 groups; the KDC's reply needs TCP", Logon(morwen, "many", least=1400)
        yield "the same, with the user's tickets", Logon("fwd/localhost", "many", MUTUAL | IF_TRUSTED,
                                                         configuration="changed.conf", least=2800)
    if kdc != "mit":
        return
    kadmin(f"addprinc -pw {host}-secret {host}", "addprinc -randkey kept/localhost", "addprinc -randkey lost/localhost",
           f"ktadd KEYTAB -norandkey {host} kept/localhost lost/localhost bob")
    yield "a user of a trusted realm, mapped to a local account", Logon(morwen, "carol@OTHER.TEST")
    yield "a user of a trusted realm, not mapped", Logon(morwen, "dave@OTHER.TEST", refused=unmapped)
    yield "a host as the user", Logon(morwen, host, refused=unmapped)
    yield "a host as the service", Logon(host, **other)
    yield "a user as the service", Logon("bob", **other)
    kept, lost, alice = Logon("kept/localhost", **other), Logon("lost/localhost", **other), Logon(morwen)
    for name, logon in itertools.product(PEERS, [kept, lost, alice]):
        logon.initiate(name)
    kadmin("cpw -pw changed alice", "ktadd KEYTAB kept/localhost", "ktrem KEYTAB lost/localhost all",
           "ktadd KEYTAB lost/localhost")
    yield "the user's password has changed since the ticket", alice
    kadmin("cpw -pw alice-secret alice")
    for which, held in ((kept, "both keys"), (lost, "the new key alone")):
        which.refused = (lambda pair: "key") if which is lost else which.refused
        yield f"the service's key has changed since the ticket, the keytab has {held}", which
        yield f"a new ticket, the keytab has {held}", Logon(which.service, version=2, **other)
    # Another KDC, which stands first in two.conf and dies when it has given each peer a ticket.
    two = (REALM / "kdc.conf").read_text().replace("kdc.log", "two.log")
    port = int(re.search(r"listen = \S+:(\d+)", two)[1])
    (REALM / "two.kdc").write_text(two.replace(f":{port}", f":{port + 1}"))
    configure("two.conf", r"(kdc = \S+:)\d+", rf"\g<1>{port + 1}\n\g<0>")
    dying = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "krb5kdc", "-n", "-r", "MORWEN.TEST"],
                             env=dict(os.environ, KRB5_KDC_PROFILE=f"{REALM}/two.kdc"))
    await_log("commencing operation", 1)
    for name in PEERS:
        Logon(morwen, configuration="two.conf").initiate(name)
    await_log(f" for {morwen}", len(PEERS))
    dying.kill()
    dying.wait()
    yield "the first of two KDCs has died since the last logon", Logon("aes256-sha1/localhost", configuration="two.conf")


def await_log(words, count):
    while not (REALM / "two.log").exists() or (REALM / "two.log").read_text().count(words) < count:
        time.sleep(0.02)


def configure(name, pattern, replacement):
    (REALM / name).write_text(re.sub(pattern, replacement, (REALM / "krb5.conf").read_text(), count=1))


def in_realm(kdc):
    signal.alarm(200)  # the peers end with their input
    configure("changed.conf", r"(?s)(\[libdefaults\]\n)(.*alice = )",
              rf"\1permitted_enctypes = {' '.join(TYPES)}\n\2{ACCOUNT.pw_name}\nmany = ")
    for table, row, logon in itertools.chain(matrix(kdc), (("", [row], logon) for row, logon in situations(kdc))):
        print(json.dumps([table, row, [logon.cell(pair) for pair in PAIRS]]), flush=True)
    for process in RUNNING:  # their objects end the libraries' packages after everything else
        process.communicate()
        if process.returncode != 0 and "heimdal" not in process.args[0]:  # whose library leaks its own messages
            sys.exit(f"{process.args[0]} ends with {process.returncode}")


def table(heads, rows):
    heads = heads + [f"{PEERS[a]} → {PEERS[b]}" for a, b in PAIRS]
    return "\n".join("| " + " | ".join(row) + " |" for row in [heads, ["---"] * len(heads), *rows]) + "\n"


def merged(rows):
    """Rows that differ in one label only become one."""
    for column in (3, 2, 1, 0):
        kept = {}
        for row in rows:
            same = kept.setdefault(json.dumps(row[:column] + row[column + 1:]), row)
            same[column] += "" if same is row else " or " + row[column]
        rows = list(kept.values())
    return rows


def main():
    text, grids, around, cells, wrong = "\n", {}, [], collections.Counter(), []
    for kdc, label in KDCS.items():
        found, printed = {}, run(ROOT / "scripts/realm", "--kdc", kdc, sys.executable, __file__, sys.argv[1], kdc)
        for name, row, results in map(json.loads, printed.splitlines()):
            cells.update(outcome for _, outcome in results)
            for pair, (expected, outcome) in zip(PAIRS, results):
                print(label, name, *row, *pair, outcome, sep="; ")
                if outcome != expected:
                    wrong.append(f"{label}; {name}; {row}; {pair}: {expected} expected, but: {outcome}")
            shown = row + [outcome for _, outcome in results]
            found.setdefault(name, []).append(shown) if name else around.append([label] + shown)
        for name, rows in found.items():
            grids.setdefault(json.dumps(rows), {}).setdefault(label, []).append(name)
    for rows, names in grids.items():
        text += "### " + "; ".join(f"{label}: {', '.join(types)}" for label, types in names.items()) + "\n\n"
        text += table(["Mutual", "Delegation", "Trusted", "Forwardable"], merged(json.loads(rows))) + "\n"
    text += "### Situations\n\n" + table(["KDC", "Situation"], around) + f"""
{cells.total()} cells: {cells['yes']} logons, {cells['tickets']} with tickets, {cells['fixed']} not run, the others refused.\n
"""
    page = ROOT / "docs/interoperability.md"
    before, begin, old, end, after = re.split("(<!-- (?:begin|end) -->\n)", page.read_text())
    if "--write" in sys.argv:
        page.write_text(before + begin + text + end + after)
    elif old != text:
        wrong.append(f"{page} shows something else; run it with --write to update the page")
    wrong += [f"{page} does not state the reason {reason}" for reason in REASONS if f"**{reason}**" not in before + after]
    sys.exit("\n".join(wrong) or 0)


if __name__ == "__main__":
    in_realm(sys.argv[2]) if sys.argv[2:] and sys.argv[2] in KDCS else main()
