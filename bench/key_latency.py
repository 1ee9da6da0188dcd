#!/usr/bin/python3
"""Latency from a key press injected into the keypad's event device to its
event line on the console's standard output, over 1,000 presses, on a fresh
simulated phone. Aim: a median under 2 ms."""
import os
import select
import statistics
import subprocess
import sys
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPO, "sim"))
from ftsim import dev_input  # noqa: E402
from ftsim.phone import Phone  # noqa: E402

FTSIM = os.path.join(REPO, "ftsim")
PRESSES = 1000
CLI_PRESSES = 20
GOAL_MS = 2.0


class Console:
    def __init__(self, phone):
        self.proc = subprocess.Popen([FTSIM, "run", phone.path], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE)
        self.buf = b""

    def send(self, line):
        self.proc.stdin.write(line.encode() + b"\n")
        self.proc.stdin.flush()

    def wait_for(self, text, timeout=10):
        text = text.encode()
        deadline = time.monotonic() + timeout
        while text not in self.buf:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self.proc.stdout], [], [], left)[0]:
                sys.exit(f"key_latency: no {text!r} from the console")
            data = os.read(self.proc.stdout.fileno(), 65536)
            if not data:
                sys.exit("key_latency: the console ended")
            self.buf += data
        self.buf = self.buf[self.buf.index(text) + len(text):]

    def quit(self):
        self.send("quit")
        self.proc.stdin.close()
        self.proc.stdout.read()
        self.proc.wait()


def percentile(values, p):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(p / 100 * (len(ordered) - 1))))]


def main():
    with tempfile.TemporaryDirectory() as tmp:
        phone = Phone(os.path.join(tmp, "phone"))
        subprocess.run([FTSIM, "new", phone.path], check=True)
        console = Console(phone)
        console.wait_for("ft>")
        console.send("key 1")
        console.wait_for("Start keypad test\n")

        fd = os.open(dev_input.fifo(phone, "event0"), os.O_WRONLY | os.O_CLOEXEC)
        samples = []
        for i in range(PRESSES):
            code = 2 + i % 10
            press = dev_input.records(phone, (dev_input.EV_KEY, code, 1), (dev_input.EV_SYN, 0, 0))
            release = dev_input.records(phone, (dev_input.EV_KEY, code, 0), (dev_input.EV_SYN, 0, 0))
            start = time.perf_counter()
            os.write(fd, press)
            console.wait_for(f"KeyCode[{code:04x}] value[1]\n")
            samples.append((time.perf_counter() - start) * 1000)
            os.write(fd, release)
            console.wait_for(f"KeyCode[{code:04x}] value[0]\n")
        os.close(fd)

        # The station's view through the command line tool, process start included.
        cli = []
        for _ in range(CLI_PRESSES):
            start = time.perf_counter()
            subprocess.run([FTSIM, "press", phone.path, "KEY_5"], check=True)
            console.wait_for("KeyCode[0006] value[0]\n")
            cli.append((time.perf_counter() - start) * 1000)
        console.quit()

    median, p99 = statistics.median(samples), percentile(samples, 99)
    print(f"key_latency: {PRESSES} presses, injected record to event line: "
          f"median {median:.3f} ms, p99 {p99:.3f} ms, max {max(samples):.3f} ms "
          f"(goal: median < {GOAL_MS} ms)")
    print(f"key_latency: `ftsim press` to release line, {CLI_PRESSES} runs: "
          f"median {statistics.median(cli):.1f} ms")
    return 0 if median < GOAL_MS else 1


if __name__ == "__main__":
    sys.exit(main())
