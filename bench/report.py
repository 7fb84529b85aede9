#!/usr/bin/env python3
"""report.py FOLDER PAGE: the page of one run of the benchmark, with a plot beside it ("-": the page to standard output).
The folder holds run.json, the stripped libraries, and the instructions of the two lives, as scripts/bench leaves them."""
import json, os, pathlib, platform, re, subprocess, sys

LOGONS = [("plain", 1), ("plain", 2), ("aes256-sha1", 0), ("aes128-sha1", 0), ("aes256-sha2", 0), ("aes128-sha2", 0),
          ("spnego", 0), ("bindings", 0), ("delegation", 0), ("pac-5", 0), ("pac-50", 0), ("pac-300", 0)]
WAYS = {"exports": "the exports", "krb5": "bare libkrb5", "gss-held": "GSS-API, held", "gss-acquired": "GSS-API, acquiring"}


def read(folder):
    """Medians by name; of a run without repetitions the only value. Failed measurements are left out."""
    run, *others = [json.loads(file.read_text()) for name in ("run", "hop") if (file := folder / f"{name}.json").exists()]
    found = {}
    for entry in sum((other["benchmarks"] for other in others), run["benchmarks"]):
        if entry.get("error_occurred") or entry.get("aggregate_name", "median") != "median":
            continue
        name = re.sub(r"/(iterations|repeats):\d+|/real_time|_median$", "", entry["name"]).replace("/real_time", "")
        value = entry.get("bytes", entry.get("longest_us", entry["real_time"]))
        if entry.get("aggregate_name") == "median" or name not in found:
            found[name] = value
            found |= {f"{name}/{kind}": entry[kind] for kind in ("pages", "each_ns") if kind in entry}
    for kind in ("exports", "gss"):
        counted = folder / f"life-{kind}"
        if counted.exists() and counted.read_text().strip():
            found[f"life/{kind}/instructions"] = int(counted.read_text())
    return run["context"], found


def logon(found, kind, threads, way):
    return found.get(f"logon/{kind}/{way}" + (f"/threads:{threads}" if threads else ""))


def targets(found):
    """Name, value as text, what it should be, whether it is; None where the run has not measured it."""
    plain = {way: logon(found, "plain", 1, way) for way in WAYS}
    both = logon(found, "plain", 2, "exports")
    get = found.get

    def ratio(name, above, below, least):
        value = above / below if above and below else None
        return name, value and f"{value:.2f}", f"at least {least}", value and value >= least

    def limit(name, value, most, unit):
        return name, value is not None and f"{value:.4g} {unit}" or None, f"under {most} {unit}", value is not None and value < most

    lookups = get("call/lookup/threads:1"), get("call/lookup/threads:2")
    memory = get("memory/kept-context") and get("memory/kept-context") - get("memory/krb5-principal", 0)
    yield ratio("GSS-API holding credentials ÷ the exports, a logon's time", plain["gss-held"], plain["exports"], 2.5)
    yield ratio("GSS-API acquiring ÷ the exports, a logon's time", plain["gss-acquired"], plain["exports"], 3.8)
    yield ratio("bare libkrb5 ÷ the exports, a logon's time", plain["krb5"], plain["exports"], 0.9)
    for groups, least in ((50, 0.8), (300, 0.75)):
        yield ratio(f"the same with {groups} groups in the ticket", logon(found, f"pac-{groups}", 0, "krb5"),
                    logon(found, f"pac-{groups}", 0, "exports"), least)
    yield ratio("logons a second, two threads ÷ one", plain["exports"], both, 1.7)
    yield ratio("a plain logon ÷ one that delegates, its time", plain["exports"], logon(found, "delegation", 0, "exports"), 0.7)
    yield ratio("a plain logon ÷ a second hop in a user's name, again, with a directory's KDC", get("hop/plain-logon"), get("hop/again"), 0.7)
    for groups in (0, 3, 64):
        yield ratio(f"raw identity calls ÷ impersonate and revert, {groups} groups",
                    get(f"identity/raw/{groups}"), get(f"identity/exports/{groups}"), 0.8)
    lives = get("life/exports"), get("life/gss")
    yield limit("a client's whole life ÷ the same in GSS-API", lives[0] and lives[1] and lives[0] / lives[1], 1.1, "times")
    yield limit("SSOLookupSecurityContext, 20,000 contexts", lookups[0], 250, "ns")
    # The program divides the time by the calls of both threads.
    yield limit("a call of two threads ÷ of one", lookups[1] and lookups[0] and 2 * lookups[1] / lookups[0], 2, "times")
    for kept in (100000, 1000000):
        yield limit(f"longest wait during a clean-up pass, {kept:,} contexts", get(f"cache/pass-waits/{kept}"), 2000, "µs")
    for kept in (100000, 1000000):
        yield limit(f"longest wait during the release of all, {kept:,} contexts", get(f"waits/release-all/captured/{kept}"), 2000, "µs")
    yield limit("the release of all, for each context of a logon", get("waits/release-all/logons/20000/each_ns"), 2000, "ns")
    for call, name in (("nested-start-and-end", "a start and an end that only count"), ("insert-and-release", "a context's insertion and release")):
        yield limit(f"the longest of {name}, beside the logons of 16 threads", get(f"waits/{call}"), 10000, "µs")
    yield limit("a kept context, beside libkrb5's part", memory, 819, "bytes")
    held = [get(f"memory/{name}") for name in ("kept-context-and-ticket", "kept-context", "ticket")]
    yield limit("what keeping the user's ticket for a second hop takes, beside the ticket", all(held) and held[0] - held[1] - held[2] or None, 192, "bytes")
    yield limit("a trace nobody listens to", get("trace/unheard"), 2, "ns")
    yield limit("an assertion nobody listens to", get("trace/assertion"), 2, "ns")


# Why a target may be missed, by a word of its name: from earlier profiles (callgrind, strace, a clock around each step).
REASONS = {
    "holding credentials": "What GSS-API adds differs between processors: on another machine this ratio was 3.0 beside one of 0.74 for "
    "bare libkrb5.",
    "bare libkrb5": "A logon runs 423,000 instructions, the bare loop 377,000; it was 481,000 before a ticket's PAC was checked once for each "
    "ticket. Of the time beyond the bare loop's the plug-in's own code takes a half, spread over some hundred functions of which none "
    "takes a fiftieth, the C library three tenths (seventy small blocks of memory, fifty locks), and the kernel a tenth, for asking who "
    "the process is. The bare loop opens no sessions and handles, holds nothing that others use, looks for no account and makes no logon "
    "information. Link-time optimisation changed nothing that could be measured.",
    "the same with": "A plain logon's part stays what it is; for each group there is a SID to read, to look for twice and to write as text.",
    "whole life": "A client loads one library more than GSS-API's (the plug-in and the log hub in place of GSS-API's own), which takes 40 µs; "
    "it runs fewer instructions and makes fewer system calls.",
    "raw identity calls": "The thread's ids, groups and capabilities are read before the switch, after it and after the way back: "
    "twelve system calls, 2.2 µs together, which nothing may save, so that 0.67 is the most that 3 groups allow; 64 groups take 4 µs to read. The rest is the search "
    "for the context, its locks and its record. Since then ambient and inheritable capabilities are cleared, brought back and read too, and "
    "each thread's impersonation has a record that others find when the thread has ended.",
    "logons a second": "Much of it is not the plug-in's: beside other work, a logon's processor time was 1.36 of the "
    "bare loop's on one thread and 1.33 on two, in turns. Threads hardly slept on a lock then: 0.02 to 0.04 futex calls a logon, the bare "
    "loop's 0.01 to 0.02. It is not the replay cache: without it neither the exports nor the bare loop came nearer to two, and a logon "
    "holds its file's lock for five short system calls, none of which waits for the disk.",
    "SSOLookupSecurityContext": "A lookup runs 700 instructions and reads the host's key and one place of the index, both mostly "
    "far from the processor; the rest is the locks and the clock.",
    "a call of two threads": "Each call is counted in and out at the package's gate and at the cache's lock: four changes of two numbers "
    "that both processors use, which weigh the more the faster the rest is. Before a lookup was made faster it took 299 ns on one thread "
    "and 486 ns on each of two.",
    "second hop": "A thread that acts as a user becomes the service for as long as it needs files or the configuration: four times in "
    "this loop, once to make a token, once to accept it, and twice to look at the keytab. Each way takes seven system calls, of which four "
    "read back who the thread is; a plain logon has none of them.",
    "longest wait during": "Most of it is the wait for a processor: in three runs calls waited 0.2, 1.9 and 4.5 ms during a pass (the "
    "last beside other work), and 0.07, 0.1 and 2.5 ms beside a thread that only computed and held no lock (`cache/no-pass-waits` below).",
}


def plot(found):
    """Time of a plain logon on one thread, as bars."""
    values = [(label, logon(found, "plain", 1, way)) for way, label in WAYS.items()]
    values = [(label, value / 1000) for label, value in values if value]
    most = max(value for _, value in values)
    bars = "".join(f'<text x="150" y="{22 + 26 * i}" text-anchor="end">{label}</text>'
                   f'<rect x="158" y="{8 + 26 * i}" width="{value / most * 380:.0f}" height="20" fill="#4a6fa5"/>'
                   f'<text x="{164 + value / most * 380:.0f}" y="{22 + 26 * i}">{value:.0f} µs</text>'
                   for i, (label, value) in enumerate(values))
    return f'<svg xmlns="http://www.w3.org/2000/svg" width="620" height="{16 + 26 * len(values)}" font-size="13" ' \
           f'font-family="sans-serif">{bars}</svg>'


def table(heads, rows):
    return "\n".join("| " + " | ".join(map(str, row)) + " |" for row in [heads, ["---"] * len(heads), *rows]) + "\n"


def page(folder):
    context, found = read(folder)
    cpu = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    krb5 = subprocess.run(["krb5-config", "--version"], text=True, capture_output=True).stdout.strip()
    yield "# Performance\n\nMade by `scripts/bench`. Medians of one run; the loops that are compared ran in turns. Times are good " \
          "for comparison inside the page only.\n\n"
    yield f"{context['date'][:10]}, {context['num_cpus']} cores, {cpu[1] if cpu else platform.machine()}, load " \
          f"{context['load_avg'][0]:.1f} at the start, {krb5}, Linux {platform.release()}.\n\n## Targets\n\n"
    yield table(["What", "Measured", "Target", ""], [[name, value or "not measured", target, "met" if met else "**missed**" if value else ""]
                                                    for name, value, target, met in targets(found)])
    missed = [name for name, _, _, met in targets(found) if met is False]
    one, two = (logon(found, "plain", threads, "krb5") for threads in (1, 2))
    alone = found.get("call/lookup-map/threads:1")
    held = logon(found, "plain", 1, "gss-held")
    measured = {"holding credentials": one and held and f"In this run the bare loop itself comes to {held / one:.2f}. ",
                "logons a second": one and two and f"In this run the bare loop itself comes to {one / two:.2f}. ",
                "SSOLookupSecurityContext": alone and f"In this run a map of the same keys behind a lock, with nothing else "
                f"(`call/lookup-map` below), takes {alone:.0f} ns. "}
    for word, reason in REASONS.items():
        if any(word in name for name in missed):
            yield f"\nMissed, *{word}*: {measured.get(word) or ''}From earlier profiles: {reason}\n"
    yield f"\n## A logon\n\nBoth halves in one process, µs. \"Held\" and \"acquiring\" say whether the acceptor keeps its " \
          f"credentials. Acquiring comes before the token and reads the same keytab whatever the ticket, so it is measured with plain " \
          f"logons alone. Both loops log on with one ticket again and again, so the exports check its PAC once; a logon with a new "
    yield f"ticket takes 29,000 instructions more, with 300 groups 100,000. The keytab has {context.get('keytab_keys', 'some')} keys; bare libkrb5 holds the "
    yield f"service's alone, without which it would be slower. Every loop has the replay cache on. With \"spnego\" the client wraps its "
    yield f"tokens, with \"bindings\" it sends channel bindings, which the server passes over.\n\n![Time of one logon](performance.svg)\n\n"
    rows = [[kind + (f", {threads} threads" if threads > 1 else "")] +
            [f"{value / 1000:.0f}" if (value := logon(found, kind, threads, way)) else "" for way in WAYS] for kind, threads in LOGONS]
    yield table(["", *WAYS.values()], rows)
    others = [[name, f"{value:,.0f}" if value >= 100 else f"{value:.2g}", "bytes" if name.startswith("memory") else "" if name.endswith(("pages", "instructions")) else
               "µs" if "waits" in name and not name.endswith("_ns") else "ns"] for name, value in found.items() if not name.startswith("logon/")]
    yield "\n## Everything else\n\n" + table(["", "Median", "Unit"], others)
    sizes = [os.path.getsize(folder / f"lib{name}.so.1") for name in ("morwenplugin", "harrowlog")]
    yield f"\nThe stripped libraries: {sizes[0]:,} bytes, and {sizes[1]:,} of the log hub.\n"


folder, target = pathlib.Path(sys.argv[1]), sys.argv[2]
text = "".join(page(folder))
if target == "-":
    print(text)
else:
    pathlib.Path(target).write_text(text)
    pathlib.Path(target).with_suffix(".svg").write_text(plot(read(folder)[1]) + "\n")
