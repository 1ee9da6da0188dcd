"""The station's FTP server: Debian's pyftpdlib serving one folder, with the
login the station engineer set (read afresh at every login, so a change takes
effect without a restart).

    python3 ftp_server.py ROOT LOGIN_FILE ADDRESS PORT READY_FILE

The ready file appears once the server listens; the phone's FTP tools wait for it.
SIGTERM ends it."""
import json
import logging
import os
import signal
import sys

from pyftpdlib.authorizers import AuthenticationFailed, DummyAuthorizer
from pyftpdlib.handlers import FTPHandler
from pyftpdlib.servers import FTPServer

# List, change folder, read; create folders, write, append, delete, rename.
PERMS = "elradfmw"
DEFAULT_LOGIN = {"user": "station", "password": "station"}


def read_login(path):
    try:
        with open(path) as f:
            login = json.load(f)
        return login["user"], login["password"]
    except (OSError, ValueError, KeyError, TypeError):
        return DEFAULT_LOGIN["user"], DEFAULT_LOGIN["password"]


class StationLogin(DummyAuthorizer):
    """One user, whose name and password live in a file; one folder."""

    def __init__(self, root, login_file):
        super().__init__()
        self.root, self.login_file = root, login_file

    def validate_authentication(self, username, password, handler):
        if (username, password) != read_login(self.login_file):
            raise AuthenticationFailed("Authentication failed.")

    def get_home_dir(self, username):
        return self.root

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


def main(root, login_file, address, port, ready_file):
    logging.basicConfig(level=logging.WARNING, format="%(asctime)s %(message)s")
    handler = type("StationHandler", (FTPHandler,), {})
    handler.authorizer = StationLogin(os.path.realpath(root), login_file)
    handler.auth_failed_timeout = 0       # a wrong login is answered at once
    handler.banner = "station FTP server ready."
    server = FTPServer((address, int(port)), handler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    tmp = ready_file + ".new"
    with open(tmp, "w") as f:
        f.write(f"{os.getpid()}\n")
    os.replace(tmp, ready_file)
    server.serve_forever(handle_exit=True)


if __name__ == "__main__":
    if len(sys.argv) != 6:
        sys.exit(__doc__)
    main(*sys.argv[1:])
