#!/usr/bin/python3
"""Console benchmarks, each against a baseline measured in the same run:
start-up to the first prompt, piped `program read` throughput, idle memory,
stripped binary size (host and armhf)."""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FTSIM = os.path.join(REPO, "ftsim")
RUNS = 20


def ftsim(*args, **kw):
    return subprocess.run([FTSIM, *args], **kw)


def time_to_prompt(phone):
    start = time.perf_counter()
    p = subprocess.Popen([FTSIM, "run", phone], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    seen = b""
    while not seen.endswith(b"ft>"):
        seen += p.stdout.read(1)
    elapsed = time.perf_counter() - start
    p.stdin.close()
    p.wait()
    return elapsed


def time_command(phone, *argv, stdin=None):
    start = time.perf_counter()
    ftsim("exec", phone, *argv, input=stdin, stdout=subprocess.DEVNULL, check=True)
    return time.perf_counter() - start


def rss_of(root, name):
    """Resident KiB of the process called `name` started under `root`."""
    procs = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat") as f:
                ppid = int(f.read().rsplit(")", 1)[1].split()[1])
            with open(f"/proc/{pid}/comm") as f:
                procs[int(pid)] = (ppid, f.read().strip())
        except OSError:
            pass
    for pid, (_, comm) in procs.items():
        p = pid
        while p in procs and p != root:
            p = procs[p][0]
        if p == root and comm == name:
            with open(f"/proc/{pid}/status") as f:
                return next(int(l.split()[1]) for l in f if l.startswith("VmRSS:"))
    return None


def idle_rss(phone, argv, name):
    p = subprocess.Popen([FTSIM, *argv], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
    time.sleep(1.0)
    rss = rss_of(p.pid, name)
    p.stdin.close()
    p.wait()
    return rss


def stripped_size(path, strip):
    with tempfile.NamedTemporaryFile() as t:
        subprocess.run([strip, "-o", t.name, path], check=True)
        return os.path.getsize(t.name)


def hello_size(cxx, strip, extra=()):
    with tempfile.TemporaryDirectory() as d:
        src = os.path.join(d, "hello.cpp")
        with open(src, "w") as f:
            f.write('#include <cstdio>\nint main() { std::puts("hello"); }\n')
        subprocess.run([cxx, "-O2", "-o", os.path.join(d, "hello"), src, *extra], check=True)
        return stripped_size(os.path.join(d, "hello"), strip)


def report(name, value, unit, baseline, base_name):
    print(f"{name:<34} {value:>12.3f} {unit:<8} baseline {base_name}: {baseline:.3f} {unit}"
          f"  ratio {value / baseline:.2f}")


def main():
    with tempfile.TemporaryDirectory() as d:
        phone = os.path.join(d, "phone")
        ftsim("new", phone, check=True)
        ftsim("store", phone, "phonesn", "SN0001", check=True)

        prompt = statistics.median(time_to_prompt(phone) for _ in range(RUNS)) * 1000
        bash = statistics.median(time_command(phone, "bash", "-c", "true") for _ in range(RUNS)) * 1000
        report("start-up to first prompt", prompt, "ms", bash, "sandboxed bash -c true")

        n = 20000
        lines = ("program read phonesn\n" * n + "quit\n").encode()
        reads = n / time_command(phone, "/bin/sh", "-c",
                                 "LD_PRELOAD=$FTSIM_PRELOAD exec /system/bin/ft", stdin=lines)
        cat = n / time_command(phone, "cat", stdin=lines)
        report("piped program read", reads, "lines/s", cat, "sandboxed cat")

        ft_rss = idle_rss(phone, ["run", phone], "ft")
        bash_rss = idle_rss(phone, ["exec", phone, "bash"], "bash")
        report("idle resident memory", ft_rss, "KiB", bash_rss, "idle bash")

    host_ft = os.path.join(REPO, "build", "host", "out", "bin", "ft")
    report("stripped size, host", stripped_size(host_ft, "strip") / 1024, "KiB",
           hello_size("g++", "strip") / 1024, "hello world")
    arm_ft = os.path.join(REPO, "build", "arm", "out", "bin", "ft")
    if os.path.exists(arm_ft) and shutil.which("arm-linux-gnueabihf-g++"):
        report("stripped size, armhf", stripped_size(arm_ft, "arm-linux-gnueabihf-strip") / 1024,
               "KiB", hello_size("arm-linux-gnueabihf-g++", "arm-linux-gnueabihf-strip") / 1024,
               "hello world")


if __name__ == "__main__":
    sys.exit(main())
