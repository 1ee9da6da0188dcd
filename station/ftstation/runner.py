"""Runs a plan's steps against one console, one progress line per step, and
keeps what each step did for the unit's record."""
import re
import shlex
import sys
import time

from ftstation import measure
from ftstation.console import ConsoleEnded, ConsoleTimeout, StationError, parse_identity


class Outcome:
    def __init__(self, step):
        self.step, self.verdict, self.note = step, "PASS", ""
        self.lines, self.events, self.duration = [], [], 0.0
        self.stop = False            # the console can take no more steps
        self.measurements = []       # records of measure.evaluate, none for a skipped step

    def fail(self, note):
        if self.verdict == "PASS":
            self.verdict, self.note = "FAIL", note

    def as_record(self):
        return {"name": self.step.name, "command": self.step.command, "verdict": self.verdict,
                "duration": round(self.duration, 3), "output": "\n".join(self.lines),
                "events": self.events, "note": self.note, "measurements": self.measurements}


def confirm(prompt):
    """Shows the operator's action and waits for Enter; False when nobody can answer."""
    print(f"  >>> {prompt} (Enter when done)", file=sys.stderr, flush=True)
    return bool(sys.stdin.readline())


def run_step(console, step, simulated, identity, ask=None):
    """Runs one step; `identity` collects the thumbprint a gencert step shows;
    `ask(prompt)` confirms an operator's action (by default Enter on stdin)."""
    out = Outcome(step)
    start = time.monotonic()
    deadline = start + step.timeout
    try:
        if step.command:
            _command(console, step, simulated, out, identity, deadline)
        if step.prompt and out.verdict == "PASS":
            if simulated:
                for line in step.sim:
                    verb, *args = shlex.split(line)
                    console.sim(verb, *args)
            elif not (ask or confirm)(step.prompt):
                out.fail("no operator confirmed the action")
        if step.events and out.verdict == "PASS":
            seen = list(out.events)
            for pattern in step.events:
                hit = next((e for e in seen if re.search(pattern, e)), None)
                if hit is not None:
                    seen.remove(hit)
                    continue
                try:
                    left = max(0.0, deadline - time.monotonic())
                    out.events.append(console.wait_event(pattern, left))
                except ConsoleTimeout as e:
                    out.fail(e.what)     # the console still runs: the run may go on
                    break
        if not step.ends_console:
            out.events += console.events()
    except ConsoleEnded as e:
        out.fail(f"the console ended (exit status {e.status})")
        out.stop = True
    except ConsoleTimeout as e:
        out.fail(e.what)
        out.lines += ["--- the console's last output ---", *e.tail.splitlines()]
        out.stop = True
    except StationError as e:
        out.fail(e.what)
    out.duration = time.monotonic() - start
    notes = []
    for m in step.measures:
        record, note = measure.evaluate(m, "\n".join(out.lines), out.events, out.duration)
        out.measurements.append(record)
        if note:
            notes.append(note)
    if notes:
        out.fail("; ".join(notes))
    return out


def _command(console, step, simulated, out, identity, deadline):
    reply = console.run(step.command, timeout=step.timeout, interrupt_after=step.interrupt_after,
                        ends_console=step.ends_console)
    out.lines += reply.lines
    out.events += reply.events
    found = parse_identity(reply)
    if found:
        identity["thumbprint"] = found.thumbprint
    wanted = step.verdict
    if wanted is None and step.match is None and step.output is None:
        wanted = "PASS"
    if step.match is not None and not re.search(step.match, reply.output, re.M):
        out.fail(f"the output does not hold /{step.match}/")
    if wanted is not None and reply.verdict != (None if wanted == "none" else wanted):
        out.fail(f"verdict {reply.verdict}, wanted {wanted}")
    if step.output is not None and reply.output != step.output:
        out.fail(f"output {reply.output!r}, wanted {step.output!r}")
    if step.ends_console:
        if not reply.ended:
            out.fail("the console did not end")
        elif simulated and reply.status != 0:
            out.fail(f"the console ended with exit status {reply.status}")
        out.stop = True
    if step.stored is not None and out.verdict == "PASS":
        read, value = console.read_back(step.param, max(0.1, deadline - time.monotonic()))
        out.lines += [f"{read.command}:", *read.lines]
        if value != step.stored:
            out.fail(f"read back {value!r}, wanted {step.stored!r}")


def run(console, plan, simulated, outcomes, identity, progress=sys.stdout, *, before=None,
        after=None, ask=None, abort=None):
    """Every step in order, each outcome appended to `outcomes` as it comes
    (steps after a failure that stops the run are skipped, and so are the steps
    left when `abort` is set). `before(i, n, step)` and `after(i, n, outcome)`
    are called around each step."""
    stopped, all_passed = None, True
    n = len(plan.steps)
    for i, step in enumerate(plan.steps, 1):
        if not stopped and abort is not None and abort.is_set():
            stopped = f"not run: {abort.reason}"
        if before:
            before(i, n, step)
        if stopped or (step.needs_all_passed and not all_passed):
            out = Outcome(step)
            out.verdict = "SKIP"
            out.note = stopped or "an earlier step failed"
        else:
            out = run_step(console, step, simulated, identity, ask)
            if out.verdict == "FAIL":
                all_passed = False
                if out.stop or step.stop_on_failure:
                    stopped = f"not run: step {i} ({step.name}) failed"
            elif out.stop:
                stopped = f"not run: the console ended at step {i} ({step.name})"
        outcomes.append(out)
        note = f"  {out.note}" if out.note else ""
        print(f"[{i:>{len(str(n))}}/{n}] {step.name:<32} {out.verdict:<4} "
              f"{out.duration:6.2f} s{note}", file=progress, flush=True)
        if after:
            after(i, n, out)
