#!/usr/bin/env bash
# ./run.sh --two-hosts: runs a sink and a source that find each other over a network, and their
# session.
set -euo pipefail
home=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

give_up() {
    echo "run.sh --two-hosts: $*" >&2
    exit 2
}

outside() { # [--report FILE] [SINK.capi SOURCE.capi]
    unset AGENT REPORT  # what --inside takes: a program, and the descriptor of the report
    if [ "${1:-}" = --report ]; then
        # Opened here: inside, /run is another directory.
        { exec {REPORT}>"${2:-}"; } || give_up "cannot write the report ${2:-}"
        export REPORT
        shift 2
    fi
    case $# in
        0) set -- "$home/examples/r2_sink.capi" "$home/examples/r2_source.capi" ;;
        2) ;;
        *) give_up "takes a script for the sink and one for the source, or nothing" ;;
    esac
    local script scripts=()
    for script in "$@"; do
        if [ ! -f "$script" ] || [ ! -r "$script" ]; then give_up "cannot read $script"; fi
        scripts+=("$(realpath -- "$script")")
    done
    cd "$home"
    . scripts/setup.sh
    install_packages "${BUILD_PACKAGES[@]}"
    build_preset dev build capi-agent miracastSigma device_tool_input device_tool_am

    if [ -z "${COLUMNS:-}" ]; then
        COLUMNS=160
        if [ -t 1 ]; then COLUMNS=$(tput cols 2>/dev/null) || COLUMNS=160; fi
    fi
    export COLUMNS
    exec scripts/network.sh "$home/scripts/two_hosts.sh" --inside "${scripts[@]}"
}

run_agent() { # NAME SCRIPT
    # The daemons need real time to agree on a name; the library waits only ten seconds of device
    # time for it.
    exec "$ON_HOST" "$1" "${AGENT:-$home/build/bin/capi-agent}" --peer linked --time-scale 4 --wait-limit 30 \
        --journal "$NETWORK/$1.journal" ${REPORT:+--report "$NETWORK/$1.html"} "$2" >"$NETWORK/$1.out" 2>"$NETWORK/$1.err"
}

# One page of both reports: what a device adds to the page is a line of its own.
write_report() {
    local line='^<script type="application\/json" data-device="'
    sed -i "s/$line/&sink 192.168.49.2/" "$NETWORK/sink.html"
    sed -n "s/$line/&source 192.168.49.1/p" "$NETWORK/source.html" >"$NETWORK/source.line"
    sed "/$line/r $NETWORK/source.line" "$NETWORK/sink.html" >&"$REPORT"
}

# Prints both journals side by side, without log lines, allocations and the "status,RUNNING"
# answers.
show() {
    local name
    for name in sink source; do sed "s/^/$name /" "$NETWORK/$name.journal" >"$NETWORK/$name.tagged"; done
    LC_ALL=C sort -m -s -k 2,3 "$NETWORK"/{sink,source}.tagged | awk -v width="$COLUMNS" '
        function row(time, left, right) {
            printf "%-12s  %-*s | %s\n", time, column, left, right
        }
        BEGIN {
            column = int((width - 17) / 2)
            if (column < 30) column = 30
            row("", "SINK 192.168.49.2", "SOURCE 192.168.49.1")
        }
        $5 == "log" || $5 == "memory" || $6 == "status,RUNNING" { next }
        {
            host = $1; time = substr($3, 1, 12); component = $5
            sub(/^[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +/, "")
            text = component == "capi" ? $0 : sprintf("  %-10s %s", component, $0)
            while (text != "") {
                end = length(text)
                if (end > column) {
                    for (end = column; end > column / 2; end--)
                        if (substr(text, end, 1) ~ /[ ,]/) break
                }
                part = substr(text, 1, end)
                text = substr(text, end + 1)
                sub(/^ +/, "", text)
                if (text != "") text = "      " text
                if (host == "sink") row(time, part, ""); else row(time, "", part)
                time = ""
            }
        }' | sed 's/ *$//'
}

inside() { # SINK.capi SOURCE.capi
    echo "Two hosts are up, their agents run; this takes about ten seconds" >&2
    local name process status=0 result
    local -A agents  # the running agents, by process id
    touch "$NETWORK"/{sink,source}.journal  # for an agent that cannot start
    run_agent sink "$1" & agents[$!]=sink
    run_agent source "$2" & agents[$!]=source
    while [ ${#agents[@]} -gt 0 ]; do
        result=0
        wait -n -p process "${!agents[@]}" || result=$?
        name=${agents[$process]}
        echo "the agent of the $name ended with status $result" >>"$NETWORK/$name.err"
        unset "agents[$process]"
        if [ $result -ne 0 ]; then
            status=1
            # The other agent would wait for the peer until its time limit.
            if [ ${#agents[@]} -gt 0 ]; then kill -TERM "${!agents[@]}"; fi
        fi
    done
    show
    if [ -n "${REPORT:-}" ]; then write_report; fi
    if [ $status -ne 0 ]; then
        for name in sink source; do sed "s/^/$name: /" "$NETWORK/$name.err" >&2; done
    fi
    exit $status
}

if [ "${1:-}" = --inside ]; then inside "${@:2}"; else outside "$@"; fi
