import os
import signal
import sys

from ftsim.cli import main

try:
    status = main(sys.argv[1:])
    sys.stdout.flush()
except BrokenPipeError:
    # Whoever read our output stopped early (| head): end quietly, as a tool
    # killed by SIGPIPE does, with nothing left to flush.
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    status = 128 + signal.SIGPIPE
sys.exit(status)
