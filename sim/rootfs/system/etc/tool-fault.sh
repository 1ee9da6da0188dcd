# Sourced by the phone's stub tools and by ftsim's fault wrappers.
# tool_faulted NAME [FIRST_ARG] succeeds when `ftsim fault PHONE tool
# NAME[:ARG][@N]` holds for this call: always, or for its Nth call since the
# run started (the calls of NAME, or with :ARG those whose first argument is
# ARG, counted one line per call in /sim/run/tool-calls/).
tool_faulted() {
    _calls=/sim/run/tool-calls
    mkdir -p "$_calls" 2>/dev/null
    echo >> "$_calls/$1"
    _n=$(wc -l < "$_calls/$1")
    [ -e "/sim/faults/tool.$1" ] || [ -e "/sim/faults/tool.$1@$_n" ] && return 0
    case $2 in */*|'') return 1 ;; esac
    echo >> "$_calls/$1:$2"
    _n=$(wc -l < "$_calls/$1:$2")
    [ -e "/sim/faults/tool.$1:$2" ] || [ -e "/sim/faults/tool.$1:$2@$_n" ]
}
