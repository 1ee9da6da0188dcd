"""The station's FTP server: Debian's pyftpdlib serving one folder, with the
login the station engineer set (read afresh at every login, so a change takes
effect without a restart).

    python3 ftp_server.py ROOT LOGIN_FILE ADDRESS PORT READY_FILE STATION_NETNS

A fault file beside the login file (station-fault: stall or drop), read afresh
at each connection and each download, rehearses a failing server: `stall`
accepts a connection and never answers, until its idle timeout (STALL_SECONDS)
closes it with 421; `drop` sends half of a download, or keeps half of an
upload's first piece, then cuts the data connection (426).

It listens at once and writes the ready file, which the phone's FTP tools wait
for; pyftpdlib itself is loaded only when the first client knocks, so a run that
never uses FTP does not pay for it. SIGTERM ends it; so does the end of its
station (STATION_NETNS, the named namespace it runs in, gone or another), should
whoever removed the station have died before stopping the server.

The folder, the login file and the ready file all lie in the phone's folder,
which the phone can write: none of them is followed through a symbolic link, and
the server serves from a chroot into the folder it opened at start, so nothing
the phone puts there can lead the server (root) to the host's files."""
import errno
import json
import os
import select
import signal
import socket
import sys

# List, change folder, read; create folders, write, append, delete, rename.
PERMS = "elradfmw"
DEFAULT_LOGIN = ("station", "station")


def open_nofollow(path, flags, dir_fd=None):
    return os.open(path, flags | os.O_NOFOLLOW | os.O_CLOEXEC, 0o644, dir_fd=dir_fd)


def read_login(dir_fd, name):
    try:
        with os.fdopen(open_nofollow(name, os.O_RDONLY, dir_fd)) as f:
            login = json.load(f)
        return login["user"], login["password"]
    except (OSError, ValueError, KeyError, TypeError):
        return DEFAULT_LOGIN


def write_ready(dir_fd, name):
    tmp = name + ".new"
    try:
        os.unlink(tmp, dir_fd=dir_fd)
    except FileNotFoundError:
        pass
    with os.fdopen(open_nofollow(tmp, os.O_WRONLY | os.O_CREAT | os.O_EXCL, dir_fd), "w") as f:
        f.write(f"{os.getpid()}\n")
    os.replace(tmp, name, src_dir_fd=dir_fd, dst_dir_fd=dir_fd)


class Station:
    """Whether the named network namespace is still the one this server runs in."""

    def __init__(self, netns_path):
        self.dir_fd = os.open(os.path.dirname(netns_path), os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        self.name = os.path.basename(netns_path)
        self.inode = os.stat("/proc/self/ns/net").st_ino

    def gone(self):
        try:
            return os.stat(self.name, dir_fd=self.dir_fd).st_ino != self.inode
        except OSError:
            return True


CHECK_SECONDS = 2
STALL_SECONDS = 3
FAULT_FILE = "station-fault"


def read_fault(dir_fd):
    try:
        with os.fdopen(open_nofollow(FAULT_FILE, os.O_RDONLY, dir_fd)) as f:
            return f.read(16).strip()
    except OSError:
        return ""


def serve(sock, root_fd, login_dir_fd, login_name, station):
    import logging

    from pyftpdlib.authorizers import AuthenticationFailed, DummyAuthorizer
    from pyftpdlib.handlers import DTPHandler, FTPHandler, _FileReadWriteError
    from pyftpdlib.servers import FTPServer

    class StationLogin(DummyAuthorizer):
        """One user, whose name and password live in a file; one folder."""

        def validate_authentication(self, username, password, handler):
            if (username, password) != read_login(login_dir_fd, login_name):
                raise AuthenticationFailed("Authentication failed.")

        def get_home_dir(self, username):
            return "/"

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
    # Everything is loaded: from here on the station folder is the whole world.
    os.fchdir(root_fd)
    os.chroot(".")
    class CutOff:
        """A producer: the first half of a file, then the connection is reset."""

        def __init__(self, data):
            self.data = data

        def more(self):
            if self.data is None:
                raise _FileReadWriteError(errno.ECONNRESET, os.strerror(errno.ECONNRESET))
            data, self.data = self.data, None
            return data

    class CuttingDTP(DTPHandler):
        """A data connection that, under `drop`, keeps half of an upload's first
        piece and then resets the connection (426), as a server that falls over
        mid-transfer."""

        def handle_read(self):
            if getattr(self, "_drop", None) is None:
                self._drop = self.receive and read_fault(login_dir_fd) == "drop"
            if not self._drop:
                return super().handle_read()
            chunk = self.recv(self.ac_in_buffer_size)
            if not chunk:               # an empty upload: nothing to cut
                self.transfer_finished = True
                return None
            self.file_obj.write(chunk[:len(chunk) // 2])
            self.tot_bytes_received += len(chunk) // 2
            raise _FileReadWriteError(errno.ECONNRESET, os.strerror(errno.ECONNRESET))

        handle_read_event = handle_read

    class StationHandler(FTPHandler):
        def handle(self):
            if read_fault(login_dir_fd) != "stall":
                return super().handle()
            if self._idler is not None and not self._idler.cancelled:
                self._idler.cancel()
            self._idler = self.ioloop.call_later(STALL_SECONDS, self.handle_timeout,
                                                 _errback=self.handle_error)

        def ftp_RETR(self, file):
            if read_fault(login_dir_fd) != "drop":
                return super().ftp_RETR(file)
            try:
                with self.fs.open(file, "rb") as f:
                    data = f.read()
            except OSError as e:
                self.respond(f"550 {e.strerror}.")
                return None
            self.push_dtp_data(CutOff(data[:len(data) // 2]), isproducer=True, cmd="RETR")
            return file

    handler = StationHandler
    handler.dtp_handler = CuttingDTP
    handler.authorizer = StationLogin()
    handler.auth_failed_timeout = 0       # a wrong login is answered at once
    handler.banner = "station FTP server ready."
    server = FTPServer(sock, handler)
    server.ioloop.call_every(CHECK_SECONDS, lambda: station.gone() and sys.exit(0))
    server.serve_forever(handle_exit=True)


def main(root, login_file, address, port, ready_file, netns_path):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    station = Station(netns_path)
    root_fd = open_nofollow(root, os.O_RDONLY | os.O_DIRECTORY)
    login_dir_fd = open_nofollow(os.path.dirname(login_file), os.O_RDONLY | os.O_DIRECTORY)
    ready_dir_fd = open_nofollow(os.path.dirname(ready_file), os.O_RDONLY | os.O_DIRECTORY)
    sock = socket.create_server((address, int(port)), backlog=16)
    write_ready(ready_dir_fd, os.path.basename(ready_file))
    # The first client waits in the backlog while pyftpdlib loads.
    while not select.select([sock], [], [], CHECK_SECONDS)[0]:
        if station.gone():
            return
    serve(sock, root_fd, login_dir_fd, os.path.basename(login_file), station)


if __name__ == "__main__":
    if len(sys.argv) != 7:
        sys.exit(__doc__)
    main(*sys.argv[1:])
