"""Single sign-on with Kerberos: a client proves to a server who its user is, and the server can act as the user.

    import morwen

    with morwen.Package():
        login = morwen.ClientLogin("morwen/server.example.org")
        token = login.step()
        while not login.done:
            token = login.step(exchange(token))  # the program's own: sends the token, returns the answer

1. Calls wait for KDCs, some ten seconds at most for each request. Threads of one process may call at once; an object is used by one
   at a time, an Impersonation by the thread that made it. For asyncio there is morwen.aio.
2. A failed call raises Error. What a program does wrong raises ValueError or RuntimeError.
3. Everything is used inside a Package; the keys of contexts mean nothing outside and in another process.
"""
from .context import Context, Impersonation
from .errors import Denied, Error, NoContext
from .login import ClientLogin, ServerLogin, User
from .package import Package

__all__ = ["ClientLogin", "Context", "Denied", "Error", "Impersonation", "NoContext", "Package", "ServerLogin", "User"]
