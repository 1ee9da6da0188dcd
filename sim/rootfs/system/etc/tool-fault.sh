# Sourced by the phone's stub tools and by ftsim's fault wrappers.
# tool_faulted NAME [FIRST_ARG] succeeds when `ftsim fault PHONE tool
# NAME[:ARG][@N]` holds for this call: always, or for its Nth call since the
# run started (the calls of NAME, or with :ARG those whose first argument is
# ARG, counted one line per call in /sim/run/tool-calls/; ethtool's stub keeps
# the same count). Shell built-ins only: every stub call passes through here.
_tool_count() {    # appends a call to count file $1; _n: the calls in it
    echo >> "$_calls/$1"
    _n=0
    while read -r _line; do _n=$((_n + 1)); done < "$_calls/$1"
}

tool_faulted() {
    _calls=/sim/run/tool-calls
    [ -d "$_calls" ] || mkdir -p "$_calls" 2>/dev/null
    _tool_count "$1"
    [ -e "/sim/faults/tool.$1" ] || [ -e "/sim/faults/tool.$1@$_n" ] && return 0
    case $2 in */*|'') return 1 ;; esac
    _tool_count "$1:$2"
    [ -e "/sim/faults/tool.$1:$2" ] || [ -e "/sim/faults/tool.$1:$2@$_n" ]
}
