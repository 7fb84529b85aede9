#!/usr/bin/env python3
"""A web server that knows its users: browsers log on with Kerberos (Negotiate), without a password, and files are read as the user.

/ says who is logged on. /files/PATH is a file below --files, read on a thread that acts as the user, so that the file's own
permissions decide. Needs the module morwen, a certificate, and the keys of HTTP/HOST in a keytab ($KRB5_KTNAME). README.md says more.
"""
import argparse
import base64
import binascii
import hashlib
import html
import http.client
import http.server
import io
import os
import pwd
import re
import signal
import ssl
import stat
import sys
import threading
import time
import urllib.parse

import morwen

MOST_CONNECTIONS, SECONDS, MOST_HEADER, LARGEST_FILE = 64, 60, 96 * 1024, 1 << 20


class Incoming(io.RawIOBase):
    """What a connection sends. wait_no_longer is called before each wait."""
    def __init__(self, connection, wait_no_longer):
        self._connection, self._wait_no_longer = connection, wait_no_longer

    def readable(self):
        return True

    def readinto(self, buffer):
        self._wait_no_longer()
        return self._connection.recv_into(buffer)


class Head(io.BufferedReader):
    """Lines, as many as the header of one request may have."""
    left = MOST_HEADER

    def readline(self, limit):
        line = super().readline(min(limit, self.left + 1))
        self.left -= len(line)
        if self.left < 0:
            raise http.client.LineTooLong("header")
        return line


class Request(http.server.BaseHTTPRequestHandler):
    """One connection, on a thread of its own. Who a request is from, it says itself: a connection may be shared by a proxy."""
    protocol_version, server_version, sys_version = "HTTP/1.1", "web_server", ""

    def setup(self):
        self.connection, self.end = self.request, time.monotonic() + SECONDS
        self.wait_no_longer()
        self.request.do_handshake()
        super().setup()
        self.rfile = Head(Incoming(self.connection, self.wait_no_longer))
        self.login = None  # a logon that awaits the client's next token, which comes on the same connection

    def wait_no_longer(self):
        """However slowly a stranger sends or reads, the place is free again at the end."""
        self.connection.settimeout(max(0.001, self.end - time.monotonic()))

    def handle_one_request(self):
        self.rfile.left = MOST_HEADER
        try:
            super().handle_one_request()
        except OSError:
            self.close_connection = True

    def do_GET(self):
        if "Transfer-Encoding" in self.headers or self.headers.get_all("Content-Length", ["0"]) != ["0"]:
            self.close_connection = True  # a body that nobody reads would be taken for the next request
            return self.answer(400, "This server takes no data.")
        scheme, _, text = self.headers.get("Authorization", "").partition(" ")
        login, self.login = self.login or morwen.ServerLogin(), None
        if scheme.lower() != "negotiate":
            return self.answer(401, "You are not logged on: your browser has not been told to do so here, or must be started again "
                                    "first.", "Negotiate")
        try:
            token = login.step(base64.b64decode(text.encode("latin-1"), validate=True))
            challenge = f"Negotiate {base64.b64encode(token).decode()}" if token else None
            try:
                user = login.finish()
            except morwen.Error:
                if not token:
                    raise
                self.login = login
                return self.answer(401, "The logon goes on.", challenge)
            with user:
                self.serve(user, challenge)
        except (morwen.Error, binascii.Error) as error:
            self.log_error("refused: %s", error)  # for the administrator alone
            self.answer(403, "You are not let in.")

    def serve(self, user, challenge):
        path = urllib.parse.unquote(urllib.parse.urlsplit(self.path).path)
        if path == "/":
            with user.context.impersonate():
                uid = os.geteuid()
            text = "".join(f"<li>{html.escape(line)}</li>" for line in user.groups)
            return self.answer(200, f"<!DOCTYPE html><title>Welcome</title><h1>Welcome, {html.escape(pwd.getpwuid(uid).pw_name)}</h1>"
                                    f"<p>You are {html.escape(user.sid)}, in these groups:</p><ul>{text}</ul>", challenge, "text/html")
        if not path.startswith("/files/"):
            return self.answer(404, "There is no such page.", challenge)
        try:
            with user.context.impersonate():  # this thread, until the end of the block, whatever happens there
                text = read_below(self.server.files, path.removeprefix("/files/"))
        except (OSError, ValueError) as error:
            self.log_error("%s: %a: %s", user.sid, path, error)
            return self.answer(404, "There is no such file, or it is not for you.", challenge)
        self.answer(200, text, challenge, "application/octet-stream")

    def answer(self, status, text, challenge=None, kind="text/plain"):
        data = text if isinstance(text, bytes) else text.encode()
        self.send_response(status)
        if challenge:
            self.send_header("WWW-Authenticate", challenge)
        for name, value in (("Content-Type", f"{kind}; charset=utf-8"), ("Content-Length", len(data)), ("Cache-Control", "no-store"),
                            ("X-Content-Type-Options", "nosniff"), ("Content-Security-Policy", "default-src 'none'")):
            self.send_header(name, value)
        self.end_headers()
        for begin in range(0, len(data), 16384):
            self.wait_no_longer()
            self.wfile.write(data[begin:begin + 16384])


def read_below(folder, path):
    """The file, by names that go down from the folder and nowhere else."""
    *folders, name = path.split("/")
    if not all([*folders, name]) or {".", ".."} & {*folders, name}:
        raise ValueError("not a name below the folder")
    here = os.dup(folder)
    try:
        # A pipe that nobody writes to must not hold the thread.
        for step, flags in [*((folder, os.O_PATH | os.O_DIRECTORY) for folder in folders), (name, os.O_RDONLY | os.O_NONBLOCK)]:
            below = os.open(step, flags | os.O_NOFOLLOW | os.O_CLOEXEC, dir_fd=here)
            os.close(here)
            here = below
        about = os.fstat(here)
        if not stat.S_ISREG(about.st_mode) or about.st_size > LARGEST_FILE:
            raise ValueError("not a file, or too large")
        return os.pread(here, LARGEST_FILE, 0)
    finally:
        os.close(here)


class Server(http.server.ThreadingHTTPServer):
    request_queue_size = MOST_CONNECTIONS

    def __init__(self, address, context, files):
        super().__init__(address, Request)
        self.files, self._context, self._places = files, context, threading.BoundedSemaphore(MOST_CONNECTIONS)

    def get_request(self):
        connection, address = self.socket.accept()
        # The handshake waits for the client, so it is the connection's thread that makes it.
        return self._context.wrap_socket(connection, server_side=True, do_handshake_on_connect=False), address

    def process_request(self, request, client_address):
        if not self._places.acquire(blocking=False):
            return self.shutdown_request(request)
        try:
            super().process_request(request, client_address)
        except RuntimeError:  # no more threads
            self._places.release()
            raise

    def process_request_thread(self, request, client_address):
        try:
            super().process_request_thread(request, client_address)
        finally:
            self._places.release()

    def handle_error(self, request, client_address):
        sys.stderr.write(f"{client_address[0]}: {sys.exc_info()[1]!r}\n")


# By the signature's algorithm, the hash function that RFC 5929 wants.
HASHES = {"sha256": ("2a864886f70d01010b", "2a864886f70d010105", "2a864886f70d010104", "2a8648ce3d040302", "2a8648ce3d0401"),
          "sha384": ("2a864886f70d01010c", "2a8648ce3d040303"), "sha512": ("2a864886f70d01010d", "2a8648ce3d040304")}


def end_point(certificate):
    """The channel binding of a server that has this certificate (DER); None where the signature is of another kind."""
    def element(at):  # where its contents begin and end
        length, begin = certificate[at + 1], at + 2
        if length & 128:
            begin += length & 127
            length = int.from_bytes(certificate[at + 2:begin], "big")
        return begin, begin + length
    signed = element(element(0)[0])
    begin, end = element(element(signed[1])[0])
    for name, algorithms in HASHES.items():
        if certificate[begin:end].hex() in algorithms:
            return "tls-server-end-point:" + hashlib.new(name, certificate).hexdigest()
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--certificate", required=True, metavar="PEM", help="the server's certificate, and those that lead to it")
    parser.add_argument("--key", required=True, metavar="PEM", help="its private key")
    parser.add_argument("--files", required=True, metavar="FOLDER", help="where the users' files are")
    parser.add_argument("--listen", default="127.0.0.1", metavar="ADDRESS")
    parser.add_argument("--port", type=int, default=8443, help="0: whichever is free, which is printed")
    parser.add_argument("--require-channel-bindings", action="store_true", help="let nobody in whose client sends none")
    options = parser.parse_args()
    with open(options.certificate, encoding="ascii") as file:
        binding = end_point(ssl.PEM_cert_to_DER_cert(re.search("-----BEGIN CERT.*?-----END CERT[^-]*-----", file.read(), re.S)[0]))
    if options.require_channel_bindings and not binding:
        sys.exit("no channel binding is known for the kind of signature that the certificate has")
    rule = "require" if options.require_channel_bindings else "check" if binding else "ignore"
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(options.certificate, options.key)
    files = os.open(options.files, os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)
    with morwen.Package(channel_bindings=binding, channel_bindings_rule=rule), Server((options.listen, options.port), context, files) as server:
        print(f"listening on {options.listen}:{server.server_address[1]}", flush=True)
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
        server.serve_forever()


if __name__ == "__main__":
    main()
