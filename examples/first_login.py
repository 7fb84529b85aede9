#!/usr/bin/env python3
"""A first login: both halves in one process, then work as the user. The tokens that go from hand to hand here travel over the
program's own connection in real life. Usage: first_login.py SERVICE/HOST, with a ticket and the service's keytab at hand"""
import sys

import morwen

try:
    with morwen.Package():
        client, server = morwen.ClientLogin(sys.argv[1]), morwen.ServerLogin()
        token = client.step()  # with the logged-on user's own ticket
        while not client.done:
            token = client.step(server.step(token))
        with server.finish() as user:
            print(f"logged on: {user.sid}, in {len(user.groups)} groups")
            with user.context.impersonate():
                print("this thread acts as the user")
except morwen.Error as error:
    sys.exit(f"{error}")
