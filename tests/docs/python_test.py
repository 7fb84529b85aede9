"""Runs the Python example in a realm, alone and against the C server. Usage: scripts/realm python_test.py EXAMPLE SERVER"""
import os, subprocess, sys, time  # noqa: E401

EXAMPLE, SERVER = sys.argv[1:]
faults, PORT = [], os.path.join(os.environ["MORWEN_REALM_DIR"], "python.port")
with subprocess.Popen([SERVER, "--port-file", PORT], stdout=subprocess.DEVNULL) as server:
    while not (os.path.exists(PORT) and os.path.getsize(PORT)):
        assert server.poll() is None, "the server does not start"
        time.sleep(0.05)
    there = "127.0.0.1:" + open(PORT).read().strip()
    bob = ["--user", "MORWEN.TEST\\bob", "morwen/localhost"]
    welcome, own = "logged on; the server says: Welcome, S-1-22-1-", f"S-1-22-1-{os.geteuid()}"
    for arguments, password, environment, status, words in [
            (["morwen/localhost"], "", {}, 0, "logged on: S-1-22-1-"),
            (["morwen/localhost", there], "", {}, 0, welcome),
            ([*bob, there], "bob-secret", {}, 0, f"{welcome}{own[9:]}."),
            (bob, "bob-secret", {}, 0, f"logged on: {own}\n"),
            (bob, "bob-secrte", {}, 1, "bob@MORWEN.TEST with a password: Preauthentication failed: The logon was denied."),
            (["fwd/localhost", there], "", {}, 0, welcome),
            (["nobody/localhost"], "", {}, 2, "nobody/localhost@MORWEN.TEST not found in Kerberos database"),
            (["morwen/localhost"], "", {"KRB5_KTNAME": "FILE:/none"}, 2, "FILE:/none cannot be read")]:
        done = subprocess.run([sys.executable, EXAMPLE, *arguments], input=password + "\n", text=True, timeout=30,
                              env={**os.environ, **environment}, capture_output=True)
        if done.returncode != status or words not in done.stdout + done.stderr:
            faults.append((arguments, done))
    server.terminate()
assert server.returncode == 0 and not faults, (server.returncode, faults)
