"""The TOML files the kit reads (plans, station files): read whole and parsed,
every problem one `FILE:LINE: problem` error."""
import re
import tomllib


class FileError(Exception):
    def __init__(self, path, line, problem):
        super().__init__(f"{path}:{line}: {problem}" if line else f"{path}: {problem}")


def read(path, error, what):
    """(bytes, text, document) of the TOML file at `path`; one `error` (a
    FileError class) when it cannot be read or parsed, `what` naming the file."""
    try:
        with open(path, "rb") as f:
            raw = f.read()
        text = raw.decode()
    except (OSError, UnicodeDecodeError) as e:
        raise error(path, None, f"cannot read the {what}: {e}") from None
    try:
        return raw, text, tomllib.loads(text)
    except tomllib.TOMLDecodeError as e:
        m = re.search(r"\(at line (\d+), column \d+\)$", str(e))
        raise error(path, m[1] if m else 1, re.sub(r"\s*\(at line.*$", "", str(e))) from None


def check_type(allowed, key, value, bad, table=""):
    """Calls bad(problem) for a key not in `allowed` (key -> type or types) or
    a value of another type (a bool is no int); `table` prefixes the key's name."""
    if key not in allowed:
        bad(f"unknown key {table + key!r}")
    kind = allowed[key]
    if not isinstance(value, kind) or (isinstance(value, bool) and kind != bool):
        bad(f"{table + key} has the wrong type")
