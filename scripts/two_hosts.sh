#!/usr/bin/env bash
# ./run.sh --two-hosts: a sink and a source that find each other over a network, and their session.
#
# The hosts are network namespaces. They, the daemons on them and every file lie in a process and a
# mount namespace, whose first process is this script once more: when that ends, however it ends,
# the kernel removes the rest.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin
home=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=/run/two-hosts

# The daemons need real time to agree on a name, while the library gives them ten seconds of device
# time.
time_scale=4

give_up() {
    echo "run.sh --two-hosts: $*" >&2
    exit 2
}

# --- Outside -------------------------------------------------------------------------------------

outside() { # [SINK.capi SOURCE.capi]
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
    [ "$(id -u)" -eq 0 ] || give_up "needs root, to make network namespaces"
    local namespaces=(unshare --net --mount --pid --fork --mount-proc --kill-child)
    "${namespaces[@]}" true 2>/dev/null ||
        give_up "network, mount and process namespaces are not permitted here"

    cd "$home"
    . scripts/setup.sh
    install_packages "${BUILD_PACKAGES[@]}" avahi-daemon dbus iproute2
    build_preset dev build capi-agent miracastSigma device_tool_input device_tool_am

    if [ -z "${COLUMNS:-}" ]; then
        COLUMNS=160
        if [ -t 1 ]; then COLUMNS=$(tput cols 2>/dev/null) || COLUMNS=160; fi
    fi
    export COLUMNS
    # unshare is deaf to SIGINT and SIGTERM. It dies with this shell, and what is inside with it. Its
    # own standard error gets only what it says of an interruption.
    setpriv --pdeathsig KILL "${namespaces[@]}" "$BASH" "$home/scripts/two_hosts.sh" --inside \
        "${scripts[@]}" 3>&2 2>/dev/null &
    trap 'end_by INT' INT
    trap 'end_by TERM' TERM
    trap 'end_by HUP' HUP
    wait $!
}

end_by() { # SIGNAL
    # The first process inside, which unshare then takes away: orphaned, it could stay as a zombie.
    local first=
    { read -r first _ <"/proc/$!/task/$!/children"; } 2>/dev/null || true  # the file has no line end
    kill -KILL "${first:-$!}"
    wait $! 2>/dev/null || true
    trap - "$1"
    kill -"$1" $$
}

# --- Inside --------------------------------------------------------------------------------------

exec_on_host() { # NAME COMMAND...
    exec ip netns exec "$1" env "DBUS_SYSTEM_BUS_ADDRESS=unix:path=$work/$1.bus" "${@:2}"
}

make_host() { # NAME ADDRESS
    ip -n "$1" address add "$2/24" dev wlan0
    ip -n "$1" link set lo up
    ip -n "$1" link set wlan0 up
    dbus-daemon --session --nopidfile --fork "--address=unix:path=$work/$1.bus"
    cat >"$work/$1.conf" <<END
[server]
host-name=$1
allow-interfaces=wlan0
use-ipv6=no
ratelimit-interval-usec=0
[publish]
publish-hinfo=no
publish-workstation=no
[rlimits]
END
    # Each daemon has a directory of its own for the number of its process.
    exec_on_host "$1" sh -c 'mount -t tmpfs tmpfs /run/avahi-daemon && exec "$@"' sh \
        avahi-daemon --no-drop-root --no-chroot "--file=$work/$1.conf" >"$work/$1.daemon" 2>&1 &
}

await_daemon() { # NAME
    local deadline=$((SECONDS + 20))
    until grep -q 'Server startup complete' "$work/$1.daemon"; do
        if [ $SECONDS -ge $deadline ]; then
            cat "$work/$1.daemon" >&2
            give_up "the mDNS daemon of the $1 does not start"
        fi
        sleep 0.1
    done
}

run_agent() { # NAME SCRIPT
    exec_on_host "$1" "$home/build/bin/capi-agent" --peer linked --time-scale $time_scale \
        --wait-limit 30 --journal "$work/$1.journal" "$2" >"$work/$1.out" 2>"$work/$1.err"
}

# Both journals beside each other, without log lines, allocations and what every command is answered
# first.
show() {
    local name
    for name in sink source; do sed "s/^/$name /" "$work/$name.journal" >"$work/$name.tagged"; done
    LC_ALL=C sort -m -s -k 2,3 "$work"/{sink,source}.tagged | awk -v width="$COLUMNS" '
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
    exec 2>&3 3>&-
    set -E
    trap 'give_up "the two hosts cannot be made"' ERR
    mount -t tmpfs -o mode=755 tmpfs /run
    mkdir "$work" /run/avahi-daemon
    ip netns add sink
    ip netns add source
    ip link add wlan0 netns sink type veth peer name wlan0 netns source
    make_host sink 192.168.49.2
    make_host source 192.168.49.1
    await_daemon sink
    await_daemon source
    trap - ERR

    echo "Two hosts are up, their agents run; this takes about ten seconds" >&2
    export ANDROID_LOG_TAGS=${ANDROID_LOG_TAGS-*:S}
    local name process status=0 result
    local -A agents  # those that run, by process
    touch "$work"/{sink,source}.journal  # an agent that cannot start writes none
    run_agent sink "$1" & agents[$!]=sink
    run_agent source "$2" & agents[$!]=source
    while [ ${#agents[@]} -gt 0 ]; do
        result=0
        wait -n -p process "${!agents[@]}" || result=$?
        name=${agents[$process]}
        echo "the agent of the $name ended with status $result" >>"$work/$name.err"
        unset "agents[$process]"
        if [ $result -ne 0 ]; then
            status=1
            # What the other one still waits for will not come.
            if [ ${#agents[@]} -gt 0 ]; then kill -TERM "${!agents[@]}"; fi
        fi
    done
    show
    if [ $status -ne 0 ]; then
        for name in sink source; do sed "s/^/$name: /" "$work/$name.err" >&2; done
    fi
    exit $status
}

if [ "${1:-}" = --inside ]; then inside "${@:2}"; else outside "$@"; fi
