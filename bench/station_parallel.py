#!/usr/bin/python3
"""The station server's fixtures side by side: the production flow on 1, then 4,
then 8 simulated fixtures started at once, each against the one-fixture time
of the same run (required: 4 within 1.5 times, goal: 8 within 1.3 times).
Then the page's update latency (a step's end, as the console prints its
prompt, to the event on the page's stream) and the server's CPU while one page
watches and nothing changes.

    bench/station_parallel.py [--fixtures 1,4,8] [--steps 200] [--idle 10]"""
import argparse
import http.client
import json
import os
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FTSTATION = os.path.join(REPO, "ftstation")
PLAN = os.path.join(REPO, "station", "plans", "production.toml")
REQUIRED, GOAL = 1.5, 1.3

# A console stand-in that notes when it prints each prompt: the moment the
# step's reply is complete.
STAND_IN = r"""
import sys, termios, time
attrs = termios.tcgetattr(0)
attrs[3] &= ~termios.ECHO
termios.tcsetattr(0, termios.TCSANOW, attrs)
times = open(sys.argv[1], "a")
sys.stdout.write("ft>"); sys.stdout.flush()
for line in sys.stdin:
    if line.strip() == "quit":
        break
    sys.stdout.write(line.rstrip("\n") + "\nPASS\nft>"); sys.stdout.flush()
    times.write(f"{time.time()}\n"); times.flush()
"""


class Server:
    def __init__(self, station):
        self.proc = subprocess.Popen([FTSTATION, "serve", station, "--port", "0"],
                                     stdout=subprocess.PIPE, text=True)
        url = self.proc.stdout.readline().strip()
        self.port, self.token = int(url.split(":")[2].split("/")[0]), url.split("token=")[1]

    def call(self, method, path, body=None):
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        conn.request(method, path, body=json.dumps(body) if body is not None else None,
                     headers={"Authorization": f"Bearer {self.token}"})
        r = conn.getresponse()
        answer = json.loads(r.read())
        conn.close()
        return r.status, answer

    def events(self):
        """The page's event stream: yields (arrival time, status) per event."""
        conn = http.client.HTTPConnection("127.0.0.1", self.port, timeout=600)
        conn.request("GET", f"/events?token={self.token}")
        stream = conn.getresponse()
        for line in stream:
            if line.startswith(b"data: "):
                yield time.time(), json.loads(line[6:])

    def cpu_seconds(self):
        with open(f"/proc/{self.proc.pid}/stat") as f:
            fields = f.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def stop(self):
        self.proc.send_signal(signal.SIGTERM)
        self.proc.wait(60)


def station_file(tmp, name, plan, fixtures):
    path = os.path.join(tmp, name + ".toml")
    with open(path, "w") as f:
        f.write(f'[station]\nid = "bench"\nplan = "{plan}"\nrecords = "{name}"\n')
        for fixture in fixtures:
            f.write(f"\n[[fixture]]\n{fixture}\n")
    return path


def parallel(tmp, n):
    """Seconds until all n fixtures have run the production flow; and their results."""
    fixtures = [f'name = "F{i}"\nsimulated = true' for i in range(n)]
    server = Server(station_file(tmp, f"parallel{n}", PLAN, fixtures))
    try:
        start = time.perf_counter()
        for i in range(n):
            status, answer = server.call("POST", f"/api/fixtures/F{i}/start",
                                         {"serial": f"SN{n:02d}{i:05d}"})
            assert status == 202, answer
        while True:
            fixtures = server.call("GET", "/api/status")[1]["fixtures"]
            if all(f["state"] == "finished" for f in fixtures):
                return (time.perf_counter() - start, [f["result"] for f in fixtures],
                        server.cpu_seconds())
            time.sleep(0.2)
    finally:
        server.stop()


def latency_and_idle(tmp, steps, idle):
    with open(os.path.join(tmp, "stand_in.py"), "w") as f:
        f.write(STAND_IN)
    times = os.path.join(tmp, "prompts")
    plan = os.path.join(tmp, "info.toml")
    with open(plan, "w") as f:
        f.write("".join(f'[[step]]\nname = "info {i}"\ncommand = "info"\n'
                        for i in range(steps)))
    spawn = json.dumps(["/usr/bin/python3", os.path.join(tmp, "stand_in.py"), times])
    server = Server(station_file(tmp, "latency", plan, [f'name = "L"\nspawn = {spawn}']))
    try:
        arrived, ready = {}, threading.Event()

        def watch():
            for at, status in server.events():
                ready.set()
                done = status["fixtures"][0]["done"]
                arrived.setdefault(done, at)
        threading.Thread(target=watch, daemon=True).start()
        ready.wait(10)
        server.call("POST", "/api/fixtures/L/start", {"serial": "SN-LATENCY"})
        while server.call("GET", "/api/status")[1]["fixtures"][0]["state"] != "finished":
            time.sleep(0.2)
        time.sleep(0.5)
        with open(times) as f:
            ends = [float(line) for line in f]
        delays = sorted((arrived[i + 1] - end) * 1000 for i, end in enumerate(ends[:steps])
                        if i + 1 in arrived)
        before = server.cpu_seconds()
        time.sleep(idle)
        cpu = server.cpu_seconds() - before
    finally:
        server.stop()
    return delays, cpu


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--fixtures", default="1,4,8")
    p.add_argument("--steps", type=int, default=200)
    p.add_argument("--idle", type=float, default=10.0)
    args = p.parse_args()
    counts = [int(n) for n in args.fixtures.split(",") if n]
    with tempfile.TemporaryDirectory() as tmp:
        delays, cpu = latency_and_idle(tmp, args.steps, args.idle)
        print(f"station_parallel: page update after a step's end, {len(delays)} steps: median "
              f"{statistics.median(delays):.1f} ms, p99 {delays[int(0.99 * (len(delays) - 1))]:.1f} "
              f"ms, worst {delays[-1]:.1f} ms (goal: within 200 ms)")
        print(f"station_parallel: server CPU with one page open and nothing changing: "
              f"{cpu:.2f} s in {args.idle:g} s ({100 * cpu / args.idle:.2f} %)")
        one = None
        for n in counts:
            load = os.getloadavg()[0]
            seconds, results, cpu = parallel(tmp, n)
            one = one or seconds
            ratio = seconds / one
            aim = f" (required: <= {REQUIRED}, goal: <= {GOAL})" if n > 1 else ""
            print(f"station_parallel: production flow on {n} fixture(s) at once: {seconds:.1f} s, "
                  f"ratio to one fixture {ratio:.2f}{aim}; the server's own CPU {cpu:.1f} s; "
                  f"load average before {load:.1f}; results {' '.join(results)}",
                  flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
