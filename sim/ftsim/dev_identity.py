"""What the factory identity (gencert) needs of the phone beyond its image:
faults of single tools and of the reserved partition, and a listing of what a
run left in a phone folder.

- `fault PHONE tool NAME[:ARG][@N]`: the tool NAME exits 1 and writes nothing; with
  `:ARG`, only the calls whose first argument is ARG (`openssl:pkcs12`); with `@N`
  only the Nth of those calls since the run started (system/etc/tool-fault.sh). Tools found
  on the PATH get a wrapper in the phone's /system/bin (first on the PATH) as a
  run starts; the wrapper stays and passes every call on once the fault is
  cleared. Phone stubs called by their full path answer the fault themselves.
- `fault PHONE reserved-readonly`: /reserved is mounted read-only from the next
  run on (the console runs as root, so only the mount can refuse it).
- `files PHONE DIR`: one `MODE NAME` line per entry of DIR, sorted by name,
  MODE the permission bits in octal, a folder's name ending in '/'.
"""
import os
import re
import shutil
import stat

from ftsim.phone import Phone, write_atomically
from ftsim.registry import FAULTS, HELP, RUN_HOOKS, UsageError, phone_arg, register_verb

WRAPPER_MARK = "# ftsim tool-fault wrapper"
WRAPPER = f"""#!/bin/sh
{WRAPPER_MARK}: while /sim/faults/tool.NAME (or tool.NAME:ARG, for calls
# whose first argument is ARG; with @N only the Nth such call) exists this tool
# fails and writes nothing; otherwise the call goes on to the tool further down
# the PATH.
name=${{0##*/}}
. /system/etc/tool-fault.sh
tool_faulted "$name" "$1" && exit 1
IFS=:
for dir in $PATH; do
    [ "$dir" = /system/bin ] && continue
    [ -x "$dir/$name" ] && exec "$dir/$name" "$@"
done
echo "$name: not found" >&2
exit 127
"""
TOOL_NAME = re.compile(r"[A-Za-z0-9_+-][A-Za-z0-9._+-]*(?::[A-Za-z0-9_+-][A-Za-z0-9._+-]*)?(?:@[1-9][0-9]*)?")


def tool_name(name):
    if not TOOL_NAME.fullmatch(name):
        raise UsageError(f"not a tool name: {name!r}")
    return name


tool_name.metavar = "NAME[:ARG][@N]"


def _is_wrapper(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            f.readline()
            return f.readline().startswith(WRAPPER_MARK)
    except OSError:
        return False


def _wrap_faulted_tools(phone):
    """A wrapper for each faulted tool the phone's image does not have itself."""
    for fault in os.listdir(phone.p("faults")):
        if not fault.startswith("tool."):
            continue
        path = phone.p("system", "bin", re.split("[:@]", fault[len("tool."):])[0])
        if os.path.lexists(path) and not _is_wrapper(path):
            continue
        write_atomically(path, WRAPPER.encode(), mode=0o755)


def run_hook(phone, build):
    shutil.rmtree(phone.p("run", "tool-calls"), ignore_errors=True)    # @N counts from the start
    _wrap_faulted_tools(phone)
    if phone.fault("reserved-readonly"):
        return ["--ro-bind", phone.bindable("reserved"), "/reserved"]
    return []


FAULTS["tool"] = tool_name
FAULTS["reserved-readonly"] = None
RUN_HOOKS.append(run_hook)
HELP["fault", "tool"] = ("the tool NAME exits with an error and writes nothing; with :ARG only "
                         "its calls whose first argument is ARG (openssl:pkcs12); with @N only "
                         "the Nth of them in the run")
HELP["fault", "reserved-readonly"] = "/reserved is mounted read-only, from the next run on"


@register_verb("files", "what is left in a phone folder, one MODE NAME line per entry")
def setup_files(parser):
    phone_arg(parser)
    parser.add_argument("dir", metavar="DIR", help="a folder of the phone (/reserved/cp/certs)")

    def run(args):
        phone = Phone(args.phone).require()
        root = os.path.realpath(phone.path)
        folder = os.path.realpath(os.path.join(root, args.dir.lstrip("/")))
        if folder != root and not folder.startswith(root + os.sep):
            raise UsageError(f"{args.dir!r} is outside the phone")
        if not os.path.isdir(folder):
            raise UsageError(f"no folder {args.dir!r} in the phone")
        for name in sorted(os.listdir(folder)):
            st = os.lstat(os.path.join(folder, name))
            print(f"{stat.S_IMODE(st.st_mode):04o} {name}{'/' if stat.S_ISDIR(st.st_mode) else ''}")
    return run
