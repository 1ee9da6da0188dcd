"""The station kit: drive the factory-test console over a pipe, a terminal or
a serial line, and run test plans against it."""
from ftstation.console import (Console, ConsoleEnded, ConsoleTimeout, Identity, Readback, Reply,
                               StationError, parse_identity)
from ftstation.conventions import verdict

__all__ = ["Console", "ConsoleEnded", "ConsoleTimeout", "Identity", "Readback", "Reply",
           "StationError", "parse_identity", "verdict"]
