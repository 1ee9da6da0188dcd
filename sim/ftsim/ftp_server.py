"""The station's FTP server: Debian's pyftpdlib serving one folder, with the
login the station engineer set (read afresh at every login, so a change takes
effect without a restart).

    python3 ftp_server.py ROOT LOGIN_FILE ADDRESS PORT READY_FILE

It listens at once and writes the ready file, which the phone's FTP tools wait
for; pyftpdlib itself is loaded only when the first client knocks, so a run that
never uses FTP does not pay for it. SIGTERM ends it."""
import json
import os
import select
import signal
import socket
import sys

# List, change folder, read; create folders, write, append, delete, rename.
PERMS = "elradfmw"
DEFAULT_LOGIN = ("station", "station")


def read_login(path):
    try:
        with open(path) as f:
            login = json.load(f)
        return login["user"], login["password"]
    except (OSError, ValueError, KeyError, TypeError):
        return DEFAULT_LOGIN


def serve(sock, root, login_file):
    import logging

    from pyftpdlib.authorizers import AuthenticationFailed, DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler
    from pyftpdlib.servers import FTPServer

    class StationLogin(DummyAuthorizer):
        """One user, whose name and password live in a file; one folder."""

        def validate_authentication(self, username, password, handler):
            if (username, password) != read_login(login_file):
                raise AuthenticationFailed("Authentication failed.")

        def get_home_dir(self, username):
            return root

        def has_user(self, username):
            return True

        def has_perm(self, username, perm, path=None):
            return perm in PERMS

        def get_perms(self, username):
            return PERMS

        def get_msg_login(self, username):
            return "Login successful."

        def get_msg_quit(self, username):
            return "Goodbye."

    logging.basicConfig(level=logging.WARNING, format="%(asctime)s %(message)s")
    handler = type("StationHandler", (FTPHandler,), {})
    handler.authorizer = StationLogin()
    handler.auth_failed_timeout = 0       # a wrong login is answered at once
    handler.banner = "station FTP server ready."
    FTPServer(sock, handler).serve_forever(handle_exit=True)


def main(root, login_file, address, port, ready_file):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    sock = socket.create_server((address, int(port)), backlog=16)
    tmp = ready_file + ".new"
    with open(tmp, "w") as f:
        f.write(f"{os.getpid()}\n")
    os.replace(tmp, ready_file)
    select.select([sock], [], [])         # the first client waits in the backlog
    serve(sock, os.path.realpath(root), login_file)


if __name__ == "__main__":
    if len(sys.argv) != 6:
        sys.exit(__doc__)
    main(*sys.argv[1:])
