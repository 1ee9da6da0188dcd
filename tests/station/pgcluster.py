"""A throwaway PostgreSQL cluster of Debian's server, run as `postgres` on a Unix
socket in a temporary folder; used by the line database's tests and benchmark."""
import os
import shutil
import subprocess
import tempfile

BIN = "/usr/lib/postgresql/15/bin"


class Cluster:
    def __init__(self, tcp_port=None, fsync=False):
        self.dir = tempfile.mkdtemp(prefix="ftline-")
        os.chmod(self.dir, 0o755)
        self.data, self.sock = os.path.join(self.dir, "pg"), os.path.join(self.dir, "sock")
        self.log = os.path.join(self.dir, "pg.log")
        self.port, self.fsync = tcp_port, fsync
        os.makedirs(self.data)
        os.makedirs(self.sock)
        open(self.log, "w").close()
        for path in (self.data, self.sock, self.log):
            shutil.chown(path, "postgres", "postgres")
        self._pg("initdb", "-D", self.data, "-A", "trust", "-U", "postgres", timeout=120)
        with open(os.path.join(self.data, "pg_hba.conf"), "w") as f:
            # The socket trusts the tests' own user; TCP on 127.0.0.1 asks for a password.
            f.write("local all postgres trust\nlocal all all scram-sha-256\n"
                    "host all all 127.0.0.1/32 scram-sha-256\n")
        self.start()

    def _pg(self, tool, *args, timeout=60):
        return subprocess.run(["runuser", "-u", "postgres", "--", os.path.join(BIN, tool), *args],
                              check=True, capture_output=True, text=True, timeout=timeout)

    def start(self):
        listen = f"-c listen_addresses=127.0.0.1 -p {self.port}" if self.port else \
            "-c listen_addresses=''"
        self._pg("pg_ctl", "-D", self.data, "-l", self.log, "-w", "-t", "60", "start",
                 "-o", f"-k {self.sock} {listen} -c fsync={'on' if self.fsync else 'off'}", timeout=90)

    def stop(self, mode="fast"):
        self._pg("pg_ctl", "-D", self.data, "-m", mode, "-w", "-t", "60", "stop", timeout=90)

    def url(self, db, user="postgres"):
        port = f"&port={self.port}" if self.port else ""
        return f"postgresql:///{db}?host={self.sock}&user={user}{port}"

    def sql(self, db, text):
        return self._pg("psql", "-h", self.sock, *(["-p", str(self.port)] if self.port else []),
                        "-U", "postgres", "-d", db, "-v", "ON_ERROR_STOP=1", "-qAtc", text).stdout

    def createdb(self, name):
        self._pg("createdb", "-h", self.sock, *(["-p", str(self.port)] if self.port else []),
                 "-U", "postgres", name)
        return self.url(name)

    def close(self):
        try:
            self.stop("immediate")
        except subprocess.SubprocessError:
            pass
        shutil.rmtree(self.dir, ignore_errors=True)
